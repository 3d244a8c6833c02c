// The board's map: its syntax, its defaults and its limits.

#include "platform/board_conf.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using rigcore::BoardMap;

std::unique_ptr<BoardMap> map_of(const std::string &text) {
  auto map = std::make_unique<BoardMap>();
  map->error = 0;
  map->length = text.size();
  memcpy(map->text, text.data(), text.size());
  return map;
}

struct Answer {
  int result;
  int number;
  std::string value;
};

Answer ask(const BoardMap &map, const char *key, std::size_t size = rigcore::kEntrySize) {
  char value[rigcore::kEntrySize] = "untouched";
  errno = 0;
  const int result = rigcore::map_entry(map, key, value, size);
  return {result, errno, value};
}

class MapFile : public testing::Test {
 protected:
  void SetUp() override {
    snprintf(path_, sizeof path_, "%sboard_conf_XXXXXX", testing::TempDir().c_str());
    const int fd = mkstemp(path_);
    ASSERT_GE(fd, 0);
    close(fd);
  }
  void TearDown() override {
    unlink(path_);
  }
  void write(const std::string &text) {
    FILE *file = fopen(path_, "w");
    ASSERT_NE(file, nullptr);
    fwrite(text.data(), 1, text.size(), file);
    fclose(file);
  }
  std::unique_ptr<BoardMap> read() {
    auto map = std::make_unique<BoardMap>();
    rigcore::read_board_map(path_, *map);
    return map;
  }
  char path_[256];
};

TEST(BoardConf, default_holds_where_the_file_says_nothing) {
  const auto map = map_of("");
  EXPECT_EQ(ask(*map, "buzzer").value, "/sys/class/leds/buzzer/brightness");
  EXPECT_EQ(ask(*map, "alarm.input.0").value, "/sys/class/gpio/gpio40/value");
  EXPECT_EQ(ask(*map, "alarm.input.7").value, "/sys/class/gpio/gpio47/value");
  EXPECT_EQ(ask(*map, "alarm.output.0").value, "/sys/class/gpio/gpio48/value");
  EXPECT_EQ(ask(*map, "vga.status").value, "/sys/class/drm/card0-VGA-1/status");
  EXPECT_EQ(ask(*map, "bootparam").value, "/sys/bus/nvmem/devices/bootparam0/nvmem");
  EXPECT_EQ(ask(*map, "hardinfo").value, "/sys/bus/nvmem/devices/hardinfo0/nvmem");
  EXPECT_EQ(ask(*map, "cpld").value, "/sys/class/firmware/cpld");
  EXPECT_EQ(ask(*map, "version.korboot").value, "/proc/device-tree/chosen/first-stage,version");
  EXPECT_EQ(ask(*map, "version.uboot").value, "/proc/device-tree/chosen/u-boot,version");
  EXPECT_EQ(ask(*map, "version.korbsp").value, "/etc/os-release PRETTY_NAME");
}

TEST(BoardConf, entry_overrides_the_default_and_the_last_one_counts) {
  const auto map = map_of("buzzer = /first\ncpld=/dir\nbuzzer\t=\t/second \r\n");
  EXPECT_EQ(ask(*map, "buzzer").value, "/second");
  EXPECT_EQ(ask(*map, "cpld").value, "/dir");
}

TEST(BoardConf, last_line_needs_no_line_end) {
  EXPECT_EQ(ask(*map_of("buzzer = /here"), "buzzer").value, "/here");
}

TEST(BoardConf, empty_value_removes_the_default) {
  const Answer answer = ask(*map_of("buzzer =   # none\n"), "buzzer");
  EXPECT_EQ(answer.result, -1);
  EXPECT_EQ(answer.number, ENODEV);
  EXPECT_EQ(answer.value, "untouched");
}

TEST(BoardConf, entry_without_default_is_a_missing_device) {
  const Answer answer = ask(*map_of("alarm.input.80 = /x\n"), "alarm.input.8");
  EXPECT_EQ(answer.result, -1);
  EXPECT_EQ(answer.number, ENODEV);
}

TEST(BoardConf, keys_are_compared_exactly) {
  const auto map = map_of("Buzzer = /a\nbuzzers = /b\nbuzz = /c\n buzzer2 = /d\n");
  EXPECT_EQ(ask(*map, "buzzer").value, "/sys/class/leds/buzzer/brightness");
}

TEST(BoardConf, comment_starts_at_the_line_or_after_a_blank) {
  EXPECT_EQ(ask(*map_of("#buzzer = /a\n"), "buzzer").value, "/sys/class/leds/buzzer/brightness");
  EXPECT_EQ(ask(*map_of("buzzer = /a#b # c = d\n"), "buzzer").value, "/a#b");
}

TEST(BoardConf, value_keeps_its_blanks_and_equals_signs) {
  EXPECT_EQ(ask(*map_of("version.korbsp = /etc/x=y NAME\n"), "version.korbsp").value,
            "/etc/x=y NAME");
}

TEST(BoardConf, names_the_first_line_that_is_no_entry) {
  EXPECT_EQ(rigcore::first_bad_line(""), 0);
  EXPECT_EQ(rigcore::first_bad_line("# text\n\n  \nbuzzer = /a\nunknown.key =\n"), 0);
  EXPECT_EQ(rigcore::first_bad_line("# text\nbuzzer /a\nnonsense\n"), 2);
  EXPECT_EQ(rigcore::first_bad_line("buzzer = /a\n = /b"), 2);
}

TEST(BoardConf, value_that_does_not_fit_is_refused) {
  const auto map = map_of("buzzer = /234\n");
  EXPECT_EQ(ask(*map, "buzzer", 4).result, -1);
  EXPECT_EQ(ask(*map, "buzzer", 4).number, ENAMETOOLONG);
  EXPECT_EQ(ask(*map, "buzzer", 5).result, 0);
}

TEST(BoardConf, long_line_hides_no_other_entry) {
  const auto map = map_of("cpld = /" + std::string(20000, 'x') + "\nbuzzer = /a\n");
  EXPECT_EQ(ask(*map, "buzzer").value, "/a");
  EXPECT_EQ(ask(*map, "cpld").number, ENAMETOOLONG);
}

TEST_F(MapFile, missing_file_leaves_the_defaults) {
  unlink(path_);
  const auto map = read();
  EXPECT_EQ(map->error, 0);
  EXPECT_EQ(ask(*map, "cpld").value, "/sys/class/firmware/cpld");
}

TEST_F(MapFile, file_is_read) {
  write("cpld = /dir\n");
  EXPECT_EQ(ask(*read(), "cpld").value, "/dir");
}

TEST_F(MapFile, largest_file_is_read_and_a_larger_one_refused) {
  const std::string entry = "\ncpld = /end";
  write(std::string(32767 - entry.size(), '#') + entry);
  EXPECT_EQ(ask(*read(), "cpld").value, "/end");
  write(std::string(32768 - entry.size(), '#') + entry);
  const Answer answer = ask(*read(), "cpld");
  EXPECT_EQ(answer.result, -1);
  EXPECT_EQ(answer.number, EFBIG);
}

TEST_F(MapFile, file_that_cannot_be_read_is_no_default) {
  unlink(path_);
  ASSERT_EQ(mkdir(path_, 0700), 0);
  const Answer answer = ask(*read(), "buzzer");
  EXPECT_EQ(answer.result, -1);
  EXPECT_EQ(answer.number, EISDIR);
  rmdir(path_);
}

// The installed example must not drift from the defaults.
TEST(BoardConf, example_states_every_default) {
  auto example = std::make_unique<BoardMap>();
  std::string path = TEST_DATA_DIR;  // tests/data of the source tree
  path.resize(path.size() - strlen("tests/data"));
  path += "platform/board.conf.example";
  rigcore::read_board_map(path.c_str(), *example);
  ASSERT_EQ(example->error, 0);
  ASSERT_GT(example->length, 0u);
  const std::string_view text(example->text, example->length);
  EXPECT_EQ(rigcore::first_bad_line(text), 0);

  std::string_view rest = rigcore::built_in_map();
  int entries = 0;
  for (; !rest.empty(); ++entries) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(line.size() + 1);
    const std::size_t equals = line.find(" = ");
    ASSERT_NE(equals, line.npos) << line;
    std::string_view value;
    EXPECT_TRUE(rigcore::find_entry(text, line.substr(0, equals), &value)) << line;
    EXPECT_EQ(value, line.substr(equals + 3));
  }
  EXPECT_EQ(entries, 17);
}

}  // namespace
