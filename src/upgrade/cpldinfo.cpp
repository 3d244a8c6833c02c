// cpldinfo: shows the 256-byte hardware-information block of the board's CPLD, or burns a new CPLD
// image from a file.
//
// Every path returns 0. Three oddities are the interface: the self-test always reports that it
// failed, `get` dumps the block even when it could not be read, and burning always ends with
// "success", also after "failed".

#include "common/diagnostics.h"
#include "platform/boot_blocks.h"
#include "platform/upgrade.h"
#include "upgrade/upgrade.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <limits>

namespace {

constexpr char kUsage[] =
    "\nUsage: cpldinfo [get]\n\n"
    "\nUsage: cpldinfo [h]\n\n"
    "\nUsage: cpldinfo [burn] [\xCE\xC4\xBC\xFE\xC2\xB7\xBE\xB6]\n\n\n\n";  // GB2312: 文件路径,
                                                                            // file path

constexpr const char *kMainRoutine = "cpldinfo_main";
constexpr int kMainAutoLine = 157;
constexpr int kMainGetLine = 162;
constexpr int kMainBurnLine = 167;
constexpr const char *kBurnRoutine = "cpld_burn";

constexpr int kFileFailed = -1;
constexpr int kNoMemory = -2;

std::uint8_t block[RIG_HARDINFO_SIZE];

void test_block() {
  const int result = rig_hardinfo_get(block, RIG_HARDINFO_SIZE);
  if (result != 0)
    report_warning("cpldinfo_auto", 63, "cpldinfo_get fail[%d]", result);
}

int show_block() {
  const int result = rig_hardinfo_get(block, RIG_HARDINFO_SIZE);
  if (result != 0)
    report_warning("cpldinfo_get", 47, "cpldinfo_get fail[%d]", result);
  rig_bytes_print(block, RIG_HARDINFO_SIZE);
  return result;
}

// Reads the whole of `file` into `image` and burns it. A file that is longer than an image may be
// counts as one that could not be read: it never reaches the CPLD.
int burn_file(FILE *file, const char *path, std::uint8_t *image) {
  const off_t end = lseek(fileno(file), 0, SEEK_END);
  if (fseek(file, 0, SEEK_SET) != 0) {
    fputs("fseek(0,SEEK_SET) failed\n", stderr);
    return kFileFailed;
  }

  const int length =
      static_cast<int>(std::min<off_t>(end, std::numeric_limits<std::int32_t>::max()));
  const std::size_t wanted = static_cast<std::size_t>(std::clamp(length, 0, RIG_CPLD_IMAGE_MAX));
  const std::size_t got = fread(image, 1, wanted, file);
  if (length < 0 || got != static_cast<std::size_t>(length)) {
    fprintf(stderr, "fread(%d bytes) failed\n", length);
    return kFileFailed;
  }

  if (rig_upgrade_burn_cpld(0, image, length) != 0)
    printf("[%s:%d] burn cpld(%d bytes) failed\n", kBurnRoutine, 125, length);
  printf("[%s:%d] burn cpld(filename %s %d bytes) success\n", kBurnRoutine, 127, path, length);
  return 0;
}

int burn_path(const char *path, std::uint8_t *image) {
  FILE *file = fopen(path, "rb");
  if (file == nullptr) {
    fprintf(stderr, "fopen(%s,rb) failed\n", path);
    return kFileFailed;
  }
  const int result = burn_file(file, path, image);
  fclose(file);
  return result;
}

int burn_image(const char *path) {
  std::uint8_t *image = static_cast<std::uint8_t *>(calloc(1, RIG_CPLD_IMAGE_MAX));
  if (image == nullptr) {
    printf("[%s:%d]alloc inbuf fail[%d].\n", kBurnRoutine, 87, errno);
    return kNoMemory;
  }
  const int result = burn_path(path, image);
  free(image);
  return result;
}

}  // namespace

int cpldinfo_main(int argc, char **argv) {
  if (argc == 2 && strcmp(argv[1], "autotest") == 0) {
    test_block();
    report_warning(kMainRoutine, kMainAutoLine, "cpldinfo_auto fail[%d]", -1);
  } else if (argc == 2 && strcmp(argv[1], "get") == 0) {
    const int result = show_block();
    if (result != 0)
      report_warning(kMainRoutine, kMainGetLine, "cpldinfo_get fail[%d]", result);
  } else if (argc == 3 && strcmp(argv[1], "burn") == 0) {
    const int result = burn_image(argv[2]);
    if (result != 0)
      report_warning(kMainRoutine, kMainBurnLine, "cpld_burn fail[%d]", result);
  } else {
    fputs(kUsage, stderr);
  }
  return 0;
}
