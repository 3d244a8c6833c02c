// When the RTC test takes a clock for running.

#include "board/rtc_pace.h"

#include <gtest/gtest.h>

namespace {

TEST(ElapsedSeconds, is_the_difference_within_a_minute) {
  EXPECT_EQ(elapsed_seconds(10, 15), 5);
  EXPECT_EQ(elapsed_seconds(0, 59), 59);
}

TEST(ElapsedSeconds, crosses_a_minute) {
  EXPECT_EQ(elapsed_seconds(57, 2), 5);
  EXPECT_EQ(elapsed_seconds(59, 0), 1);
}

TEST(ElapsedSeconds, takes_a_clock_that_stands_still_for_a_minute) {
  EXPECT_EQ(elapsed_seconds(30, 30), 60);
  EXPECT_EQ(elapsed_seconds(0, 0), 60);
}

TEST(ClockRuns, from_four_to_eight_seconds) {
  EXPECT_FALSE(clock_runs(3));
  EXPECT_TRUE(clock_runs(4));
  EXPECT_TRUE(clock_runs(5));
  EXPECT_TRUE(clock_runs(8));
  EXPECT_FALSE(clock_runs(9));
}

TEST(ClockRuns, not_when_the_clock_stands_still_or_runs_backwards) {
  EXPECT_FALSE(clock_runs(elapsed_seconds(30, 30)));
  EXPECT_FALSE(clock_runs(elapsed_seconds(30, 25)));
}

}  // namespace
