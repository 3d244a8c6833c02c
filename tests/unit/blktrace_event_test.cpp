// Lines of the block-trace log.

#include "storage/block_event.h"

#include <string.h>

#include <gtest/gtest.h>

#include <string>

namespace {

std::string process_name(const char *status) {
  char name[kProcessNameSize];
  parse_process_name(status, name);
  return name;
}

TEST(BlockEvent, process_name_is_the_second_word_of_the_first_line) {
  EXPECT_EQ(process_name("Name:\tjbd2/mmcblk0p2-\nUmask:\t0000\n"), "jbd2/mmcblk0p2-");
  EXPECT_EQ(process_name("Name:\tWeb Content\nState:\tS\n"), "Web");
  EXPECT_EQ(process_name("Name:\t\nUmask:\t0000\n"), "");
  EXPECT_EQ(process_name("Name:"), "");
  EXPECT_EQ(process_name("Name:\t\x80\x85\xA0\xFFz\n"), "\x80\x85\xA0\xFFz");  // none is a blank
  EXPECT_EQ(process_name(""), "");
  EXPECT_EQ(process_name(("Name: " + std::string(100, 'n')).c_str()), std::string(63, 'n'));
}

TEST(BlockEvent, action_letters) {
  const char *letters[] = {"",  "Q", "M", "F",  "G", "S", "R", "D",
                           "C", "P", "U", "UT", "I", "X", "B", "A"};
  for (std::uint32_t code = 0; code < 16; ++code) {
    EXPECT_STREQ(action_letters(code), letters[code]);
    EXPECT_STREQ(action_letters(code | 0xFFFF0000u), letters[code]);
    EXPECT_STREQ(action_letters(code | 0x0000FF00u), letters[code]);  // only the low byte counts
  }
  for (const std::uint32_t code : {16u, 17u, 0x21u, 0x41u, 0x81u, 0xFFu})
    EXPECT_STREQ(action_letters(code), "");
}

std::string kind(std::uint32_t action, std::uint32_t bytes) {
  char text[kRequestKindSize];
  request_kind(action, bytes, text);
  return text;
}

TEST(BlockEvent, request_kinds) {
  struct {
    std::uint32_t action;
    std::uint32_t bytes;
    const char *text;
  } const cases[] = {
      {0x00000000, 0, "N"},         {0x00000000, 4096, "R"},
      {0x00020000, 4096, "W"},      {0x00020000, 0, "W"},
      {0x20000000, 4096, "D"},      {0x20020000, 4096, "D"},  // discard before write
      {0x00040000, 0, "FN"},        {0x80000000, 512, "RF"},
      {0x08000000, 4096, "RA"},     {0x00080000, 4096, "RS"},
      {0x10000000, 4096, "RM"},     {0x800E0000, 4096, "FWFS"},
      {0xB80E0000, 4096, "FDFASM"}, {0x98080000, 512, "RFASM"},
      {0x00010000, 512, "R"},  // categories without a letter
  };
  for (const auto &one : cases)
    EXPECT_EQ(kind(one.action, one.bytes), one.text) << std::hex << one.action;
}

StorTraceEvent event() {
  StorTraceEvent one = {};
  one.time = 1234567890123;
  one.sector = 8388608;
  one.bytes = 4096;
  one.action = 0x800E0000 | 4;
  one.error = 0x1F;
  return one;
}

TEST(BlockEvent, line) {
  char line[kEventLineSize];
  const std::size_t size = format_event("mmcblk0", "jbd2", event(), line);
  const std::string expected =
      "mmcblk0             "
      "1234567890123       "
      "jbd2                "
      "G  "
      "8388608             "
      "8         "
      "FWFS            "
      "1f   "
      "\n";
  EXPECT_EQ(std::string(line, size), expected + '\0');
  EXPECT_EQ(size, 115u + 1);
}

TEST(BlockEvent, line_of_a_process_that_has_ended_and_an_unknown_action) {
  StorTraceEvent one = event();
  one.action = 0x10;
  one.bytes = 511;
  one.error = 0;
  char line[kEventLineSize];
  const std::size_t size = format_event("sda", "", one, line);
  EXPECT_EQ(std::string(line, size),
            std::string("sda                 1234567890123                              "
                        "8388608             0         R               0    \n") +
                '\0');
}

TEST(BlockEvent, largest_numbers) {
  StorTraceEvent one = {};
  one.time = UINT64_MAX;
  one.sector = UINT64_MAX;
  one.bytes = UINT32_MAX;
  one.action = 0x0B;
  one.error = 0xFFFF;
  char line[kEventLineSize];
  const std::size_t size = format_event("d", "p", one, line);
  EXPECT_EQ(std::string(line, size - 1),
            "d                   18446744073709551615p                   UT 18446744073709551615"
            "8388607   R               ffff \n");
}

TEST(BlockEvent, a_line_that_is_too_long_is_cut_and_still_ends_with_nul) {
  char line[kEventLineSize];
  const std::string device(300, 'd');
  const std::size_t size = format_event(device.c_str(), "p", event(), line);
  EXPECT_EQ(size, 256u);
  EXPECT_EQ(line[254], 'd');
  EXPECT_EQ(line[255], '\0');
}

}  // namespace
