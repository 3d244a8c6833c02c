// beep: switches the buzzer, through the platform library, whose result is not looked at.

#include "board/board.h"
#include "common/numbers.h"
#include "platform/board_io.h"

#include <stdio.h>
#include <string.h>
#include <unistd.h>

namespace {

constexpr char kUsage[] =
    "\nUsage: beep [onoff]\n\n"
    "\n\nexample:\n"
    "  beep 1\n"
    "  beep 0\n";

void run_autotest() {
  for (int cycle = 0; cycle < 3; ++cycle) {
    rig_beep(1);
    puts("beep open!\r");
    sleep(1);
    rig_beep(0);
    puts("beep close!\r");
    sleep(1);
  }
  puts("BEEP AUTOTEST FINISH!");
}

}  // namespace

int beep_main(int argc, char **argv) {
  if (argc != 2) {
    fputs(kUsage, stderr);
    return -1;
  }
  if (strcmp(argv[1], "autotest") == 0) {
    run_autotest();
    return 0;
  }
  const int on = parse_decimal(argv[1]);
  rig_beep(on);
  printf("%s beep.\n", on != 0 ? "open" : "close");
  return 0;
}
