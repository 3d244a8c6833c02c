// The fields of /proc/PID/stat: labels, formats, and numbers that exceed 32 bits.

#include "debug/stat_fields.h"

#include <dirent.h>
#include <stdio.h>
#include <string.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string printed(const StatField &field, const char *token) {
  testing::internal::CaptureStdout();
  print_stat_field(field, token);
  return testing::internal::GetCapturedStdout();
}

std::string printed_text(std::string text) {
  testing::internal::CaptureStdout();
  print_stat_text(text.data());
  return testing::internal::GetCapturedStdout();
}

std::vector<std::string> lines_of(const std::string &text) {
  std::vector<std::string> lines;
  std::size_t at = 0;
  for (std::size_t end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
    lines.push_back(text.substr(at, end - at));
  EXPECT_EQ(at, text.size()) << "the last line ends";
  return lines;
}

std::string recorded(const char *name) {
  const std::string path = std::string(TEST_DATA_DIR) + "/proc/stat/" + name;
  FILE *file = fopen(path.c_str(), "rb");
  EXPECT_NE(file, nullptr) << path;
  char text[1024];
  const std::size_t size = file != nullptr ? fread(text, 1, sizeof text, file) : 0;
  if (file != nullptr)
    fclose(file);
  return {text, size};
}

constexpr StatField kSigned = {"x", StatFormat::kSigned, nullptr};
constexpr StatField kUnsigned = {"x", StatFormat::kUnsigned, nullptr};
constexpr StatField kLong = {"x", StatFormat::kLong, nullptr};
constexpr StatField kLongHex = {"x", StatFormat::kLongHex, nullptr};
constexpr StatField kHex = {"x", StatFormat::kHex, nullptr};
constexpr StatField kUnsigned64 = {"x", StatFormat::kUnsigned64, nullptr};
constexpr StatField kText = {"x", StatFormat::kText, nullptr};
const std::string kHead = "x                 = ";  // 17 columns

TEST(StatField, pads_its_label_to_17_columns) {
  EXPECT_EQ(printed({"pid", StatFormat::kUnsigned, nullptr}, "1"), "pid               = 1\n");
  EXPECT_EQ(printed({"task_rt_priority", StatFormat::kUnsigned, nullptr}, "0"),
            "task_rt_priority  = 0\n");
}

TEST(StatField, puts_its_suffix_behind_one_blank) {
  EXPECT_EQ(printed({"x", StatFormat::kLong, "(Unit:jiffies)"}, "7"), kHead + "7 (Unit:jiffies)\n");
  EXPECT_EQ(printed({"x", StatFormat::kText, "(R)"}, nullptr), kHead + " (R)\n");
}

TEST(StatField, reads_signed_numbers_of_32_bits) {
  EXPECT_EQ(printed(kSigned, "-20"), kHead + "-20\n");
  EXPECT_EQ(printed(kSigned, "2147483647"), kHead + "2147483647\n");
  EXPECT_EQ(printed(kSigned, "4294967295"), kHead + "2147483647\n");
  EXPECT_EQ(printed(kSigned, "9223372036854775807"), kHead + "2147483647\n");
  EXPECT_EQ(printed(kSigned, "-9223372036854775808"), kHead + "-2147483648\n");
  EXPECT_EQ(printed(kSigned, "99999999999999999999"), kHead + "2147483647\n");
}

TEST(StatField, shows_unsigned_numbers_above_31_bits_as_negative) {
  EXPECT_EQ(printed(kUnsigned, "1077936128"), kHead + "1077936128\n");
  EXPECT_EQ(printed(kUnsigned, "2147483648"), kHead + "-2147483648\n");
  EXPECT_EQ(printed(kUnsigned, "4294967295"), kHead + "-1\n");
  EXPECT_EQ(printed(kUnsigned, "4294967296"), kHead + "-1\n");
  EXPECT_EQ(printed(kUnsigned, "18446744073709551615"), kHead + "-1\n");
  EXPECT_EQ(printed(kUnsigned, "-1"), kHead + "-1\n");
}

TEST(StatField, reads_long_numbers_as_32_bits) {
  EXPECT_EQ(printed(kLong, "4294967295"), kHead + "4294967295\n");
  EXPECT_EQ(printed(kLong, "18446744073709551615"), kHead + "4294967295\n");
  EXPECT_EQ(printed(kLong, "-9223372036854775808"), kHead + "4294967295\n");
  EXPECT_EQ(printed(kLong, "-1"), kHead + "4294967295\n");
}

TEST(StatField, shows_addresses_in_hexadecimal) {
  EXPECT_EQ(printed(kLongHex, "4194304"), kHead + "0x400000\n");
  EXPECT_EQ(printed(kLongHex, "140736914091744"), kHead + "0xffffffff\n");
  EXPECT_EQ(printed(kHex, "8391624"), kHead + "0x800bc8\n");
  EXPECT_EQ(printed(kHex, "0"), kHead + "0x0\n");
}

TEST(StatField, reads_the_start_time_with_64_bits) {
  EXPECT_EQ(printed(kUnsigned64, "4294967296"), kHead + "4294967296\n");
  EXPECT_EQ(printed(kUnsigned64, "18446744073709551615"), kHead + "18446744073709551615\n");
}

TEST(StatField, that_is_missing_is_0_or_empty) {
  for (const StatField &field : {kSigned, kUnsigned, kLong, kUnsigned64})
    EXPECT_EQ(printed(field, nullptr), kHead + "0\n");
  for (const StatField &field : {kLongHex, kHex})
    EXPECT_EQ(printed(field, nullptr), kHead + "0x0\n");
  EXPECT_EQ(printed(kText, nullptr), kHead + "\n");
}

TEST(StatField, that_is_no_number_is_0) {
  EXPECT_EQ(printed(kSigned, "(sh)"), kHead + "0\n");
  EXPECT_EQ(printed(kLong, "R"), kHead + "0\n");
}

TEST(StatText, parts_no_word_at_a_high_character) {
  const std::vector<std::string> lines =
      lines_of(printed_text("7 (\x80\x85\xA0\xC3\xFF) \xD3 \xB2"));
  EXPECT_EQ(lines[1], "comm              = (\x80\x85\xA0\xC3\xFF)");
  EXPECT_EQ(lines[2].substr(0, 21), "task_state        = \xD3");
  EXPECT_EQ(lines[3], "ppid              = 0");
}

// A number that differs in every place shows a label or a format in the wrong row.
TEST(StatText, has_52_lines_in_the_file_s_order) {
  std::string text = "1 (sh) S";
  for (int i = 4; i <= 52; ++i)
    text += " " + std::to_string(i);
  EXPECT_EQ(
      printed_text(text + "\n"),
      "pid               = 1\n"
      "comm              = (sh)\n"
      "task_state        = S (R:runnign, S:sleeping, D:disk sleep, T:stopped, t:tracing stop, "
      "Z:zombie, X:dead)\n"
      "ppid              = 4\n"
      "pgid              = 5\n"
      "sid               = 6\n"
      "tty_nr            = 7\n"
      "tty_pgrp          = 8\n"
      "task_flags        = 9\n"
      "min_flt           = 10\n"
      "cmin_flt          = 11\n"
      "maj_flt           = 12\n"
      "cmaj_flt          = 13\n"
      "utime             = 14 (Unit:jiffies)\n"
      "stime             = 15 (Unit:jiffies)\n"
      "cutime            = 16 (Unit:jiffies)\n"
      "cstime            = 17 (Unit:jiffies)\n"
      "priority          = 18\n"
      "nice              = 19\n"
      "num_threads       = 20\n"
      "it_real_value     = 21 (Unit:jiffies)\n"
      "start_time        = 22 (Unit:jiffies)\n"
      "vsize             = 23\n"
      "rss               = 24\n"
      "rsslim            = 25\n"
      "start_code        = 0x1a\n"
      "end_code          = 0x1b\n"
      "start_stack       = 0x1c\n"
      "kstkesp           = 0x1d\n"
      "kstkeip           = 0x1e\n"
      "pendingsig        = 31\n"
      "block_sig         = 32\n"
      "sigign            = 33\n"
      "sigcatch          = 34\n"
      "wchan             = 35\n"
      "nswap             = 36 (Not use)\n"
      "cnswap            = 37 (Not use)\n"
      "exit_signal       = 38\n"
      "task_cpu          = 39\n"
      "task_rt_priority  = 40\n"
      "task_policy       = 41 (0=No real, 1=FIFO, 2=RR)\n"
      "task              = 42\n"
      "gtime             = 43\n"
      "cgtime            = 44\n"
      "start_data        = 0x2d\n"
      "end_data          = 0x2e\n"
      "start_brk         = 0x2f\n"
      "arg_start         = 0x30\n"
      "arg_end           = 0x31\n"
      "env_start         = 0x32\n"
      "env_end           = 0x33\n"
      "exit_code         = 0x34\n");
}

TEST(StatText, parses_each_field_as_signed_or_unsigned) {
  // -1 tells the two apart where the format does not: a signed one saturates at 2147483647.
  std::string text;
  for (int i = 1; i <= 52; ++i)
    text += "4294967295 ";
  const std::vector<std::string> lines = lines_of(printed_text(text));
  ASSERT_EQ(lines.size(), 52u);
  for (const int row : {7, 8, 18, 19, 20, 21, 36, 37})
    EXPECT_NE(lines[static_cast<std::size_t>(row - 1)].find("= 2147483647"), std::string::npos)
        << row;
  for (const int row : {1, 4, 5, 6, 9, 31, 32, 33, 34, 38, 39, 40, 41, 42})
    EXPECT_NE(lines[static_cast<std::size_t>(row - 1)].find("= -1"), std::string::npos) << row;
}

TEST(StatText, ends_early_with_zeros) {
  const std::vector<std::string> lines = lines_of(printed_text("12 (a)"));
  ASSERT_EQ(lines.size(), 52u);
  EXPECT_EQ(lines[1], "comm              = (a)");
  EXPECT_EQ(lines[3], "ppid              = 0");
  EXPECT_EQ(lines[51], "exit_code         = 0x0");
  EXPECT_EQ(lines_of(printed_text("")).size(), 52u);
}

TEST(StatText, has_no_separator_but_the_blank) {
  EXPECT_EQ(lines_of(printed_text("1 (a\tb) S 5"))[1], "comm              = (a\tb)");
}

TEST(StatText, of_a_name_with_blanks_is_one_label_late_for_each) {
  const std::vector<std::string> lines = lines_of(printed_text(recorded("1020")));
  ASSERT_EQ(lines.size(), 52u);
  EXPECT_EQ(lines[0], "pid               = 1020");
  EXPECT_EQ(lines[1], "comm              = ((a");
  EXPECT_EQ(lines[2].substr(0, 24), "task_state        = b (R");
  EXPECT_EQ(lines[3], "ppid              = 0") << "the token \")\"";
  EXPECT_EQ(lines[8], "task_flags        = 0") << "the state, R";
  EXPECT_EQ(lines[9], "min_flt           = 28378") << "the parent, six late";
}

TEST(StatText, of_recorded_processes) {
  std::vector<std::string> lines = lines_of(printed_text(recorded("26231")));
  EXPECT_EQ(lines[1], "comm              = (vim)");
  EXPECT_EQ(lines[24], "rsslim            = 4294967295");
  EXPECT_EQ(lines[27], "start_stack       = 0xffffffff");
  EXPECT_EQ(lines[33], "sigcatch          = 1870679807");
  lines = lines_of(printed_text(recorded("33")));
  EXPECT_EQ(lines[7], "tty_pgrp          = -1");
  EXPECT_EQ(lines[15], "cutime            = 4294967295 (Unit:jiffies)");
  EXPECT_EQ(lines[16], "cstime            = 4294967295 (Unit:jiffies)");
  EXPECT_EQ(lines[18], "nice              = -20");
  lines = lines_of(printed_text(recorded("27080")));
  EXPECT_EQ(lines[37], "exit_signal       = -1");
  EXPECT_EQ(lines[21], "start_time        = 4289575 (Unit:jiffies)");
}

TEST(StatText, of_every_process_of_this_machine) {
  DIR *processes = opendir("/proc");
  ASSERT_NE(processes, nullptr);
  int read = 0;
  while (const dirent *entry = readdir(processes)) {
    const std::string path = std::string("/proc/") + entry->d_name + "/stat";
    FILE *file =
        entry->d_name[0] >= '1' && entry->d_name[0] <= '9' ? fopen(path.c_str(), "r") : nullptr;
    if (file == nullptr)
      continue;
    char text[500];
    const std::size_t size = fread(text, 1, sizeof text, file);
    fclose(file);
    if (size == 0)
      continue;
    const std::vector<std::string> lines = lines_of(printed_text({text, size}));
    EXPECT_GE(lines.size(), 52u) << path;
    EXPECT_EQ(lines[0], std::string("pid               = ") + entry->d_name);
    ++read;
  }
  closedir(processes);
  EXPECT_GE(read, 1);
}

}  // namespace
