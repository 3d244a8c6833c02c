// The hexadecimal dump: single rows, and whole blocks as the library prints them.

#include "platform/hexdump.h"

#include "platform/boot_blocks.h"

#include <string.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

std::string row(std::size_t offset, const std::string &bytes) {
  char text[rigcore::kHexdumpRowSize + 1];
  memset(text, '~', sizeof text);
  const std::size_t length = rigcore::hexdump_row(
      text, offset, reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size());
  EXPECT_EQ(text[rigcore::kHexdumpRowSize], '~') << "written beyond its room";
  return std::string(text, length);
}

TEST(Hexdump, full_row_has_offset_bytes_and_characters) {
  EXPECT_EQ(row(0x10, std::string("boot\0\x01\x1f !~\x7f\x80\xff"
                                  "abc",
                                  16)),
            "0010  62 6f 6f 74 00 01 1f 20  21 7e 7f 80 ff 61 62 63  |boot... !~...abc|\n");
}

TEST(Hexdump, short_row_keeps_the_place_of_the_characters) {
  EXPECT_EQ(row(0, "xyz"), "0000  78 79 7a                                          |xyz|\n");
}

TEST(Hexdump, offset_grows_to_eight_digits) {
  EXPECT_EQ(row(0xFFF0, "x").substr(0, 8), "fff0  78");
  EXPECT_EQ(row(0x10000, "x").substr(0, 12), "00010000  78");
  EXPECT_EQ(row(0x10000, std::string(16, 'x')).size(), rigcore::kHexdumpRowSize);
}

std::string printed(const std::string &bytes, int size) {
  testing::internal::CaptureStdout();
  rig_bytes_print(bytes.data(), size);
  return testing::internal::GetCapturedStdout();
}

TEST(Hexdump, prints_a_block_in_16_rows) {
  std::string block(256, '\0');
  block[250] = 7;
  std::string expected;
  for (int i = 0; i < 15; ++i)
    expected += "00" + std::string(1, "0123456789abcdef"[i]) +
                "0  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  |................|\n";
  expected += "00f0  00 00 00 00 00 00 00 00  00 00 07 00 00 00 00 00  |................|\n";
  EXPECT_EQ(printed(block, 256), expected);
}

TEST(Hexdump, prints_more_than_a_block_and_a_rest) {
  const std::string text = printed(std::string(256 * 3 + 1, 'a'), 256 * 3 + 1);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 49);
  EXPECT_EQ(text.substr(text.rfind("0300")),
            "0300  61                                                |a|\n");
}

TEST(Hexdump, prints_nothing_for_no_bytes) {
  EXPECT_EQ(printed("", 0), "");
  EXPECT_EQ(printed("", -1), "");
}

}  // namespace
