// Characters from 0x80 on, which a plain char holds as negative numbers on a PC and as positive
// ones on the board: texts pass through whole, and are neither blanks nor digits on either.

#include "common/numbers.h"
#include "platform/board_conf.h"
#include "platform/os_release.h"
#include "vboard/board/node.h"
#include "vboard/base/text.h"

#include <string.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

namespace {

// Every such character once, but for none that ends a text.
std::string high_characters() {
  std::string text;
  for (int value = 0x80; value <= 0xFF; ++value)
    text += static_cast<char>(value);
  return text;
}

TEST(CharSign, values_of_the_boards_map_keep_high_characters) {
  auto map = std::make_unique<rigcore::BoardMap>();
  const std::string line = "buzzer = " + high_characters() + " \n";
  map->error = 0;
  map->length = line.size();
  memcpy(map->text, line.data(), line.size());
  char value[rigcore::kEntrySize] = "";
  ASSERT_EQ(rigcore::map_entry(*map, "buzzer", value, sizeof value), 0);
  EXPECT_EQ(value, high_characters());
}

TEST(CharSign, assignments_keep_high_characters_quoted_or_not) {
  for (const char *quote : {"", "\"", "'"}) {
    const std::string text = std::string("NAME=") + quote + high_characters() + quote + "\n";
    char value[256] = "";
    ASSERT_TRUE(rigcore::find_assignment(text, "NAME", value, sizeof value));
    EXPECT_EQ(value, high_characters());
  }
}

TEST(CharSign, no_high_character_is_a_digit_a_sign_or_a_blank_of_a_number) {
  for (int value = 0x80; value <= 0xFF; ++value) {
    const char text[] = {static_cast<char>(value), '1', '\0'};
    EXPECT_EQ(parse_decimal(text), 0) << value;
    EXPECT_EQ(parse_u32(text, 0), 0u) << value;
    std::uint32_t scanned = 7;
    EXPECT_FALSE(scan_u32(text, 16, scanned)) << value;
    EXPECT_EQ(scanned, 7u) << value;
    const char behind[] = {'7', static_cast<char>(value), '1', '\0'};
    EXPECT_EQ(parse_decimal(behind), 7) << value;
    EXPECT_EQ(parse_u32(behind, 16), 7u) << value;
  }
}

TEST(CharSign, words_and_lines_of_the_virtual_board_keep_high_characters) {
  const std::string high = high_characters();
  EXPECT_EQ(vboard::trimmed(" " + high + "\t"), high);
  std::string_view rest = high;
  EXPECT_EQ(vboard::take_word(rest), high);
  EXPECT_EQ(rest, "");
  std::int64_t number = 0;
  EXPECT_FALSE(vboard::parse_number("\xB2", number));
  EXPECT_FALSE(vboard::parse_number("1\xB2", number));
}

TEST(CharSign, settings_of_a_node_keep_high_characters) {
  vboard::Node node;
  node.length = 0;
  ASSERT_TRUE(vboard::set_node_text(node, "identity", high_characters()));
  EXPECT_EQ(vboard::node_text(node, "identity"), high_characters());
}

}  // namespace
