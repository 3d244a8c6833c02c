// Texts and times of the virtual board at their ends.

#include "vboard/base/calendar.h"
#include "vboard/board/run_page.h"
#include "vboard/base/text.h"

#include <string.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

using namespace vboard;

TEST(BoardText, an_empty_text_needs_no_place) {
  char room[4] = "abc";
  EXPECT_TRUE(copy_text(room, std::string_view()));
  EXPECT_EQ(std::string(room), "");
  TextBuffer buffer = {room, sizeof room, 0, false};
  append_text(buffer, "x");
  append_text(buffer, std::string_view());
  EXPECT_EQ(std::string(buffer.data, buffer.length), "x");
  EXPECT_FALSE(buffer.overflow);
  // Not even into a buffer without one.
  TextBuffer none = {nullptr, 0, 0, false};
  append_text(none, "x");
  EXPECT_TRUE(none.overflow);
}

TEST(BoardText, a_fixed_text_ends_in_a_nul_after_every_piece) {
  FixedText<8> text;
  EXPECT_EQ(text.view(), "");
  EXPECT_STREQ(text.c_str(), "");
  memset(text.data, 'x', sizeof text.data);
  append_text(text, "ab", std::string_view("cd"));
  EXPECT_STREQ(text.c_str(), "abcd");
  append_decimal(text, -7);
  EXPECT_STREQ(text.c_str(), "abcd-7");
  EXPECT_EQ(text.view(), "abcd-7");
  EXPECT_FALSE(text.overflow);
}

TEST(BoardText, a_fixed_text_remembers_that_something_did_not_fit) {
  FixedText<8> text;
  append_text(text, "1234567");
  EXPECT_FALSE(text.overflow);
  append_text(text, "8");
  EXPECT_TRUE(text.overflow);
  EXPECT_STREQ(text.c_str(), "1234567");
  append_text(text, "");
  EXPECT_TRUE(text.overflow);

  FixedText<8> cut;
  append_text(cut, "12345", "678");
  EXPECT_TRUE(cut.overflow);
  EXPECT_STREQ(cut.c_str(), "1234567");
}

TEST(BoardText, a_fixed_text_takes_numbers_and_seconds) {
  FixedText<32> text;
  append_hex(text, 0xC0FE);
  append_text(text, " ");
  append_seconds(text, 3'000'004'999);
  EXPECT_STREQ(text.c_str(), "0xc0fe 3.000004");
  const FixedText<32> copy = text;
  text = {};
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_STREQ(copy.c_str(), "0xc0fe 3.000004");
}

TEST(BoardTime, sums_end_where_64_bits_do) {
  EXPECT_EQ(saturated_sum(2, 3), 5);
  EXPECT_EQ(saturated_sum(INT64_MAX - 1, 1), INT64_MAX);
  EXPECT_EQ(saturated_sum(INT64_MAX, 1), INT64_MAX);
  EXPECT_EQ(saturated_sum(INT64_MIN, -1), INT64_MIN);
  EXPECT_EQ(saturated_sum(INT64_MIN, INT64_MAX), -1);
  EXPECT_EQ(saturated_nanoseconds(2, 3), 2'000'000'003);
  EXPECT_EQ(saturated_nanoseconds(9'223'372'036, 854'775'807), INT64_MAX);
  EXPECT_EQ(saturated_nanoseconds(9'223'372'036, 854'775'808), INT64_MAX);
  EXPECT_EQ(saturated_nanoseconds(9'223'372'037, 0), INT64_MAX);
  EXPECT_EQ(saturated_nanoseconds(INT64_MIN, 0), INT64_MIN);
}

TEST(BoardTime, the_calendar_stays_between_1970_and_2255) {
  constexpr std::int64_t last = 9'000'000'000'000'000'000;
  EXPECT_EQ(calendar_after(10, 20), 30);
  EXPECT_EQ(calendar_after(10, -11), 0);
  EXPECT_EQ(calendar_after(0, INT64_MIN), 0);
  EXPECT_EQ(calendar_after(last - 1, 1), last);
  EXPECT_EQ(calendar_after(last, 1), last);
  EXPECT_EQ(calendar_after(last, INT64_MAX), last);
}

TEST(BoardTime, a_slow_board_waits_as_long_as_can_be_said) {
  RunPage page = {};
  page.speed_milli = 500;
  EXPECT_EQ(pc_from_board(page, 1'000'001), 2'000'002);
  EXPECT_EQ(pc_from_board(page, INT64_MAX / 2 + 1), kNoTime);
  EXPECT_EQ(pc_from_board(page, kNoTime), kNoTime);
  page.speed_milli = 3000;
  EXPECT_EQ(pc_from_board(page, 1'000'001), 333'334);
}
