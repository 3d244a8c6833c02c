// vboard set DIR NODE KEY VALUE, vboard set DIR /sys/ATTRIBUTE VALUE

#include "vboard/board/attributes.h"
#include "vboard/board/board_paths.h"
#include "vboard/board/node.h"
#include "vboard/launcher/boards.h"
#include "vboard/launcher/commands.h"

#include <stdio.h>
#include <string.h>

namespace vboard {

namespace {

constexpr char kUsage[] =
    "usage: vboard set DIR NODE KEY VALUE\n"
    "       vboard set DIR /sys/ATTRIBUTE VALUE\n"
    "Changes a setting of a node file (NODE is such as /dev/lcd or net:ppp0), or an attribute,\n"
    "of the board in the directory DIR.\n";

int set_attribute(const char *board, const char *path, const char *value) {
  char name[kFileName];
  bool directory;
  if (normalise_path("/", path, name, directory) == 0 || strncmp(name, "/sys/", 5) != 0)
    return fail("%s: not an attribute below /sys", path);
  const ssize_t result = write_attribute(board, name, value, strlen(value), 0);
  return result < 0 ? fail("%s: %s", path, strerror(static_cast<int>(-result))) : 0;
}

struct Setting {
  const char *key, *value;
  bool fits;
};

int set_setting(const char *board, const char *node, const char *key, const char *value) {
  BoardPath file;
  if (!find_node_file(board, node, file))
    return kFailed;
  Setting setting = {key, value, false};
  const int result = update_node(
      file.c_str(),
      [](Node &content, void *context) {
        Setting &wanted = *static_cast<Setting *>(context);
        wanted.fits = set_node_text(content, wanted.key, wanted.value);
      },
      &setting);
  if (result < 0)
    return fail("%s: %s", node, strerror(-result));
  return setting.fits ? 0 : fail("%s: cannot hold \"%s = %s\"", node, key, value);
}

}  // namespace

int set_command(int argc, char **argv) {
  if (asks_for_help(argc, argv)) {
    fputs(kUsage, stdout);
    return 0;
  }
  if (argc != 3 && argc != 4)
    return wrong_usage("set");
  char board[kFileName];
  const int result = open_board(argv[0], board);
  if (result != 0)
    return result;
  if (argc == 3)
    return set_attribute(board, argv[1], argv[2]);
  return set_setting(board, argv[1], argv[2], argv[3]);
}

}  // namespace vboard
