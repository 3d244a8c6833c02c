// vboard show DIR [NODE] [--png FILE]

#include "vboard/launcher/boards.h"
#include "vboard/launcher/commands.h"
#include "vboard/launcher/draw.h"
#include "vboard/launcher/png.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

namespace vboard {

namespace {

constexpr char kUsage[] =
    "usage: vboard show DIR [NODE] [--png FILE]\n"
    "Draws the board in the directory DIR and tells what differs from a new one, or shows the\n"
    "settings of one device of it, such as /dev/lcd, and what it looks like. A setting that "
    "differs\n"
    "from a new board's is marked *, one that makes no sense !.\n"
    "  --png FILE    writes the device's picture to FILE instead\n";

}  // namespace

int show_command(int argc, char **argv) {
  if (asks_for_help(argc, argv)) {
    fputs(kUsage, stdout);
    return 0;
  }
  const char *words[2] = {};
  int count = 0;
  const char *png = nullptr;
  for (int i = 0; i < argc; ++i) {
    if (strcmp(argv[i], "--png") == 0 && i + 1 < argc)
      png = argv[++i];
    else if (argv[i][0] != '-' && count < 2)
      words[count++] = argv[i];
    else
      return wrong_usage("show");
  }
  if (count == 0 || (png != nullptr && count < 2))
    return wrong_usage("show");

  char board[kFileName];
  char board_template[kFileName];
  int result = open_board(words[0], board);
  if (result == 0)
    result = find_template(board_template);
  if (result != 0)
    return result;
  const char *node = words[1];
  if (node == nullptr) {
    result = draw_board(board, board_template, stdout);
    return result < 0 ? fail("%s: %s", words[0], strerror(-result)) : 0;
  }
  if (png == nullptr) {
    result = draw_node(board, board_template, node, stdout);
    return result == -ENOENT ? fail("%s: the board has no such node", node)
           : result < 0      ? fail("%s: %s", node, strerror(-result))
                             : 0;
  }
  result = write_png(board, node, png);
  if (result == -ENOTSUP)
    return fail("%s: cannot be drawn as PNG", node);
  return result < 0 ? fail("%s: %s", png, strerror(-result)) : 0;
}

}  // namespace vboard
