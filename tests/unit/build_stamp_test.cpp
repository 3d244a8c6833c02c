// The build stamp's packed words.

#include "app/build_stamp.h"

#include <stdio.h>
#include <string.h>

#include <gtest/gtest.h>

namespace {

std::uint32_t date(std::uint32_t year, std::uint32_t month, std::uint32_t day) {
  return year * 65536 + month * 256 + day;
}

std::uint32_t time(std::uint32_t hour, std::uint32_t minute, std::uint32_t second) {
  return hour * 65536 + minute * 256 + second;
}

TEST(PackBuildDate, reads_a_two_digit_day) {
  EXPECT_EQ(pack_build_date("Dec 18 2023"), 0x07E70C12u);
}

TEST(PackBuildDate, skips_the_blank_before_a_one_digit_day) {
  EXPECT_EQ(pack_build_date("Jan  5 2024"), date(2024, 1, 5));
}

TEST(PackBuildDate, knows_the_twelve_months) {
  const char *const names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  for (std::uint32_t i = 0; i < 12; ++i) {
    char text[16];
    snprintf(text, sizeof text, "%s 10 2025", names[i]);
    EXPECT_EQ(pack_build_date(text), date(2025, i + 1, 10)) << text;
  }
}

TEST(PackBuildDate, gives_month_13_for_an_unknown_word) {
  EXPECT_EQ(pack_build_date("Foo 10 2025"), date(2025, 13, 10));
  EXPECT_EQ(pack_build_date("dec 10 2025"), date(2025, 13, 10));  // case counts
  EXPECT_EQ(pack_build_date("De 10 2025"), date(2025, 13, 10));
}

TEST(PackBuildDate, compares_the_first_three_letters) {
  EXPECT_EQ(pack_build_date("March 9 2025"), date(2025, 3, 9));
}

TEST(PackBuildDate, keeps_the_low_eight_bits_of_the_day) {
  EXPECT_EQ(pack_build_date("Feb 257 2025"), date(2025, 2, 1));
}

TEST(PackBuildDate, survives_a_word_without_end) {
  // The scan stops within the word, so neither number is read.
  EXPECT_EQ(pack_build_date("Junjunjunjunjunjunjunjunjunjun 3 2025"), date(0, 6, 0));
  EXPECT_EQ(pack_build_date(""), date(0, 13, 0));
}

TEST(PackBuildTime, packs_three_fields) {
  EXPECT_EQ(pack_build_time("16:59:34"), 0x00103B22u);
  EXPECT_EQ(pack_build_time("09:05:03"), time(9, 5, 3));
}

TEST(PackBuildTime, leaves_unread_fields_at_0) {
  EXPECT_EQ(pack_build_time("16:59"), time(16, 59, 0));
  EXPECT_EQ(pack_build_time("16"), time(16, 0, 0));
  EXPECT_EQ(pack_build_time("noon"), 0u);
}

TEST(PackBuildTime, masks_each_field) {
  EXPECT_EQ(pack_build_time("257:00:256"), time(1, 0, 0));
  EXPECT_EQ(pack_build_time("255:00:511"), time(255, 0, 255));
  // The minute keeps its low eight bits too.
  EXPECT_EQ(pack_build_time("00:258:00"), time(0, 2, 0));
  EXPECT_EQ(pack_build_time("00:511:00"), time(0, 255, 0));
}

TEST(BuildStamp, has_the_compilers_forms) {
  EXPECT_EQ(strlen(build_date()), 11u);
  EXPECT_EQ(build_date()[3], ' ');
  EXPECT_EQ(build_date()[6], ' ');
  const std::uint32_t month = pack_build_date(build_date()) >> 8 & 0xFF;
  EXPECT_GE(month, 1u);
  EXPECT_LE(month, 12u);
  EXPECT_EQ(strlen(build_time()), 8u);
  EXPECT_EQ(build_time()[2], ':');
  EXPECT_EQ(build_time()[5], ':');
}

}  // namespace
