// The environment image that a new virtual board has in flash.

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vboard/board/uboot_env.h"

using namespace vboard;

namespace {

std::span<const unsigned char> bytes_of(const char *text) {
  return {reinterpret_cast<const unsigned char *>(text), std::strlen(text)};
}

}  // namespace

TEST(UbootEnv, crc_is_that_of_ethernet) {
  EXPECT_EQ(crc32_of(bytes_of("123456789")), 0xCBF43926u);
  EXPECT_EQ(crc32_of({}), 0u);
  EXPECT_EQ(crc32_of(bytes_of("\xFF\xFF\xFF\xFF")), 0xFFFFFFFFu);  // bytes have no sign
}

TEST(UbootEnv, image_is_crc_entries_and_zeroes) {
  std::vector<unsigned char> image(32, 0xEE);
  ASSERT_TRUE(build_uboot_env("# comment\n\na=1\nempty=\nb=x=y\n", image));
  const char expected[28] = "a=1\0empty=\0b=x=y\0";
  EXPECT_EQ(std::memcmp(image.data() + 4, expected, 28), 0);
  std::uint32_t crc = crc32_of(std::span<const unsigned char>(image).subspan(4));
  EXPECT_EQ(image[0], crc & 0xFF);
  EXPECT_EQ(image[3], crc >> 24);
}

TEST(UbootEnv, a_text_that_just_fits) {
  std::vector<unsigned char> image(4 + 4 + 1);  // checksum, entry with its end, empty entry
  EXPECT_TRUE(build_uboot_env("a=1", image));
  EXPECT_FALSE(build_uboot_env("a=12", image));
}

TEST(UbootEnv, lines_without_a_name_are_refused) {
  std::vector<unsigned char> image(64);
  EXPECT_FALSE(build_uboot_env("=1\n", image));
  EXPECT_FALSE(build_uboot_env("word\n", image));
}

TEST(UbootEnv, inspection_counts_variables_and_notices_a_wrong_bit) {
  std::vector<unsigned char> image(64);
  ASSERT_TRUE(build_uboot_env("a=1\nlonger=value\n", image));
  UbootEnv env = inspect_uboot_env(image);
  EXPECT_TRUE(env.valid);
  EXPECT_EQ(env.variables, 2);
  EXPECT_EQ(env.used, 4u + 13u);
  image[40] ^= 1;
  EXPECT_FALSE(inspect_uboot_env(image).valid);
}

TEST(UbootEnv, variables_come_in_order) {
  std::vector<unsigned char> image(64);
  ASSERT_TRUE(build_uboot_env("one=1\ntwo=2\n", image));
  std::size_t offset = 0;
  std::string_view entry;
  ASSERT_TRUE(next_uboot_variable(image, offset, entry));
  EXPECT_EQ(entry, "one=1");
  ASSERT_TRUE(next_uboot_variable(image, offset, entry));
  EXPECT_EQ(entry, "two=2");
  EXPECT_FALSE(next_uboot_variable(image, offset, entry));
}
