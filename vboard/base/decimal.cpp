#include "vboard/base/decimal.h"

namespace vboard {

bool take_decimal(std::string_view &text, double &out) {
  std::size_t at = text.find_first_not_of(" \t\r");
  if (at == std::string_view::npos)
    return false;
  const bool negative = text[at] == '-';
  if (text[at] == '-' || text[at] == '+')
    ++at;

  double value = 0;
  double scale = 1;
  bool digits = false;
  bool fraction = false;
  for (; at < text.size(); ++at) {
    const char c = text[at];
    if (c == '.' && !fraction) {
      fraction = true;
    } else if (c >= '0' && c <= '9') {
      digits = true;
      value = value * 10 + (c - '0');
      scale *= fraction ? 10 : 1;
    } else {
      break;
    }
  }
  if (!digits)
    return false;
  // One division at the end: 0.244 comes out as the double that 244 / 1000 is.
  out = (negative ? -value : value) / scale;
  text.remove_prefix(at);
  return true;
}

double decimal_or(std::string_view text, double fallback) {
  double value;
  return take_decimal(text, value) && text.find_first_not_of(" \t\r") == std::string_view::npos
             ? value
             : fallback;
}

}  // namespace vboard
