// vboard: runs programs for the board on a PC, against a board that is a directory of files.

#include "vboard/launcher/boards.h"
#include "vboard/launcher/commands.h"

#include <stdio.h>
#include <string.h>

namespace vboard {

namespace {

constexpr char kUsage[] =
    "usage: vboard new DIR [--gyro CHIP | --bare | --from OTHER]\n"
    "       vboard run [OPTION...] -- COMMAND [ARGUMENT...]\n"
    "       vboard check DIR\n"
    "       vboard show DIR [NODE] [--png FILE]\n"
    "       vboard set DIR NODE KEY VALUE\n"
    "       vboard set DIR /sys/ATTRIBUTE VALUE\n"
    "       vboard fault DIR add NODE ... | list | clear\n"
    "\n"
    "A board is a directory of readable files. \"vboard COMMAND --help\" tells more.\n";

struct Command {
  const char *name;
  int (*run)(int argc, char **argv);
};

// clang-format off
constexpr Command kCommands[] = {
  {"new",   new_command},
  {"run",   run_command},
  {"check", check_command},
  {"show",  show_command},
  {"set",   set_command},
  {"fault", fault_command},
};
// clang-format on

bool is_help(const char *word) {
  return strcmp(word, "--help") == 0 || strcmp(word, "-h") == 0;
}

}  // namespace

bool asks_for_help(int argc, char **argv) {
  return argc > 0 && is_help(argv[0]);
}

int wrong_usage(const char *command) {
  return fail("wrong usage; \"vboard %s --help\" tells the right one", command);
}

}  // namespace vboard

using namespace vboard;

int main(int argc, char **argv) {
  if (argc < 2) {
    fputs(kUsage, stderr);
    return kFailed;
  }
  if (is_help(argv[1]) || strcmp(argv[1], "help") == 0) {
    fputs(kUsage, stdout);
    return 0;
  }
  for (const Command &command : kCommands) {
    if (strcmp(argv[1], command.name) == 0)
      return command.run(argc - 2, argv + 2);
  }
  fail("no such command: %s", argv[1]);
  fputs(kUsage, stderr);
  return kFailed;
}
