// The boot-parameter counter, and the packed version words beside it.

#include "upgrade/boot_counter.h"
#include "upgrade/bsp_stamp.h"

#include <gtest/gtest.h>

#include <array>

namespace {

std::array<std::uint8_t, 256> filled_block() {
  std::array<std::uint8_t, 256> block;
  for (std::size_t i = 0; i < block.size(); ++i)
    block[i] = static_cast<std::uint8_t>(i * 7);
  return block;
}

TEST(BootCounter, is_byte_250_and_nothing_else) {
  std::array<std::uint8_t, 256> block = filled_block();
  std::array<std::uint8_t, 256> expected = filled_block();
  raise_boot_counter(block.data());
  expected[250] = static_cast<std::uint8_t>(expected[250] + 1);
  EXPECT_EQ(block, expected);
  lower_boot_counter(block.data());
  EXPECT_EQ(block, filled_block());
}

TEST(BootCounter, wraps_without_touching_its_neighbours) {
  std::array<std::uint8_t, 256> block = {};
  lower_boot_counter(block.data());
  EXPECT_EQ(block[250], 255);
  EXPECT_EQ(block[249], 0);
  EXPECT_EQ(block[251], 0);
  raise_boot_counter(block.data());
  EXPECT_EQ(block[250], 0);
}

TEST(BootCounter, is_back_after_256_steps) {
  std::array<std::uint8_t, 256> block = filled_block();
  for (int i = 0; i < 256; ++i)
    raise_boot_counter(block.data());
  EXPECT_EQ(block, filled_block());
}

TEST(BspStamp, unpacks_version_and_date) {
  const BspStamp stamp = decode_bsp_stamp(4 * 65536 + 19 * 256 + 81, 23 * 65536 + 12 * 256 + 18);
  EXPECT_EQ(stamp.major, 4);
  EXPECT_EQ(stamp.minor, 19);
  EXPECT_EQ(stamp.patch, 81);
  EXPECT_EQ(stamp.year, 2023);
  EXPECT_EQ(stamp.month, 12);
  EXPECT_EQ(stamp.day, 18);
}

TEST(BspStamp, keeps_major_and_year_beyond_one_byte) {
  const BspStamp stamp = decode_bsp_stamp(0xFFFFFFFF, 0x01000000 + 255 * 256 + 255);
  EXPECT_EQ(stamp.major, 65535);
  EXPECT_EQ(stamp.minor, 255);
  EXPECT_EQ(stamp.patch, 255);
  EXPECT_EQ(stamp.year, 2256);
  EXPECT_EQ(stamp.month, 255);
  EXPECT_EQ(stamp.day, 255);
}

TEST(BspStamp, shows_an_untold_date_as_zeros_of_2000) {
  const BspStamp stamp = decode_bsp_stamp(0, 0);
  EXPECT_EQ(stamp.year, 2000);
  EXPECT_EQ(stamp.month, 0);
  EXPECT_EQ(stamp.day, 0);
}

}  // namespace
