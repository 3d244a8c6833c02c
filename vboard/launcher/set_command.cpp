// vboard set DIR NODE KEY VALUE, vboard set DIR /sys/ATTRIBUTE VALUE

#include "vboard/board/attributes.h"
#include "vboard/board/board_paths.h"
#include "vboard/board/node.h"
#include "vboard/launcher/boards.h"
#include "vboard/launcher/commands.h"
#include "vboard/launcher/setting_checks.h"

#include <stdio.h>
#include <string.h>

namespace vboard {

namespace {

constexpr char kUsage[] =
    "usage: vboard set DIR NODE KEY VALUE\n"
    "       vboard set DIR /sys/ATTRIBUTE VALUE\n"
    "Changes a setting of a node file (NODE is such as /dev/lcd or net:ppp0), or an attribute,\n"
    "of the board in the directory DIR. A setting that the device does not have, and a value that\n"
    "it does not take, are refused; an empty VALUE is the default.\n";

int set_attribute(const char *board, const char *path, const char *value) {
  char name[kFileName];
  bool directory;
  if (normalise_path("/", path, name, directory) == 0 || strncmp(name, "/sys/", 5) != 0)
    return fail("%s: not an attribute below /sys", path);
  const ssize_t result = write_attribute(board, name, value, strlen(value), 0);
  return result < 0 ? fail("%s: %s", path, strerror(static_cast<int>(-result))) : 0;
}

struct Change {
  const char *node, *file, *key, *value;
  bool fits;
  Reason problem;
};

// Looks at the node as it will be: a new model brings its own table.
void change_setting(Node &content, Change &change) {
  Node changed = content;
  NodeTable table;
  change.fits = set_node_text(changed, change.key, change.value);
  if (!change.fits)
    return;
  if (find_table(board_name(change.node).view(), change.file, changed, table))
    change.problem = setting_problem(table, change.key, change.value);
  else
    append_text(change.problem, "is no node, and has no settings");
  if (change.problem.length == 0)
    content = changed;
}

int set_setting(const char *board, const char *node, const char *key, const char *value) {
  BoardPath file;
  if (!find_node_file(board, node, file))
    return kFailed;
  Change change = {node, file.c_str(), key, value, false, {}};
  const int result = update_node(
      file.c_str(),
      [](Node &content, void *context) {
        change_setting(content, *static_cast<Change *>(context));
      },
      &change);
  if (result < 0)
    return fail("%s: %s", node, strerror(-result));
  if (!change.fits)
    return fail("%s: cannot hold \"%s = %s\"", node, key, value);
  return change.problem.length == 0 ? 0 : fail("%s: %s", node, change.problem.c_str());
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
