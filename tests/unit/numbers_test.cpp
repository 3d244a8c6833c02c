// Number forms of the command line give what a 32-bit board gives.

#include "common/numbers.h"

#include <gtest/gtest.h>

namespace {

struct DecimalCase {
  const char *text;
  std::int32_t value;
};

TEST(ParseDecimal, reads_what_a_command_line_may_hold) {
  const DecimalCase cases[] = {
      {"0", 0},     {"7", 7},    {"-1", -1}, {"+12", 12},
      {"  42", 42}, {"8x", 8},  // ends at the first other character
      {"0x10", 0},              // no hexadecimal
      {"010", 10},              // no octal
      {"", 0},      {"word", 0}, {"-", 0},   {nullptr, 0},
  };
  for (const DecimalCase &c : cases)
    EXPECT_EQ(parse_decimal(c.text), c.value) << (c.text != nullptr ? c.text : "(null)");
}

TEST(ParseDecimal, saturates_at_32_bits) {
  EXPECT_EQ(parse_decimal("2147483647"), INT32_MAX);
  EXPECT_EQ(parse_decimal("2147483648"), INT32_MAX);
  EXPECT_EQ(parse_decimal("4294967296"), INT32_MAX);
  EXPECT_EQ(parse_decimal("99999999999999999999999"), INT32_MAX);
  EXPECT_EQ(parse_decimal("-2147483648"), INT32_MIN);
  EXPECT_EQ(parse_decimal("-2147483649"), INT32_MIN);
  EXPECT_EQ(parse_decimal("-99999999999999999999999"), INT32_MIN);
}

struct UnsignedCase {
  const char *text;
  int base;
  std::uint32_t value;
};

TEST(ParseU32, reads_the_bases) {
  const UnsignedCase cases[] = {
      {"10", 0, 10},    {"0x10", 0, 16}, {"0X1f", 0, 31}, {"010", 0, 8},
      {"08", 0, 0},     {"10", 10, 10},  {"010", 10, 10}, {"10", 16, 16},
      {"0x10", 16, 16}, {"ff", 16, 255}, {"101", 2, 5},   {" 3", 0, 3},
      {"12z", 0, 12},   {"", 0, 0},      {"word", 0, 0},  {nullptr, 0, 0},
  };
  for (const UnsignedCase &c : cases)
    EXPECT_EQ(parse_u32(c.text, c.base), c.value)
        << (c.text != nullptr ? c.text : "(null)") << " in base " << c.base;
}

TEST(ParseU32, saturates_at_32_bits) {
  EXPECT_EQ(parse_u32("4294967295", 0), 0xFFFFFFFFu);
  EXPECT_EQ(parse_u32("4294967296", 0), 0xFFFFFFFFu);
  EXPECT_EQ(parse_u32("0x123456789", 0), 0xFFFFFFFFu);
  EXPECT_EQ(parse_u32("18446744073709551615", 0), 0xFFFFFFFFu);
  EXPECT_EQ(parse_u32("18446744073709551611", 0), 0xFFFFFFFFu);  // not taken for -5
  EXPECT_EQ(parse_u32("99999999999999999999999", 0), 0xFFFFFFFFu);
}

TEST(ParseU32, wraps_negative_numbers_in_32_bits) {
  EXPECT_EQ(parse_u32("-1", 0), 0xFFFFFFFFu);
  EXPECT_EQ(parse_u32("-5", 0), 0xFFFFFFFBu);
  EXPECT_EQ(parse_u32("-0x10", 0), 0xFFFFFFF0u);
  EXPECT_EQ(parse_u32("-4294967295", 0), 1u);
  EXPECT_EQ(parse_u32("-4294967296", 0), 0xFFFFFFFFu);
  EXPECT_EQ(parse_u32("-99999999999999999999999", 0), 0xFFFFFFFFu);
}

}  // namespace
