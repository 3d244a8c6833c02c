// vboard new DIR [--gyro CHIP | --bare | --from OTHER]

#include "vboard/launcher/boards.h"
#include "vboard/launcher/commands.h"

#include <stdio.h>
#include <string.h>

namespace vboard {

namespace {

constexpr char kUsage[] =
    "usage: vboard new DIR [--gyro CHIP | --bare | --from OTHER]\n"
    "Makes a healthy board in the directory DIR, which must not exist yet or be empty.\n"
    "  --gyro CHIP    the motion sensor that the board carries\n"
    "  --bare         a board with nothing on it, for one that is not the recorder\n"
    "  --from OTHER   a copy of the board in the directory OTHER, as it is now\n";

}  // namespace

int new_command(int argc, char **argv) {
  if (asks_for_help(argc, argv)) {
    fputs(kUsage, stdout);
    return 0;
  }
  const char *directory = nullptr;
  const char *gyro = nullptr;
  const char *other = nullptr;
  bool bare = false;
  int choices = 0;
  for (int i = 0; i < argc; ++i) {
    const bool chooses = argv[i][0] == '-';
    choices += chooses;
    if (strcmp(argv[i], "--gyro") == 0 && i + 1 < argc)
      gyro = argv[++i];
    else if (strcmp(argv[i], "--from") == 0 && i + 1 < argc)
      other = argv[++i];
    else if (strcmp(argv[i], "--bare") == 0)
      bare = true;
    else if (!chooses && directory == nullptr)
      directory = argv[i];
    else
      return wrong_usage("new");
  }
  // A copy has the sensor of the other board, a bare one has none.
  if (directory == nullptr || *directory == '\0' || choices > 1)
    return wrong_usage("new");
  if (bare)
    return make_bare_board(directory);
  if (other != nullptr)
    return copy_board(directory, other);
  return make_board(directory, gyro);
}

}  // namespace vboard
