#include "vboard/board/firmware_part.h"

namespace vboard {

namespace {

using enum SettingKind;

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
     .kind = kText,
     .otherwise = "",
     .help =
         "what goes wrong, as the class reports it: STATE:REASON, such as programming:hw-error"},
};

}  // namespace

std::span<const Setting> firmware_settings() {
  return kSettings;
}

}  // namespace vboard
