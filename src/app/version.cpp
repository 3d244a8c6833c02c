// version: the platform library's logo, then the program's name, version and build stamp.
//
// Both lines of its own end in carriage return and newline, and no field of the stamp is padded
// with zeros. Arguments are ignored.

#include "app/app.h"
#include "app/build_stamp.h"
#include "platform/logo.h"

#include <stdio.h>

namespace {

constexpr int kMajor = 2;
constexpr int kMinor = 0;
constexpr int kPatch = 0;

// The higher fields of a packed stamp; the lowest byte needs no shift.
int second_byte(std::uint32_t packed) {
  return static_cast<int>(packed >> 8 & 0xFF);
}

int lowest_byte(std::uint32_t packed) {
  return static_cast<int>(packed & 0xFF);
}

}  // namespace

int version_main([[maybe_unused]] int argc, [[maybe_unused]] char **argv) {
  rig_print_logo(3, 1);
  puts("\r");

  const std::uint32_t date = pack_build_date(build_date());
  const std::uint32_t time = pack_build_time(build_time());
  printf("%s v%d.%d.%d build %d-%d-%d %d:%d:%d\r\n", "benchrig", kMajor, kMinor, kPatch,
         static_cast<int>(date >> 16), second_byte(date), lowest_byte(date),
         static_cast<int>(time >> 16 & 0xFF), second_byte(time), lowest_byte(time));
  return 0;
}
