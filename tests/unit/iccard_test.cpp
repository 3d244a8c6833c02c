// The IC card test's usage, verdicts and block comparison; nothing here needs a card.

#include "app/build_stamp.h"
#include "board/board.h"
#include "board/iccard.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

std::string verdict(int unplugged, int plugged) {
  testing::internal::CaptureStdout();
  print_hotplug_verdict(unplugged, plugged);
  return testing::internal::GetCapturedStdout();
}

TEST(IcCard, hotplug_passes_only_with_ten_removals_and_ten_insertions) {
  EXPECT_EQ(verdict(10, 10), "*********iccard  hotplug test pass(10)\xEF\xBC\x81*********\n");
  EXPECT_EQ(verdict(10, 9),
            "*********iccard  hotplug test fail\xEF\xBC\x81unplug(10) plug(9) *********\n");
  EXPECT_EQ(verdict(9, 10),
            "*********iccard  hotplug test fail\xEF\xBC\x81unplug(9) plug(10) *********\n");
  EXPECT_EQ(verdict(0, 0),
            "*********iccard  hotplug test fail\xEF\xBC\x81unplug(0) plug(0) *********\n");
}

TEST(IcCard, finds_the_first_of_several_differences) {
  std::array<std::uint8_t, 256> written = {};
  std::array<std::uint8_t, 256> read = {};
  EXPECT_EQ(find_difference(read, written), -1);
  read[255] = 1;
  EXPECT_EQ(find_difference(read, written), 255);
  written[7] = 0xFF;
  EXPECT_EQ(find_difference(read, written), 7);
  read[0] = 0x80;
  EXPECT_EQ(find_difference(read, written), 0);
}

TEST(IcCard, no_argument_prints_the_usage_under_the_applets_own_name) {
  char name[] = "iccard";
  char *argv[] = {name, nullptr};
  testing::internal::CaptureStdout();
  EXPECT_EQ(iccard_main(1, argv), -1);
  const std::string stamp = std::string(build_date()) + "-" + build_time();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\n"
            "------KORVEXIUM iccard test tools:\t------\n"
            "------BUILD: " +
                stamp +
                "  ------\n"
                "\n"
                "1. iccard -h          : print this info.\n"
                "2. iccard -r          : get the iccard data\n"
                "3. iccard -w          : set the iccard data\n"
                "4. iccard -c          : iccard register test\n"
                "5. iccard autotest    : iccard autotest\n");
}

}  // namespace
