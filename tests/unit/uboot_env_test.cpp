// The boot loader's environment in the flash of a virtual board.

#include "vboard/board/uboot_env.h"

#include "uboot_image.h"

#include <string.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace vboard;

namespace {

std::span<const unsigned char> bytes_of(const char *text) {
  return {reinterpret_cast<const unsigned char *>(text), strlen(text)};
}

std::vector<unsigned char> image_of(std::initializer_list<std::string_view> entries) {
  const std::string image = uboot_image(entries, 64);
  return {image.begin(), image.end()};
}

}  // namespace

TEST(UbootEnv, crc_is_that_of_ethernet) {
  EXPECT_EQ(crc32_of(bytes_of("123456789")), 0xCBF43926u);
  EXPECT_EQ(crc32_of({}), 0u);
  EXPECT_EQ(crc32_of(bytes_of("\xFF\xFF\xFF\xFF")), 0xFFFFFFFFu);  // bytes have no sign
}

TEST(UbootEnv, inspection_counts_variables_and_notices_a_wrong_bit) {
  std::vector<unsigned char> image = image_of({"a=1", "longer=value"});
  const UbootEnv env = inspect_uboot_env(image);
  EXPECT_TRUE(env.valid);
  EXPECT_EQ(env.variables, 2);
  EXPECT_EQ(env.used, 4u + 13u);
  image[40] ^= 1;
  EXPECT_FALSE(inspect_uboot_env(image).valid);
}

TEST(UbootEnv, variables_come_in_order) {
  std::vector<unsigned char> image = image_of({"one=1", "two=2"});
  std::size_t offset = 0;
  std::string_view entry;
  ASSERT_TRUE(next_uboot_variable(image, offset, entry));
  EXPECT_EQ(entry, "one=1");
  ASSERT_TRUE(next_uboot_variable(image, offset, entry));
  EXPECT_EQ(entry, "two=2");
  EXPECT_FALSE(next_uboot_variable(image, offset, entry));
}
