// Brightness, /sys/class/leds/*/brightness.

#include "vboard/base/text.h"
#include "vboard/board/attribute_families.h"

#include <errno.h>

#include <algorithm>

namespace vboard {
namespace {

// A brightness is a number, and at most what max_brightness beside it says.
ssize_t write_brightness(const AttributeWrite &write) {
  std::int64_t value;
  if (!parse_number(attribute_value(write.bytes), value) || value < 0)
    return -EINVAL;
  char text[kPageSize];
  std::int64_t most;
  if (parse_number(load_value(write.board, sibling(write.path, "max_brightness").view(), text),
                   most))
    value = std::min(value, most);
  return store_decimal(write.board, write.path, value);
}

}  // namespace

extern constexpr AttributeFamily kLedBrightness = {.directory = "/sys/class/leds/",
                                                   .name = "/brightness",
                                                   .form = AttributeForm::kText,
                                                   .write = write_brightness};

}  // namespace vboard
