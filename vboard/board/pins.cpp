// The values of pins, /sys/class/gpio/*/value.

#include "vboard/base/text.h"
#include "vboard/board/attribute_families.h"

#include <errno.h>

namespace vboard {
namespace {

// A pin is high or low, whatever number it was given.
ssize_t write_pin(const AttributeWrite &write) {
  std::int64_t value;
  if (!parse_number(attribute_value(write.bytes), value))
    return -EINVAL;
  return store_decimal(write.board, write.path, value != 0);
}

}  // namespace

extern constexpr AttributeFamily kPinValue = {.directory = "/sys/class/gpio/",
                                              .name = "/value",
                                              .form = AttributeForm::kText,
                                              .write = write_pin};

}  // namespace vboard
