// Process entry: hands the command line to the platform library's dispatcher.

#include "app/applet_tables.h"
#include "platform/applets.h"

#include <stdio.h>

int main(int argc, char **argv) {
  // Several tests run until the board resets or somebody kills them: behind a pipe, what they
  // printed would be lost with a full buffer.
  static char buffer[BUFSIZ];  // spares every start an allocation
  setvbuf(stdout, buffer, _IOLBF, sizeof buffer);
  return rig_applets_process("benchrig", top_table, argc, argv);
}
