// Texts and times of the virtual board at their ends.

#include "vboard/base/calendar.h"
#include "vboard/board/run_page.h"
#include "vboard/base/text.h"

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
