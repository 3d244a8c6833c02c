// The tables of settings: which values they take, what they say about them, and the defaults.

#include "vboard/board/firmware_part.h"
#include "vboard/board/settings.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <string.h>

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace vboard;

namespace {

using enum SettingKind;

constexpr Setting kTable[] = {
    {.key = "flag", .kind = kFlag, .otherwise = "1", .help = "a flag"},
    {.key = "number", .kind = kNumber, .otherwise = "5", .help = "", .least = -1, .most = 255},
    {.key = "size", .kind = kNumber, .otherwise = "16", .help = ""},
    {.key = "any", .kind = kNumber, .otherwise = "0", .help = "", .least = INT64_MIN},
    {.key = "rate", .kind = kDecimal, .otherwise = "1.0", .help = ""},
    {.key = "date", .kind = kDate, .otherwise = "", .help = ""},
    {.key = "word", .kind = kWord, .otherwise = "a", .help = "", .words = "a bc d"},
    {.key = "text", .kind = kText, .otherwise = "", .help = ""},
    {.key = "error", .kind = kErrno, .otherwise = "EINVAL", .help = ""},
    {.key = "medium", .kind = kMedium, .otherwise = "", .help = ""},
    {.key = "#.count", .kind = kNumber, .otherwise = "0", .help = ""},
    {.key = "block#", .kind = kText, .otherwise = "", .help = ""},
};

const Setting &row(std::string_view key) {
  const Setting *found = find_setting(kTable, key);
  EXPECT_NE(found, nullptr) << key;
  return found != nullptr ? *found : kTable[0];
}

Node node_of(const char *text) {
  Node node = {};
  node.length = strlen(text);
  memcpy(node.text, text, node.length);
  return node;
}

}  // namespace

TEST(Settings, a_number_is_in_the_place_of_the_mark) {
  EXPECT_STREQ(row("block0").key, "block#");
  EXPECT_STREQ(row("block63").key, "block#");
  EXPECT_STREQ(row("12.count").key, "#.count");
  for (const char *key : {"block", "blockx", "block1x", "xblock1", ".count", "a.count", "flags",
                          "fla", "", "0.counts"})
    EXPECT_EQ(find_setting(kTable, key), nullptr) << key;
}

TEST(Settings, take_the_values_of_their_kind) {
  struct Row {
    const char *key, *value;
    bool taken;
  };
  for (const Row &one : {Row{"flag", "0", true},
                         {"flag", "1", true},
                         {"flag", "2", false},
                         {"flag", "yes", false},
                         {"number", "-1", true},
                         {"number", "0xff", true},
                         {"number", "256", false},
                         {"number", "-2", false},
                         {"number", "1.5", false},
                         {"size", "0", true},
                         {"size", "-1", false},
                         {"any", "-9223372036854775808", true},
                         {"rate", "0", true},
                         {"rate", "0.5", true},
                         {"rate", "-0.5", false},
                         {"rate", "banana", false},
                         {"date", "2024-01-02 03:04:05", true},
                         {"date", "2024-01-02", false},
                         {"word", "a", true},
                         {"word", "bc", true},
                         {"word", "b", false},
                         {"word", "a bc", false},
                         {"text", "anything = else", true},
                         {"error", "EIO", true},
                         {"error", "ENOSUCH", false},
                         {"medium", "card.bin", true},
                         {"medium", "sub/card.bin", false},
                         {"medium", ".hidden", false}})
    EXPECT_EQ(takes_value(row(one.key), one.value), one.taken) << one.key << " = " << one.value;
  // An empty value is a missing one.
  for (const Setting &setting : kTable)
    EXPECT_TRUE(takes_value(setting, "")) << setting.key;
}

TEST(Settings, say_what_a_value_may_be) {
  struct Row {
    const char *key, *text;
  };
  for (const Row &one : {Row{"flag", "0 or 1"},
                         {"number", "a number from -1 to 255"},
                         {"size", "a number of at least 0"},
                         {"any", "a number"},
                         {"rate", "a number such as 1.5, not negative"},
                         {"date", "a date as YYYY-MM-DD hh:mm:ss"},
                         {"word", "one of: a bc d"},
                         {"text", "any text"},
                         {"error", "the name of an error, such as EIO"},
                         {"medium", "the name of a file in media/"}})
    EXPECT_STREQ(allowed_values(row(one.key)).c_str(), one.text);
}

TEST(Settings, count_as_their_default_when_missing_or_wrong) {
  const Node node = node_of("number = 7\nrate = banana\nword =\nerror = EIO\nblock3 = video\n");
  EXPECT_EQ(setting_of(node, row("number"), "number"), "7");
  EXPECT_EQ(setting_number_of(node, row("number"), "number"), 7);
  EXPECT_EQ(setting_of(node, row("rate"), "rate"), "1.0");
  EXPECT_EQ(setting_of(node, row("word"), "word"), "a");
  EXPECT_EQ(setting_of(node, row("block3"), "block3"), "video");
  EXPECT_EQ(setting_of(node, row("block4"), "block4"), "");
  EXPECT_EQ(setting_number_of(node, row("error"), "error"), EIO);
  EXPECT_EQ(setting_number_of(node, row("size"), "size"), 16);
  EXPECT_EQ(setting_number_of(node, row("text"), "text"), 0);
}

// A default that the row itself refuses would show as wrong wherever it is shown.
TEST(Settings, every_table_takes_its_defaults_and_names_each_key_once) {
  auto check = [](std::span<const Setting> table) {
    std::set<std::string> keys;
    for (const Setting &setting : table) {
      EXPECT_TRUE(takes_value(setting, setting.otherwise)) << setting.key;
      EXPECT_STRNE(setting.help, "") << setting.key;
      EXPECT_TRUE(keys.insert(setting.key).second) << setting.key;
      EXPECT_FALSE(allowed_values(setting).overflow) << setting.key;
    }
  };
  for (const Model *model : all_models())
    check(model->settings);
  check(common_settings());
  check(firmware_settings());
}
