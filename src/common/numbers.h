// How numbers on the command line are read: one function for each form. All give what a 32-bit
// board gives, whatever the width of long on the machine that runs the program.

#ifndef BENCHRIG_COMMON_NUMBERS_H
#define BENCHRIG_COMMON_NUMBERS_H

#include <cstdint>

// Decimal, after optional blanks and a sign; what follows the digits is ignored. 0 when there is no
// number or `text` is null. Values beyond 32 bits become the nearest limit.
std::int32_t parse_decimal(const char *text);

// Unsigned, in `base` as strtoul() takes it (0: decimal, 0x for hexadecimal, a leading 0 for
// octal). 0 when there is no number or `text` is null. A negative number wraps in 32 bits; a
// magnitude beyond 32 bits is 0xFFFFFFFF.
std::uint32_t parse_u32(const char *text, int base);

// The same as a conversion of sscanf() reads it (base 16 is %x, base 10 is %u): false, with
// `out_value` untouched, when `text` does not begin with a number or is null.
bool scan_u32(const char *text, int base, std::uint32_t &out_value);

#endif
