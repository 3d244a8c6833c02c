// Pins: their values, /sys/class/gpio/*/value, and the changes that a program can wait for, which
// /sys/class/gpio/*/edge names.

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

// A pin without `edge` announces every change.
bool announces_level(const char *board, std::string_view path, std::string_view value) {
  char text[kPageSize];
  const std::string_view edge = load_value(board, sibling(path, "edge").view(), text);
  if (edge == "rising")
    return value != "0";
  if (edge == "falling")
    return value == "0";
  return edge != "none";
}

ssize_t write_edge(const AttributeWrite &write) {
  const std::string_view edge = attribute_value(write.bytes);
  if (edge != "none" && edge != "rising" && edge != "falling" && edge != "both")
    return -EINVAL;
  return store_value(write.board, write.path, edge);
}

}  // namespace

extern constexpr AttributeFamily kPinValue = {.directory = "/sys/class/gpio/",
                                              .name = "/value",
                                              .form = AttributeForm::kText,
                                              .write = write_pin,
                                              .announces = announces_level};

extern constexpr AttributeFamily kPinEdge = {.directory = "/sys/class/gpio/",
                                             .name = "/edge",
                                             .form = AttributeForm::kText,
                                             .write = write_edge};

}  // namespace vboard
