// Number forms of the command line.

#include "common/numbers.h"

#include <stdlib.h>

#include <algorithm>
#include <limits>

std::int32_t parse_decimal(const char *text) {
  if (text == nullptr)
    return 0;
  const long long value = strtoll(text, nullptr, 10);
  return static_cast<std::int32_t>(std::clamp<long long>(
      value, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

std::uint32_t parse_u32(const char *text, int base) {
  if (text == nullptr)
    return 0;
  // Read as signed: a 64-bit strtoul() could not tell -1 from 18446744073709551615.
  constexpr long long kLimit = std::numeric_limits<std::uint32_t>::max();
  const long long value = strtoll(text, nullptr, base);
  if (value < -kLimit)
    return std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::uint32_t>(std::min(value, kLimit));
}

bool scan_u32(const char *text, int base, std::uint32_t &out_value) {
  if (text == nullptr)
    return false;
  char *end = nullptr;
  strtoll(text, &end, base);
  if (end == text)
    return false;
  out_value = parse_u32(text, base);
  return true;
}
