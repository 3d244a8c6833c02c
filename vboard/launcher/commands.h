// The commands of vboard: each gets the words behind its name and returns the exit status.

#ifndef VBOARD_LAUNCHER_COMMANDS_H
#define VBOARD_LAUNCHER_COMMANDS_H

namespace vboard {

int new_command(int argc, char **argv);
int run_command(int argc, char **argv);
int check_command(int argc, char **argv);
int show_command(int argc, char **argv);
int set_command(int argc, char **argv);
int fault_command(int argc, char **argv);

// Whether the first word asks for help.
bool asks_for_help(int argc, char **argv);
// "Try vboard NAME --help": kFailed.
int wrong_usage(const char *command);

}  // namespace vboard

#endif
