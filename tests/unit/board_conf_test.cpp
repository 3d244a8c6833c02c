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
  map->is_recorder = true;
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
    map->is_recorder = true;
    rigcore::read_board_map(path_, *map);
    return map;
  }
  char path_[256];
};

TEST(BoardConf, recorder_has_a_default_where_the_file_says_nothing) {
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

TEST(BoardConf, another_board_has_what_holds_everywhere) {
  const auto map = map_of("");
  map->is_recorder = false;
  EXPECT_EQ(ask(*map, "vga.status").value, "/sys/class/drm/card0-VGA-1/status");
  EXPECT_EQ(ask(*map, "version.uboot").value, "/proc/device-tree/chosen/u-boot,version");
  EXPECT_EQ(ask(*map, "version.korbsp").value, "/etc/os-release PRETTY_NAME");
  for (const char *key :
       {"buzzer", "alarm.input.0", "alarm.input.1", "alarm.input.2", "alarm.input.3",
        "alarm.input.4", "alarm.input.5", "alarm.input.6", "alarm.input.7", "alarm.output.0",
        "bootparam", "hardinfo", "cpld", "version.korboot"}) {
    EXPECT_EQ(ask(*map, key).result, -1) << key;
    EXPECT_EQ(ask(*map, key).number, ENODEV) << key;
  }
}

TEST(BoardConf, entry_of_another_board_counts) {
  const auto map = map_of("alarm.output.0 = /x\nvga.status =\n");
  map->is_recorder = false;
  EXPECT_EQ(ask(*map, "alarm.output.0").value, "/x");
  EXPECT_EQ(ask(*map, "vga.status").number, ENODEV);
}

TEST(BoardConf, recorder_is_one_of_the_device_trees_names) {
  using namespace std::string_view_literals;
  EXPECT_TRUE(rigcore::names_recorder("korvexium,recorder\0"sv));
  EXPECT_TRUE(rigcore::names_recorder("maker,variant\0korvexium,recorder\0maker,soc\0"sv));
  EXPECT_TRUE(rigcore::names_recorder("korvexium,recorder"sv));  // cut at its end
  for (const std::string_view other :
       {""sv, "\0"sv, "\0\0"sv, "korvexium,recorder2\0"sv, "korvexium,recorde\0"sv,
        "maker,korvexium,recorder\0"sv, "Korvexium,recorder\0"sv, "maker,gateway\0maker,soc\0"sv})
    EXPECT_FALSE(rigcore::names_recorder(other)) << other;
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

// "LINE:WHAT:KEY" of each complaint, one a line.
std::string complaints(std::string_view text) {
  constexpr const char *kWhat[] = {"no entry", "unknown", "quoted"};
  std::string all;
  rigcore::Complaint one;
  for (int line = 0; rigcore::next_complaint(text, line, one);)
    all += std::to_string(one.line) + ":" + kWhat[one.what] + ":" + std::string(one.key) + "\n";
  return all;
}

TEST(BoardConf, complains_of_every_line_that_does_nothing) {
  EXPECT_EQ(complaints(""), "");
  EXPECT_EQ(complaints("# text\n\n  \nbuzzer = /a\ncpld =\n"), "");
  EXPECT_EQ(complaints("# text\nbuzzer /a\nnonsense\n"), "2:no entry:\n3:no entry:\n");
  EXPECT_EQ(complaints("buzzer = /a\n = /b"), "2:no entry:\n");
  EXPECT_EQ(complaints("\nunknown.key =\nbuzer = /a"), "2:unknown:unknown.key\n3:unknown:buzer\n");
}

TEST(BoardConf, numbers_of_keys_have_their_limits) {
  EXPECT_EQ(complaints("alarm.input.0=\nalarm.input.31=\nalarm.output.31=\nstorage.15=\n"
                       "feature.0=\nfeature.200=\nfeature.999="),
            "");
  for (const std::string key :
       {"alarm.input.32", "alarm.input.00", "alarm.input.", "alarm.input", "alarm.input.-1",
        "alarm.input.1x", "alarm.output.32", "storage.16", "storage.4294967296", "feature.1000",
        "feature.1.2", "Buzzer", "buzzer.0"})
    EXPECT_EQ(complaints(key + " = /x"), "1:unknown:" + key + "\n");
}

TEST(BoardConf, complains_of_quoted_values) {
  EXPECT_EQ(complaints("buzzer = \"/a\"\ncpld = '/b'\n"), "1:quoted:buzzer\n2:quoted:cpld\n");
  EXPECT_EQ(complaints("buzzer = /a\"b\"\ncpld = /it's\n"), "");
  EXPECT_EQ(ask(*map_of("buzzer = \"/a\"\n"), "buzzer").value, "\"/a\"");
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

TEST_F(MapFile, each_reading_begins_with_an_empty_map) {
  rigcore::BoardMap map = {};
  write(std::string(sizeof map.text, ' '));
  rigcore::read_board_map(path_, map);
  EXPECT_EQ(map.error, EFBIG);
  write("cpld = /dir");
  rigcore::read_board_map(path_, map);
  EXPECT_EQ(map.error, 0);
  EXPECT_EQ(map.length, 11u);
  unlink(path_);
  rigcore::read_board_map(path_, map);
  EXPECT_EQ(map.error, 0);
  EXPECT_EQ(map.length, 0u);
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
  EXPECT_EQ(complaints(text), "");

  int entries = 0;
  for (std::string_view rest : {rigcore::general_map(), rigcore::recorder_map()}) {
    for (; !rest.empty(); ++entries) {
      const std::string_view line = rest.substr(0, rest.find('\n'));
      rest.remove_prefix(line.size() + 1);
      const std::size_t equals = line.find(" = ");
      ASSERT_NE(equals, line.npos) << line;
      std::string_view value;
      EXPECT_TRUE(rigcore::find_entry(text, line.substr(0, equals), &value)) << line;
      EXPECT_EQ(value, line.substr(equals + 3));
    }
  }
  EXPECT_EQ(entries, 17);
}

}  // namespace
