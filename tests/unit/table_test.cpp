// Tables of the virtual board: finding, changing and checking rows, and files that many change.

#include "vboard/board/table.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace vboard {
namespace {

using enum SettingKind;

constexpr Setting kPins[] = {
    {.key = "pin", .kind = kNumber, .otherwise = "", .help = "", .most = 511},
    {.key = "direction", .kind = kWord, .otherwise = "", .help = "", .words = "in out"},
    {.key = "level", .kind = kFlag, .otherwise = "", .help = ""},
    {.key = "label", .kind = kText, .otherwise = "", .help = ""},
};
constexpr TableLayout kPinTable = {.keys = 1, .needed = 2, .columns = kPins};

constexpr Setting kRegisters[] = {
    {.key = "phy", .kind = kText, .otherwise = "", .help = ""},
    {.key = "register", .kind = kNumber, .otherwise = "", .help = "", .most = 0xFFFF},
    {.key = "value", .kind = kNumber, .otherwise = "", .help = "", .most = 0xFFFF},
};
constexpr TableLayout kRegisterTable = {.keys = 2, .needed = 3, .columns = kRegisters};

// A table that begins with a text.
struct Held {
  explicit Held(const std::string &text) : table() {
    table.text = static_cast<char *>(malloc(text.size() + 1));
    text.copy(table.text, text.size());
    table.text[text.size()] = '\0';
    table.length = text.size();
  }
  ~Held() {
    free_table(table);
  }
  Held(const Held &) = delete;
  Held &operator=(const Held &) = delete;

  std::string text() const {
    return std::string(table.text, table.length);
  }
  // The words and line of the row; "none" without one.
  std::string find(std::string_view key, const TableLayout &layout = kPinTable) const {
    TableRow row;
    if (!find_row(table, layout, key, row))
      return "none";
    return std::to_string(row.line) + ": " + std::string(row.words);
  }
  std::string rows(const TableLayout &layout = kPinTable) const {
    std::string all;
    for (TableRow row = {}; next_row(table, layout, row);)
      all += std::to_string(row.line) + ":" + std::string(row.words) + "|";
    return all;
  }
  std::vector<std::string> faults(const TableLayout &layout = kPinTable) const {
    std::vector<std::string> all;
    check_table(
        table, layout,
        [](std::size_t line, std::string_view fault, void *context) {
          static_cast<std::vector<std::string> *>(context)->push_back(std::to_string(line) + ": " +
                                                                      std::string(fault));
        },
        &all);
    return all;
  }

  Table table;
};

class TableFile : public testing::Test {
 protected:
  void SetUp() override {
    directory = testing::TempDir() + "table_test.XXXXXX";
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    file = directory + "/pins";
  }
  void TearDown() override {
    std::filesystem::remove_all(directory);
  }
  void write(const std::string &text) const {
    std::ofstream(file, std::ios::binary) << text;
  }
  std::string read() const {
    const std::ifstream in(file, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
  }
  bool is_there() const {
    return std::filesystem::exists(file);
  }
  std::size_t files() const {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator(directory))
      ++count;
    return count;
  }

  std::string directory, file;
};

constexpr char kSample[] =
    "# the pins\n"
    "\n"
    "4 out 1\n"
    "  \t5\tin    0   button   # the red one\n"
    "   # 6 out 1\n"
    "0x10 out";

}  // namespace

TEST(Table, rows_are_visited_in_order_without_comments_and_blank_lines) {
  EXPECT_EQ(Held(kSample).rows(), "3:4 out 1|4:5\tin    0   button|6:0x10 out|");
  EXPECT_EQ(Held("").rows(), "");
  EXPECT_EQ(Held("\n\n#\n").rows(), "");
  EXPECT_EQ(Held("4 out\r\n5 in\r\n").rows(), "1:4 out|2:5 in|");
  Table none = {};
  TableRow row = {};
  EXPECT_FALSE(next_row(none, kPinTable, row));
}

TEST(Table, words_and_numbers_of_a_row) {
  const Held held(kSample);
  TableRow row;
  ASSERT_TRUE(find_row(held.table, kPinTable, "5", row));
  EXPECT_EQ(row.line, 4u);
  EXPECT_EQ(row_word(row, 0), "5");
  EXPECT_EQ(row_word(row, 1), "in");
  EXPECT_EQ(row_word(row, 3), "button");
  EXPECT_EQ(row_word(row, 4), "");
  EXPECT_EQ(row_number(row, 2, 7), 0);
  EXPECT_EQ(row_number(row, 3, 7), 7);
  EXPECT_EQ(row_number(row, 4, -1), -1);
}

TEST(Table, a_row_is_found_by_its_whole_key) {
  const Held held("12 in\n1 out\n123 in 1\n");
  EXPECT_EQ(held.find("1"), "2: 1 out");
  EXPECT_EQ(held.find("12"), "1: 12 in");
  EXPECT_EQ(held.find("123"), "3: 123 in 1");
  EXPECT_EQ(held.find("2"), "none");
  EXPECT_EQ(held.find(""), "none");
  EXPECT_EQ(held.find("1 out"), "none");
}

TEST(Table, number_keys_are_compared_as_numbers_and_others_as_texts) {
  EXPECT_EQ(Held(kSample).find("16"), "6: 0x10 out");
  const Held held("phy0 0x1f 0x100\nphy01 31 2\nphy0 0x1 3\n0x1 1 4\n");
  EXPECT_EQ(held.find("phy0 31", kRegisterTable), "1: phy0 0x1f 0x100");
  EXPECT_EQ(held.find("  phy0\t1 ", kRegisterTable), "3: phy0 0x1 3");
  EXPECT_EQ(held.find("phy01 0x1F", kRegisterTable), "2: phy01 31 2");
  EXPECT_EQ(held.find("1 1", kRegisterTable), "none");
  EXPECT_EQ(held.find("phy0", kRegisterTable), "none");
  EXPECT_EQ(held.find("phy", kRegisterTable), "none");
}

TEST(Table, the_first_of_several_rows_counts) {
  EXPECT_EQ(Held("4 out 0\n4 out 1\n").find("4"), "1: 4 out 0");
}

TEST(Table, malformed_rows_are_skipped) {
  const Held held("4\n4 sideways\n4 out 2\n4 out 1 a b\n512 in\n4 in 0 a\n");
  EXPECT_EQ(held.find("4"), "6: 4 in 0 a");
  EXPECT_EQ(held.rows(), "6:4 in 0 a|");
}

TEST(Table, a_check_reports_each_malformed_row_with_its_line) {
  const Held held("# pins\n4\n\n5 sideways\n512 in\n6 out 1 a b # c\n7 in 0 # fine\n");
  EXPECT_EQ(held.faults(),
            (std::vector<std::string>{
                "2: too few words; a row is: pin direction level label",
                "4: direction: \"sideways\" is not allowed; it may be one of: in out",
                "5: pin: \"512\" is not allowed; it may be a number from 0 to 511",
                "6: too many words; a row is: pin direction level label"}));
  EXPECT_TRUE(Held(kSample).faults().empty());
  EXPECT_TRUE(Held("").faults().empty());
}

TEST(Table, a_check_cuts_a_long_word) {
  const Held held("4 " + std::string(300, 'x') + "\n");
  EXPECT_EQ(held.faults(), std::vector<std::string>{"1: direction: \"" + std::string(100, 'x') +
                                                    "\" is not allowed; it may be one of: in out"});
}

TEST(Table, a_check_reports_keys_that_come_twice) {
  EXPECT_EQ(
      Held("16 in\n1 in\n6 in\n0x10 out\n1 in\n1 out\n").faults(),
      (std::vector<std::string>{"4: line 1 has this key already", "5: line 2 has this key already",
                                "6: line 2 has this key already"}));
  // A malformed row has no key.
  EXPECT_EQ(Held("4\n4 in\n").faults().size(), 1u);
  EXPECT_EQ(Held("a 1 1\na 01 2\nb 1 3\n1 1 4\n0x1 1 5\n").faults(kRegisterTable),
            std::vector<std::string>{"2: line 1 has this key already"});
}

TEST(Table, one_cell_changes_and_the_rest_stays) {
  Held held(kSample);
  EXPECT_EQ(set_cell(held.table, kPinTable, "5", 2, "1"), 0);
  EXPECT_EQ(set_cell(held.table, kPinTable, "5", 3, "a-longer-name"), 0);
  EXPECT_EQ(set_cell(held.table, kPinTable, "16", 1, "in"), 0);
  EXPECT_EQ(held.text(),
            "# the pins\n"
            "\n"
            "4 out 1\n"
            "  \t5\tin    1   a-longer-name   # the red one\n"
            "   # 6 out 1\n"
            "0x10 in");
}

TEST(Table, a_cell_may_be_added_after_the_last_word) {
  Held held("4 out # led\n5 in\r\n6 in");
  EXPECT_EQ(set_cell(held.table, kPinTable, "4", 2, "1"), 0);
  EXPECT_EQ(set_cell(held.table, kPinTable, "5", 2, "0"), 0);
  EXPECT_EQ(set_cell(held.table, kPinTable, "6", 2, "0"), 0);
  EXPECT_EQ(held.text(), "4 out 1 # led\n5 in 0\r\n6 in 0");
  EXPECT_EQ(set_cell(held.table, kPinTable, "6", 3, "name"), 0);
  EXPECT_EQ(set_cell(held.table, kPinTable, "6", 4, "more"), -EINVAL);
}

TEST(Table, a_cell_that_would_spoil_its_row_is_refused) {
  Held held(kSample);
  EXPECT_EQ(set_cell(held.table, kPinTable, "9", 1, "in"), -ENOENT);
  EXPECT_EQ(set_cell(held.table, kPinTable, "4", 0, "5"), -EINVAL);
  EXPECT_EQ(set_cell(held.table, kPinTable, "16", 3, "name"), -EINVAL);
  for (const char *value : {"", "2", " 1", "1 ", "#", "#1"})
    EXPECT_EQ(set_cell(held.table, kPinTable, "4", 2, value), -EINVAL) << value;
  for (const char *value : {"", "a b", "a\tb", "a\nb", "a\n", "#a"})
    EXPECT_EQ(set_cell(held.table, kPinTable, "5", 3, value), -EINVAL) << value;
  EXPECT_EQ(set_cell(held.table, kPinTable, "5", 3, "a#b"), 0);
  EXPECT_EQ(set_cell(held.table, kPinTable, "5", 3, "button"), 0);
  EXPECT_EQ(held.text(), kSample);
}

TEST(Table, rows_are_added_at_the_end) {
  Held held(kSample);
  EXPECT_EQ(append_row(held.table, kPinTable, "7 in"), 0);
  EXPECT_EQ(append_row(held.table, kPinTable, "8  out 1 # new"), 0);
  EXPECT_EQ(held.text(), std::string(kSample) + "\n7 in\n8  out 1 # new\n");
  EXPECT_EQ(held.find("8"), "8: 8  out 1");
  Held empty("");
  EXPECT_EQ(append_row(empty.table, kPinTable, "7 in"), 0);
  EXPECT_EQ(empty.text(), "7 in\n");
  Table none = {};
  EXPECT_EQ(append_row(none, kPinTable, "7 in"), 0);
  EXPECT_STREQ(none.text, "7 in\n");
  free_table(none);
  EXPECT_EQ(none.text, nullptr);
  EXPECT_EQ(none.length, 0u);
}

TEST(Table, rows_that_are_none_are_not_added) {
  Held held(kSample);
  for (const char *words : {"", "  ", "# 7 in", "7", "7 # in", "7 up", "7 in 0 a b", "7 in\n8 in",
                            "7 in\n", "7 in 0 a\nb"})
    EXPECT_EQ(append_row(held.table, kPinTable, words), -EINVAL) << words;
  EXPECT_EQ(append_row(held.table, kPinTable, "0x4 in"), -EEXIST);
  EXPECT_EQ(append_row(held.table, kPinTable, "7 in 0 " + std::string(8192, 'x')), -E2BIG);
  EXPECT_EQ(held.text(), kSample);
}

TEST(Table, a_row_is_removed_with_its_line) {
  Held held(kSample);
  EXPECT_EQ(remove_row(held.table, kPinTable, "5"), 0);
  EXPECT_EQ(held.text(), "# the pins\n\n4 out 1\n   # 6 out 1\n0x10 out");
  EXPECT_EQ(remove_row(held.table, kPinTable, "5"), -ENOENT);
  EXPECT_EQ(remove_row(held.table, kPinTable, "16"), 0);
  EXPECT_EQ(held.text(), "# the pins\n\n4 out 1\n   # 6 out 1\n");
  Held first("4 in\n5 in\n");
  EXPECT_EQ(remove_row(first.table, kPinTable, "4"), 0);
  EXPECT_EQ(first.text(), "5 in\n");
  EXPECT_EQ(remove_row(first.table, kPinTable, "5"), 0);
  EXPECT_EQ(first.text(), "");
}

TEST(Table, a_table_grows_up_to_one_mebibyte) {
  const std::string filler(kTableSize - 8, '#');
  Held held(filler + "\n4 in\n");  // two bytes are left
  EXPECT_EQ(set_cell(held.table, kPinTable, "4", 2, "1"), 0);
  EXPECT_EQ(held.table.length, kTableSize);
  EXPECT_EQ(set_cell(held.table, kPinTable, "4", 1, "out"), -E2BIG);
  EXPECT_EQ(append_row(held.table, kPinTable, "5 in"), -E2BIG);
  EXPECT_EQ(held.text(), filler + "\n4 in 1\n");
}

TEST_F(TableFile, is_read_as_a_whole_however_large_it_is) {
  std::string text;
  for (int phy = 0; phy < 64; ++phy) {
    for (int number = 0; number < 512; ++number)
      text += "phy" + std::to_string(phy) + " " + std::to_string(number) + " 0x1\n";
  }
  ASSERT_GT(text.size(), 400'000u);
  write(text);
  Table table;
  ASSERT_EQ(load_table(file.c_str(), table), 0);
  EXPECT_EQ(std::string(table.text, table.length), text);
  TableRow row;
  EXPECT_TRUE(find_row(table, kRegisterTable, "phy63 511", row));
  EXPECT_EQ(row.line, 64u * 512);
  std::size_t faults = 0;
  check_table(
      table, kRegisterTable,
      [](std::size_t, std::string_view, void *context) { ++*static_cast<std::size_t *>(context); },
      &faults);
  EXPECT_EQ(faults, 0u);
  free_table(table);
}

TEST_F(TableFile, has_one_mebibyte_at_most) {
  write(std::string(kTableSize, '#'));
  Table table = {};
  ASSERT_EQ(load_table(file.c_str(), table), 0);
  EXPECT_EQ(table.length, kTableSize);
  free_table(table);
  write(std::string(kTableSize + 1, '#'));
  table = {nullptr, 7};
  EXPECT_EQ(load_table(file.c_str(), table), -E2BIG);
  EXPECT_EQ(table.length, 7u);
  EXPECT_EQ(load_table((file + "x").c_str(), table), -ENOENT);
  EXPECT_EQ(update_table(
                file.c_str(), [](Table &, void *) { return 0; }, nullptr),
            -E2BIG);
}

TEST_F(TableFile, is_replaced_as_a_whole) {
  write(kSample);
  chmod(file.c_str(), 0640);
  Table before;
  ASSERT_EQ(load_table(file.c_str(), before), 0);
  const std::ifstream open_before(file);
  EXPECT_EQ(
      update_table(
          file.c_str(),
          [](Table &table, void *) { return set_cell(table, kPinTable, "4", 2, "0"); }, nullptr),
      0);
  std::ostringstream old;
  old << open_before.rdbuf();
  EXPECT_EQ(old.str(), kSample);
  std::string text = kSample;
  text.replace(text.find("4 out 1"), 7, "4 out 0");
  EXPECT_EQ(read(), text);
  EXPECT_EQ(std::string(before.text, before.length), kSample);
  free_table(before);
  struct stat status;
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
  EXPECT_EQ(files(), 1u);
}

TEST_F(TableFile, stays_when_nothing_changes_or_the_change_fails) {
  write(kSample);
  struct stat before;
  ASSERT_EQ(stat(file.c_str(), &before), 0);
  auto refuse = [](Table &table, void *) {
    EXPECT_EQ(remove_row(table, kPinTable, "4"), 0);
    return -EPERM;
  };
  EXPECT_EQ(update_table(file.c_str(), refuse, nullptr), -EPERM);
  auto answer = [](Table &table, void *) {
    EXPECT_EQ(remove_row(table, kPinTable, "4"), 0);
    return 3;
  };
  EXPECT_EQ(update_table(file.c_str(), answer, nullptr), 3);
  auto same = [](Table &table, void *) { return set_cell(table, kPinTable, "4", 2, "1"); };
  EXPECT_EQ(update_table(file.c_str(), same, nullptr), 0);
  struct stat after;
  ASSERT_EQ(stat(file.c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(read(), kSample);
}

TEST_F(TableFile, is_made_when_something_is_in_it) {
  auto nothing = [](Table &, void *) { return 0; };
  EXPECT_EQ(update_table(file.c_str(), nothing, nullptr), 0);
  auto missing = [](Table &table, void *) { return set_cell(table, kPinTable, "4", 2, "1"); };
  EXPECT_EQ(update_table(file.c_str(), missing, nullptr), -ENOENT);
  auto refuse = [](Table &table, void *) {
    EXPECT_EQ(append_row(table, kPinTable, "4 in"), 0);
    return -EPERM;
  };
  EXPECT_EQ(update_table(file.c_str(), refuse, nullptr), -EPERM);
  EXPECT_FALSE(is_there());
  auto add = [](Table &table, void *) { return append_row(table, kPinTable, "4 in"); };
  EXPECT_EQ(update_table(file.c_str(), add, nullptr), 0);
  EXPECT_EQ(read(), "4 in\n");
  EXPECT_EQ(update_table(file.c_str(), add, nullptr), -EEXIST);
  EXPECT_EQ(files(), 1u);
}

// Forty processes add a row each and count in a common one, from a file that is not there yet.
TEST_F(TableFile, loses_no_change_of_many_processes) {
  constexpr int kProcesses = 40;
  std::vector<pid_t> children;
  for (int i = 0; i < kProcesses; ++i) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child > 0) {
      children.push_back(child);
      continue;
    }
    int number = i;
    auto change = [](Table &table, void *context) {
      const std::string own = "own " + std::to_string(*static_cast<int *>(context)) + " 0";
      if (const int error = append_row(table, kRegisterTable, own))
        return error;
      TableRow row;
      if (!find_row(table, kRegisterTable, "all 0", row))
        return append_row(table, kRegisterTable, "all 0 1");
      return set_cell(table, kRegisterTable, "all 0", 2,
                      std::to_string(row_number(row, 2, -1) + 1));
    };
    const int result = update_table(file.c_str(), change, &number);
    // A reader never sees a part of a table: the common row counts the others.
    Table table;
    bool is_whole = load_table(file.c_str(), table) == 0;
    TableRow row;
    is_whole = is_whole && find_row(table, kRegisterTable, "all 0", row);
    std::int64_t rows = -1;
    for (TableRow one = {}; is_whole && next_row(table, kRegisterTable, one);)
      ++rows;
    _exit(result == 0 && is_whole && rows == row_number(row, 2, -1) ? 0 : 1);
  }
  for (const pid_t child : children) {
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  Table table;
  ASSERT_EQ(load_table(file.c_str(), table), 0);
  TableRow row;
  ASSERT_TRUE(find_row(table, kRegisterTable, "all 0", row));
  EXPECT_EQ(row_number(row, 2, -1), kProcesses);
  for (int i = 0; i < kProcesses; ++i)
    EXPECT_TRUE(find_row(table, kRegisterTable, "own " + std::to_string(i), row)) << i;
  free_table(table);
  EXPECT_EQ(files(), 1u);
}

}  // namespace vboard
