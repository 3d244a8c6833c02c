// vboard new DIR [--gyro CHIP]

#include "vboard/launcher/boards.h"
#include "vboard/launcher/commands.h"

#include <stdio.h>
#include <string.h>

namespace vboard {

namespace {

constexpr char kUsage[] =
    "usage: vboard new DIR [--gyro CHIP]\n"
    "Makes a healthy board in the directory DIR, which must not exist yet or be empty.\n"
    "  --gyro CHIP   the motion sensor that the board carries\n";

}  // namespace

int new_command(int argc, char **argv) {
  if (asks_for_help(argc, argv)) {
    fputs(kUsage, stdout);
    return 0;
  }
  const char *directory = nullptr;
  const char *gyro = nullptr;
  for (int i = 0; i < argc; ++i) {
    if (strcmp(argv[i], "--gyro") == 0 && i + 1 < argc)
      gyro = argv[++i];
    else if (argv[i][0] != '-' && directory == nullptr)
      directory = argv[i];
    else
      return wrong_usage("new");
  }
  if (directory == nullptr || *directory == '\0')
    return wrong_usage("new");
  return make_board(directory, gyro);
}

}  // namespace vboard
