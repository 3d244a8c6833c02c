// vboard check DIR

#include "vboard/launcher/board_check.h"
#include "vboard/launcher/boards.h"
#include "vboard/launcher/commands.h"

#include <stdio.h>

namespace vboard {

namespace {

constexpr int kFaulty = 1;

constexpr char kUsage[] =
    "usage: vboard check DIR\n"
    "Reads the board in the directory DIR and prints a line for each setting that its device does\n"
    "not have or take, each medium that is missing or too short, each fault of what the board "
    "does\n"
    "not have, and each wire without an end: FILE:LINE: what is wrong.\n"
    "The exit status is 0 when there is nothing, 1 when there is something.\n";

}  // namespace

int check_command(int argc, char **argv) {
  if (asks_for_help(argc, argv)) {
    fputs(kUsage, stdout);
    return 0;
  }
  if (argc != 1)
    return wrong_usage("check");
  char board[kFileName];
  const int result = open_board(argv[0], board);
  if (result != 0)
    return result;
  return check_board(board, argv[0], stdout) == 0 ? 0 : kFaulty;
}

}  // namespace vboard
