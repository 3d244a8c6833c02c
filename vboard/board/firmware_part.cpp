#include "vboard/board/firmware_part.h"

namespace vboard {

namespace {

using enum SettingKind;

// The errors of the kernel's class, in each of the phases in which an upload may fail.
constexpr char kFailures[] =
    "preparing:hw-error preparing:timeout preparing:user-abort preparing:device-busy "
    "preparing:invalid-file-size preparing:read-write-error preparing:flash-wearout "
    "preparing:firmware-invalid "
    "transferring:hw-error transferring:timeout transferring:user-abort transferring:device-busy "
    "transferring:invalid-file-size transferring:read-write-error transferring:flash-wearout "
    "transferring:firmware-invalid "
    "programming:hw-error programming:timeout programming:user-abort programming:device-busy "
    "programming:invalid-file-size programming:read-write-error programming:flash-wearout "
    "programming:firmware-invalid";

constexpr Setting kSettings[] = {
    {.key = "medium",
     .kind = kMedium,
     .otherwise = "",
     .help = "where the image ends up in media/"},
    {.key = "size",
     .kind = kNumber,
     .otherwise = "262144",
     .help = "a longer image is preparing:invalid-file-size"},
    {.key = "fails",
     .kind = kWord,
     .otherwise = "",
     .help = "what goes wrong, in the class's words",
     .words = kFailures},
};

}  // namespace

std::span<const Setting> firmware_settings() {
  return kSettings;
}

}  // namespace vboard
