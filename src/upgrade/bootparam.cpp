// bootparam: shows the boot-parameter block, bumps its counter, or tests that the block keeps what
// is written (and leaves it as it was).
//
// Every path returns 0, so the board check lists this test as OK even when it failed: scripts look
// at the diagnostic lines. A failed read before `set` is only warned about, and the block as it
// stands in memory is written all the same.

#include "common/diagnostics.h"
#include "platform/boot_blocks.h"
#include "upgrade/boot_counter.h"
#include "upgrade/upgrade.h"

#include <stdio.h>
#include <string.h>

#include <cstdint>

namespace {

constexpr char kUsage[] = "\nUsage: bootparam [autotest|set]\n\n\n\n";

constexpr const char *kMainRoutine = "bootparam_main";
constexpr int kMainAutoLine = 133;
constexpr int kMainSetLine = 138;
constexpr int kMainGetLine = 143;

std::uint8_t block[RIG_BOOTPARAM_SIZE];

int read_block() {
  return rig_bootparam_get(block, RIG_BOOTPARAM_SIZE);
}

int write_block() {
  return rig_bootparam_set(block, RIG_BOOTPARAM_SIZE);
}

// Each step returns 0, else what the failing operation returned.

int test_block() {
  constexpr const char *kRoutine = "bootparam_auto";
  int result = read_block();
  if (result != 0) {
    report_return(kRoutine, 92, "bootparam_get fail[%d]", result);
    return result;
  }

  raise_boot_counter(block);
  std::uint8_t written[RIG_BOOTPARAM_SIZE];
  memcpy(written, block, sizeof written);
  result = write_block();
  if (result != 0) {
    report_return(kRoutine, 98, "bootparam_set fail[%d]", result);
    return result;
  }

  result = read_block();
  if (result != 0) {
    report_return(kRoutine, 102, "bootparam_get fail[%d]", result);
    return result;
  }
  result = memcmp(written, block, sizeof written);
  if (result != 0) {
    report_return(kRoutine, 104, "bootparam_chk fail[%d]", result);
    return result;
  }

  lower_boot_counter(block);
  result = write_block();
  if (result != 0)
    report_return(kRoutine, 109, "bootparam_bak fail[%d]", result);
  return result;
}

int bump_counter() {
  constexpr const char *kRoutine = "bootparam_set";
  int result = read_block();
  if (result != 0)
    report_warning(kRoutine, 65, "bootparam_get fail[%d]", result);

  raise_boot_counter(block);
  result = write_block();
  if (result != 0) {
    report_return(kRoutine, 70, "bootparam_set fail[%d]", result);
    return result;
  }

  result = read_block();
  if (result != 0) {
    report_return(kRoutine, 74, "bootparam_get fail[%d]", result);
    return result;
  }
  rig_bytes_print(block, RIG_BOOTPARAM_SIZE);
  return 0;
}

int show_block() {
  const int result = read_block();
  if (result != 0) {
    report_return("bootparam_get", 48, "bootparam_get fail[%d]", result);
    return result;
  }
  rig_bytes_print(block, RIG_BOOTPARAM_SIZE);
  return 0;
}

}  // namespace

int bootparam_main(int argc, char **argv) {
  const char *word = argc == 2 ? argv[1] : "";

  if (strcmp(word, "-h") == 0) {
    fputs(kUsage, stderr);
  } else if (strcmp(word, "autotest") == 0) {
    const int result = test_block();
    if (result != 0)
      report_warning(kMainRoutine, kMainAutoLine, "bootparam_auto fail[%d]", result);
  } else if (strcmp(word, "set") == 0) {
    const int result = bump_counter();
    if (result != 0)
      report_warning(kMainRoutine, kMainSetLine, "bootparam_set fail[%d]", result);
  } else {
    const int result = show_block();
    if (result != 0)
      report_warning(kMainRoutine, kMainGetLine, "bootparam_get fail[%d]", result);
  }
  return 0;
}
