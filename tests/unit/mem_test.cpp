// Physical memory: spans of pages in 32 bits, the dump's line, and mappings of a file that stands
// in for the device.

#include "common/numbers.h"
#include "debug/memory_dump.h"
#include "debug/physical_memory.h"

#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr std::uint32_t kPage = 0x1000;

// Spans.

struct SpanCase {
  std::uint32_t address;
  std::uint64_t size;
  std::uint32_t base;
  std::uint32_t offset;
  std::uint64_t length;
};

TEST(PhysicalSpan, begins_at_the_page_and_ends_with_the_request) {
  const SpanCase cases[] = {
      {0x2000, 0x100, 0x2000, 0, 0x100},
      {0x2004, 4, 0x2000, 4, 8},
      {0x2FFC, 8, 0x2000, 0xFFC, 0x1004},
      {0x2000, 0, 0x2000, 0, 0},
      {0x2010, 0, 0x2000, 0x10, 0x10},
      {0, 0xFFFFFFFF, 0, 0, 0xFFFFFFFF},
      {0x80000000, 0x80000000, 0x80000000, 0, 0x80000000},
      {0xFFFFFFFC, 4, 0xFFFFF000, 0xFFC, 0x1000},
      {0xFFFFF000, 0x1000, 0xFFFFF000, 0, 0x1000},
  };
  for (const SpanCase &row : cases) {
    PhysicalSpan span = {};
    ASSERT_TRUE(find_span(row.address, row.size, kPage, span)) << row.address;
    EXPECT_EQ(span.base, row.base) << row.address;
    EXPECT_EQ(span.offset, row.offset) << row.address;
    EXPECT_EQ(span.length, row.length) << row.address;
  }
}

TEST(PhysicalSpan, never_reaches_beyond_the_last_address) {
  PhysicalSpan span = {.base = 1, .offset = 2, .length = 3};
  EXPECT_FALSE(find_span(0xFFFFFFFC, 8, kPage, span));
  EXPECT_FALSE(find_span(0x2004, 0xFFFFFFFF, kPage, span));
  EXPECT_FALSE(find_span(4, 0xFFFFFFFD, kPage, span));
  EXPECT_EQ(span.base, 1u) << "untouched";
}

TEST(PhysicalSpan, follows_the_size_of_the_page) {
  PhysicalSpan span = {};
  ASSERT_TRUE(find_span(0x1234C, 4, 0x10000, span));
  EXPECT_EQ(span.base, 0x10000u);
  EXPECT_EQ(span.offset, 0x234Cu);
}

TEST(PhysicalSpan, clips_what_is_wanted_to_what_there_is) {
  EXPECT_EQ(clip_to_address_space(0x2000, 256), 256u);
  EXPECT_EQ(clip_to_address_space(0xFFFFFF00, 256), 256u);
  EXPECT_EQ(clip_to_address_space(0xFFFFFF04, 256), 252u);
  EXPECT_EQ(clip_to_address_space(0xFFFFFFFC, 256), 4u);
  EXPECT_EQ(clip_to_address_space(0, 0x200000000), 0x100000000u);
}

TEST(PhysicalSpan, rounds_up_to_whole_rows) {
  EXPECT_EQ(round_up(0, 16), 0u);
  EXPECT_EQ(round_up(1, 16), 16u);
  EXPECT_EQ(round_up(16, 16), 16u);
  EXPECT_EQ(round_up(0x11, 16), 32u);
  EXPECT_EQ(round_up(0xFFFFFFFF, 16), 0x100000000u);
}

TEST(Bit, is_set_and_cleared) {
  EXPECT_EQ(with_bit(0, 0, 1), 1u);
  EXPECT_EQ(with_bit(0, 31, 1), 0x80000000u);
  EXPECT_EQ(with_bit(0xFFFFFFFF, 3, 0), 0xFFFFFFF7u);
  EXPECT_EQ(with_bit(8, 3, 1), 8u);
}

TEST(Bit, above_31_changes_nothing) {
  for (const std::uint32_t bit : {32u, 33u, 64u, 0xFFFFFFFFu}) {
    EXPECT_EQ(with_bit(0x12345678, bit, 1), 0x12345678u) << bit;
    EXPECT_EQ(with_bit(0x12345678, bit, 0), 0x12345678u) << bit;
  }
}

// Arguments.

std::uint32_t hex(const char *text) {
  std::uint32_t value = 0xDEF;  // the default
  scan_u32(text, 16, value);
  return value;
}

TEST(HexArgument, is_read_with_and_without_prefix) {
  EXPECT_EQ(hex("2000"), 0x2000u);
  EXPECT_EQ(hex("0x2000"), 0x2000u);
  EXPECT_EQ(hex("0XaBcD"), 0xABCDu);
  EXPECT_EQ(hex("  10"), 0x10u);
  EXPECT_EQ(hex("10zz"), 0x10u);
  EXPECT_EQ(hex("010"), 0x10u) << "never octal";
}

TEST(HexArgument, has_32_bits) {
  EXPECT_EQ(hex("ffffffff"), 0xFFFFFFFFu);
  EXPECT_EQ(hex("100000000"), 0xFFFFFFFFu);
  EXPECT_EQ(hex("ffffffffffffffffffff"), 0xFFFFFFFFu);
  EXPECT_EQ(hex("-1"), 0xFFFFFFFFu);
  EXPECT_EQ(hex("-10"), 0xFFFFFFF0u);
}

TEST(HexArgument, that_is_no_number_leaves_the_default) {
  for (const char *text : {"", " ", "word", "-", "+", ",1", "zz"})
    EXPECT_EQ(hex(text), 0xDEFu) << text;
  EXPECT_EQ(hex(nullptr), 0xDEFu);
}

TEST(DecimalArgument, ends_at_what_is_no_decimal_digit) {
  std::uint32_t value = 7;
  EXPECT_TRUE(scan_u32("0x3", 10, value));
  EXPECT_EQ(value, 0u);
  EXPECT_TRUE(scan_u32("31abc", 10, value));
  EXPECT_EQ(value, 31u);
  EXPECT_FALSE(scan_u32("bit", 10, value));
  EXPECT_EQ(value, 31u);
}

// The dump's line.

DumpWords words_of(const char (&text)[17]) {
  DumpWords words;
  memcpy(words.data(), text, 16);
  return words;
}

std::string line_of(std::uint32_t address, const DumpWords &words) {
  DumpLine line;
  memset(line.data(), '#', line.size());
  compose_dump_line(line, address, words);
  return line.data();
}

TEST(DumpLine, shows_address_words_and_characters) {
  EXPECT_EQ(line_of(0x2000, words_of("abcdefghijklmnop")),
            "2000 : 64636261 68676665 6C6B6A69 706F6E6D  abcdefghijklmnop");
}

TEST(DumpLine, has_lower_case_addresses_and_upper_case_words) {
  EXPECT_EQ(line_of(0xabc0, {0xABCDEF, 0, 0xDEADBEEF, 1}).substr(0, 42),
            "abc0 : 00ABCDEF 00000000 DEADBEEF 00000001");
}

TEST(DumpLine, shows_characters_from_the_blank_to_del) {
  EXPECT_EQ(line_of(0x10, {0x7F7E201F, 0x80FF000A, 0x41414141, 0x42424242}).substr(42),
            std::string(". ~\x7F") + "...." + "AAAABBBB");
}

TEST(DumpLine, keeps_16_characters_with_up_to_7_digits) {
  for (const std::uint32_t address : {0u, 0x2000u, 0xFFFFFF0u}) {
    const std::string line = line_of(address, words_of("abcdefghijklmnop"));
    EXPECT_EQ(line.substr(line.size() - 16), "abcdefghijklmnop") << address;
  }
}

TEST(DumpLine, loses_the_last_character_with_8_digits) {
  const std::string line = line_of(0x17000000, words_of("abcdefghijklmnop"));
  EXPECT_EQ(line, "17000000 : 64636261 68676665 6C6B6A69 706F6E6D  abcdefghijklmno");
  EXPECT_EQ(line.size(), 63u);
}

// Mappings.

// Four pages and no more: touching a fifth is a SIGBUS, which ends the tests.
class Memory : public testing::Test {
 protected:
  void SetUp() override {
    page_ = static_cast<std::uint32_t>(sysconf(_SC_PAGESIZE));
    device_ = memfd_create("memory", 0);
    ASSERT_GE(device_, 0);
    ASSERT_EQ(ftruncate(device_, 4 * page_), 0);
  }
  void TearDown() override {
    close(device_);
  }
  std::uint32_t page_ = 0;
  int device_ = -1;
};

TEST_F(Memory, region_is_the_device_s_own_bytes) {
  Mapping mapping;
  ASSERT_TRUE(map_region(device_, page_ + 0x10, 8, mapping));
  EXPECT_EQ(mapping.region, mapping.start + 0x10);
  EXPECT_EQ(mapping.length, 0x18u);
  EXPECT_EQ(mapping.asked, 0x18u);
  EXPECT_EQ(mapping.readable, page_ - 0x10);
  memcpy(mapping.region, "physical", 8);
  EXPECT_EQ(mem_unmap(mapping), 0);
  char found[9] = "";
  EXPECT_EQ(pread(device_, found, 8, page_ + 0x10), 8);
  EXPECT_STREQ(found, "physical");
}

TEST_F(Memory, region_may_straddle_pages) {
  Mapping mapping;
  ASSERT_TRUE(map_region(device_, page_ - 4, 8, mapping));
  EXPECT_EQ(mapping.length, page_ + 4);
  memset(mapping.region, 0x5A, 8);
  mem_unmap(mapping);
  unsigned char found[10];
  EXPECT_EQ(pread(device_, found, sizeof found, page_ - 5), 10);
  EXPECT_EQ(memcmp(found, "\0\x5A\x5A\x5A\x5A\x5A\x5A\x5A\x5A\0", 10), 0);
}

TEST_F(Memory, nothing_at_a_page_s_start_maps_the_page) {
  Mapping mapping;
  ASSERT_TRUE(map_region(device_, page_, 0, mapping));
  EXPECT_EQ(mapping.asked, 0u);
  EXPECT_EQ(mapping.length, page_);
  EXPECT_EQ(mem_unmap(mapping), 0);
}

TEST_F(Memory, nothing_within_a_page_maps_up_to_there) {
  Mapping mapping;
  ASSERT_TRUE(map_region(device_, page_ + 16, 0, mapping));
  EXPECT_EQ(mapping.length, 16u);
  mem_unmap(mapping);
}

TEST_F(Memory, rows_map_what_was_asked_while_the_last_row_ends_in_its_page) {
  Mapping mapping;
  ASSERT_TRUE(map_rows(device_, page_, 0x11, mapping));
  EXPECT_EQ(mapping.length, 0x11u);
  EXPECT_GE(mapping.readable, 0x20u);
  mem_unmap(mapping);
  ASSERT_TRUE(map_rows(device_, 2 * page_ - 0x10, 1, mapping));
  EXPECT_EQ(mapping.length, page_ - 0xF);
  mem_unmap(mapping);
}

TEST_F(Memory, rows_map_the_next_page_for_the_end_of_the_last_row) {
  Mapping mapping;
  ASSERT_TRUE(map_rows(device_, 2 * page_ - 4, 4, mapping));
  EXPECT_EQ(mapping.asked, page_) << "what was asked for";
  EXPECT_EQ(mapping.length, page_ + 12);
  EXPECT_EQ(mapping.readable, page_ + 4);
  EXPECT_EQ(mapping.region[15], 0);
  mem_unmap(mapping);
}

TEST_F(Memory, word_maps_256_bytes) {
  Mapping mapping;
  ASSERT_TRUE(map_word(device_, page_ + 4, mapping));
  EXPECT_EQ(mapping.length, 260u);
  mem_unmap(mapping);
}

TEST_F(Memory, last_word_of_all_can_be_mapped) {
  Mapping mapping;
  ASSERT_TRUE(map_word(device_, 0xFFFFFFFC, mapping));
  EXPECT_EQ(mapping.length, page_) << "and not what lies behind it";
  mem_unmap(mapping);
  ASSERT_TRUE(map_rows(device_, 0xFFFFFFFC, 4, mapping));
  EXPECT_EQ(mapping.length, page_);
  EXPECT_EQ(mapping.readable, 4u);
  mem_unmap(mapping);
}

TEST_F(Memory, region_beyond_the_last_address_is_refused) {
  Mapping mapping;
  EXPECT_FALSE(map_region(device_, 0xFFFFFFF8, 16, mapping));
  EXPECT_FALSE(map_rows(device_, 0xFFFFFFFC, 8, mapping));
}

TEST_F(Memory, what_the_kernel_refuses_is_refused) {
  Mapping mapping;
  EXPECT_FALSE(map_region(-1, 0x2000, 16, mapping));
  EXPECT_FALSE(map_word(-1, 0x2000, mapping));
  EXPECT_FALSE(map_rows(-1, 0x2000, 16, mapping));
}

}  // namespace
