// /dev/iccard: 256 bytes of a chip card. A card that is pulled takes the node away, which is a
// fault of the board ("/dev/iccard absent"); a worn card is a setting of this model.
//
//   stuck_byte   a byte of the card (0 to 255) that keeps its value whatever is written
//   stuck_value  that value
//   inverted     1: every byte reads back as its complement
//   protected    1: the card refuses writes (EROFS)

#include "platform/driver/iccard.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>

namespace vboard {
namespace {

int read_card(OpenFile &file, unsigned char *block) {
  if (const int error = read_medium(file, block, ICCARD_SIZE, 0))
    return error;
  const std::int64_t stuck = node_number(file.node, "stuck_byte", -1);
  if (stuck >= 0 && stuck < ICCARD_SIZE)
    block[stuck] = static_cast<unsigned char>(node_number(file.node, "stuck_value", 0));
  if (node_number(file.node, "inverted", 0) != 0) {
    for (int i = 0; i < ICCARD_SIZE; ++i)
      block[i] = static_cast<unsigned char>(~block[i]);
  }
  return 0;
}

int iccard_ioctl(OpenFile &file, std::uint32_t request, void *argument) {
  switch (request) {
    case HAL_ICCARD_READ:
      return read_card(file, static_cast<unsigned char *>(argument));
    case HAL_ICCARD_WRITE:
      if (node_number(file.node, "protected", 0) != 0)
        return -EROFS;
      return write_medium(file, argument, ICCARD_SIZE, 0);
    default:
      return -ENOTTY;
  }
}

using enum Direction;

constexpr Request kRequests[] = {
    {.number = HAL_ICCARD_READ, .name = "HAL_ICCARD_READ", .size = ICCARD_SIZE, .direction = kOut},
    {.number = HAL_ICCARD_WRITE, .name = "HAL_ICCARD_WRITE", .size = ICCARD_SIZE, .direction = kIn},
};

// The card answers requests only: its bytes are no stream.
ssize_t no_read(OpenFile &, void *, std::size_t) {
  return -EINVAL;
}

ssize_t no_write(OpenFile &, const void *, std::size_t) {
  return -EINVAL;
}

}  // namespace

extern constexpr Model kIccardModel = {
    .name = "iccard",
    .requests = kRequests,
    .medium_size = ICCARD_SIZE,
    .medium_fill = 0,
    .open = nullptr,
    .close = nullptr,
    .read = no_read,
    .write = no_write,
    .ioctl = iccard_ioctl,
    .readable_at = nullptr,
};

}  // namespace vboard
