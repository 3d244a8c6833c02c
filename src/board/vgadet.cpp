// vgadet: tells whether a monitor is connected to the VGA connector.
//
// It takes no argument, not even "autotest": the unattended board check lists it as failed.

#include "board/board.h"
#include "platform/board_io.h"

#include <stdio.h>

namespace {

constexpr char kUsage[] = "\nUsage: vgadet\n\n\n\n";

}  // namespace

int vgadet_main(int argc, [[maybe_unused]] char **argv) {
  if (argc > 1) {
    fputs(kUsage, stderr);
    return -1;
  }
  printf("vga detect %d\n", rig_detect_vga());
  return 0;
}
