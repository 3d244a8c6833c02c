// Numbers with a fraction, as they stand in node files and time lines. strtod() would follow the
// locale of the program under test.

#ifndef VBOARD_BASE_DECIMAL_H
#define VBOARD_BASE_DECIMAL_H

#include <string_view>

namespace vboard {

// Reads "[+-]digits[.digits]" from the front of `text`, after blanks, and moves `text` behind it.
// False, with both untouched, when no digit is there.
bool take_decimal(std::string_view &text, double &out);

// The whole text as one number; `fallback` when it is none.
double decimal_or(std::string_view text, double fallback);

}  // namespace vboard

#endif
