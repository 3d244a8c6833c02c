// bsp: version and build day of the board-support package, and with `ver` also those of the boot
// loaders, the package and the kernel as the platform library tells them.

#include "platform/versions.h"
#include "upgrade/bsp_stamp.h"
#include "upgrade/upgrade.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr char kUsage[] = "\nUsage: bsp [ver]\n\n\n\n";

struct VersionText {
  int (*get)(char *text);
  const char *failure;
};

void print_stamp() {
  const std::uint32_t version = rig_kernel_version();
  const std::uint32_t date = rig_kernel_date();
  const BspStamp stamp = decode_bsp_stamp(version, date);
  printf("bsp version:%d.%d.%d build %d-%d-%d\n", stamp.major, stamp.minor, stamp.patch, stamp.year,
         stamp.month, stamp.day);
}

void print_version_texts() {
  const VersionText texts[] = {
      {rig_get_korbootversion, "get korboot version fail"},
      {rig_get_ubootversion, "get uboot version fail"},
      {rig_get_korbspversion, "get korbsp version fail"},
      {rig_get_kernelversion, "get kernel version fail"},
  };
  for (const VersionText &version : texts) {
    char text[RIG_VERSION_TEXT_SIZE] = "";
    puts(version.get(text) < 0 ? version.failure : text);
  }
}

}  // namespace

int bsp_main(int argc, char **argv) {
  const char *word = argc == 2 ? argv[1] : "";

  if (strcmp(word, "-h") == 0) {
    fputs(kUsage, stderr);
    return 0;
  }
  print_stamp();
  if (strcmp(word, "ver") == 0)
    print_version_texts();
  return 0;
}
