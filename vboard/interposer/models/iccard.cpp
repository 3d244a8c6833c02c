// /dev/iccard: 256 bytes of a chip card. A card that is pulled takes the node away, which is a
// fault of the board ("/dev/iccard absent"); a worn card is a setting of this model.

#include "platform/driver/iccard.h"
#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>

namespace vboard {
namespace {

using enum Direction;
using enum SettingKind;

constexpr Setting kSettings[] = {
    {.key = "stuck_byte",
     .kind = kNumber,
     .otherwise = "-1",
     .help = "a byte of the card that keeps its value whatever is written",
     .least = -1,
     .most = ICCARD_SIZE - 1},
    {.key = "stuck_value", .kind = kNumber, .otherwise = "0", .help = "that value", .most = 255},
    {.key = "inverted",
     .kind = kFlag,
     .otherwise = "0",
     .help = "1: every byte reads back as its complement"},
    {.key = "protected", .kind = kFlag, .otherwise = "0", .help = "1: writing is refused (EROFS)"},
};

using Card = unsigned char[ICCARD_SIZE];

int read_card(OpenFile &file, Card &card) {
  if (const int error = read_medium(file, card, sizeof card, 0))
    return error;
  const std::int64_t stuck = setting_number(file, "stuck_byte");
  if (stuck >= 0)
    card[stuck] = static_cast<unsigned char>(setting_number(file, "stuck_value"));
  if (setting_is_on(file, "inverted")) {
    for (unsigned char &byte : card)
      byte = static_cast<unsigned char>(~byte);
  }
  return 0;
}

int write_card(OpenFile &file, Card &card) {
  return setting_is_on(file, "protected") ? -EROFS : write_medium(file, card, sizeof card, 0);
}

// clang-format off
constexpr Request kRequests[] = {
    {.number = HAL_ICCARD_READ,  .name = "HAL_ICCARD_READ",  .direction = kOut, .handler = answers<read_card>},
    {.number = HAL_ICCARD_WRITE, .name = "HAL_ICCARD_WRITE", .direction = kIn,  .handler = answers<write_card>},
};
// clang-format on

}  // namespace

extern constexpr Model kIccardModel = {
    .name = "iccard",
    .settings = kSettings,
    .requests = kRequests,
    .medium_size = ICCARD_SIZE,
};

}  // namespace vboard
