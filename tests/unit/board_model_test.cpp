// The virtual board's clock, watchdog, card, flash and interfaces.

#include "model_harness.h"
#include "platform/driver/iccard.h"
#include "vboard/base/calendar.h"
#include "vboard/interposer/models/models.h"

#include <arpa/inet.h>
#include <errno.h>
#include <linux/rtc.h>
#include <linux/watchdog.h>
#include <mtd/mtd-user.h>
#include <net/if.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <gtest/gtest.h>

using namespace vboard;

namespace {

std::string time_of(ModelHarness &board) {
  rtc_time time = {};
  const int result = board.request(RTC_RD_TIME, time);
  if (result < 0)
    return std::to_string(result);
  char text[64];
  snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", time.tm_year + 1900, time.tm_mon + 1,
           time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec);
  return text;
}

int set_time(ModelHarness &board, rtc_time time) {
  return board.request(RTC_SET_TIME, time);
}

rtc_time april_2015() {
  rtc_time time = {};
  time.tm_year = 115;
  time.tm_mon = 3;
  time.tm_mday = 1;
  time.tm_hour = 8;
  time.tm_min = 57;
  time.tm_sec = 23;
  return time;
}

}  // namespace

// Calendar.

TEST(Calendar, known_moments) {
  std::int64_t moment = 0;
  ASSERT_TRUE(parse_calendar("2015-04-01 08:57:23", moment));
  EXPECT_EQ(moment, 1'427'878'643'000'000'000);
  ASSERT_TRUE(parse_calendar("2000-02-29 00:00:00.25", moment));
  EXPECT_EQ(moment, 951'782'400'250'000'000);
  ASSERT_TRUE(parse_calendar("1970-01-02 00:00:01", moment));
  EXPECT_EQ(moment, 86'401'000'000'000);
  ASSERT_TRUE(parse_calendar("2024-02-29 23:59:59.999999999", moment));
  EXPECT_EQ(moment, 1'709'251'199'999'999'999);
  ASSERT_TRUE(parse_calendar("2000-02-29 00:00:00.25", moment));
  char text[40];
  print_calendar(moment, text);
  EXPECT_STREQ(text, "2000-02-29 00:00:00.250000000");
  print_calendar(-kSecond, text);
  EXPECT_STREQ(text, "1969-12-31 23:59:59");
}

// 9,000,000,000 s after 1970 began are 2255-03-14 16:00:00.
TEST(Calendar, reaches_the_year_2255) {
  std::int64_t moment = 0;
  EXPECT_TRUE(parse_calendar("2255-03-14 16:00:00", moment));
  EXPECT_EQ(moment, 9'000'000'000'000'000'000);
  EXPECT_FALSE(parse_calendar("2255-03-14 16:00:00.000000001", moment));
  EXPECT_FALSE(parse_calendar("2256-01-01 00:00:00", moment));
  CalendarTime time = {};
  time.year = 2199;
  time.month = 12;
  time.day = 31;
  EXPECT_TRUE(nanoseconds_of(time, moment));
  time.year = 2200;
  EXPECT_FALSE(nanoseconds_of(time, moment));
}

TEST(Calendar, dates_that_do_not_exist) {
  std::int64_t moment;
  for (const char *text :
       {"2023-02-29 00:00:00", "2024-13-01 00:00:00", "2024-00-01 00:00:00", "2024-01-32 00:00:00",
        "2024-01-01 24:00:00", "2024-01-01 00:60:00", "2024-01-01 00:00:60", "1969-12-31 23:59:59",
        "2024-1-01 00:00:00", "", "2024-01-01", "2024-01-01 00:00:00x", "24-01-01 00:00:00",
        "2024-01-01T00:00:00", "2024-01-01 00:00:00.", "2024-01-01 00:00:00.0000000001"})
    EXPECT_FALSE(parse_calendar(text, moment)) << text;
}

// Clock.

TEST(RtcModel, follows_the_board_until_it_is_set) {
  ModelHarness board("model = rtc\n");
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(time_of(board), "2024-01-05 09:05:03");
  fake_core.now = 58 * kSecond;
  EXPECT_EQ(time_of(board), "2024-01-05 09:06:01");
}

TEST(RtcModel, runs_from_what_was_set_across_closes) {
  ModelHarness board("model = rtc\n");
  ASSERT_EQ(board.open(), 0);
  fake_core.now = kSecond / 2;
  ASSERT_EQ(set_time(board, april_2015()), 0);
  EXPECT_EQ(time_of(board), "2015-04-01 08:57:23");
  fake_core.now += kSecond - 1;
  EXPECT_EQ(time_of(board), "2015-04-01 08:57:23");
  fake_core.now += 1;
  EXPECT_EQ(time_of(board), "2015-04-01 08:57:24");
  ASSERT_EQ(board.open(), 0);
  fake_core.now += 10 * kSecond;
  EXPECT_EQ(time_of(board), "2015-04-01 08:57:34");
}

TEST(RtcModel, reading_leaves_the_unused_fields_zero) {
  ModelHarness board("model = rtc\n");
  ASSERT_EQ(board.open(), 0);
  rtc_time time;
  memset(&time, 0xFF, sizeof time);
  ASSERT_EQ(board.request(RTC_RD_TIME, time), 0);
  EXPECT_EQ(time.tm_wday, 0);
  EXPECT_EQ(time.tm_yday, 0);
  EXPECT_EQ(time.tm_isdst, 0);
}

TEST(RtcModel, stopped_and_wrong_clocks) {
  struct Row {
    const char *node;
    const char *after_ten_seconds;
  };
  for (const Row &row : {Row{"model = rtc\nstopped = 1\n", "2024-01-05 09:05:03"},
                         Row{"model = rtc\nrate = 0.5\n", "2024-01-05 09:05:08"},
                         Row{"model = rtc\nrate = 2\n", "2024-01-05 09:05:23"},
                         Row{"model = rtc\nrate = fast\n", "2024-01-05 09:05:13"}}) {
    ModelHarness board(row.node);
    ASSERT_EQ(board.open(), 0);
    EXPECT_EQ(time_of(board), "2024-01-05 09:05:03") << row.node;
    fake_core.now = 10 * kSecond;
    EXPECT_EQ(time_of(board), row.after_ten_seconds) << row.node;
  }
}

TEST(RtcModel, lost_supply_is_an_error_until_it_is_set) {
  ModelHarness board("model = rtc\ntime_valid = 0\n");
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(time_of(board), std::to_string(-EINVAL));
  ASSERT_EQ(set_time(board, april_2015()), 0);
  EXPECT_EQ(time_of(board), "2015-04-01 08:57:23");
  EXPECT_NE(board.node().find("time_valid = 1\n"), std::string::npos);
}

TEST(RtcModel, impossible_times_are_refused) {
  ModelHarness board("model = rtc\n");
  ASSERT_EQ(board.open(), 0);
  rtc_time time = april_2015();
  time.tm_mon = 12;
  EXPECT_EQ(set_time(board, time), -EINVAL);
  time = april_2015();
  time.tm_year = 69;
  EXPECT_EQ(set_time(board, time), -EINVAL);
  EXPECT_EQ(time_of(board), "2024-01-05 09:05:03");
}

TEST(RtcModel, only_one_opener_at_a_time) {
  ModelHarness board("model = rtc\n");
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(board.open_second(), -EBUSY);
  EXPECT_EQ(board.open(), 0) << "free again after the close";
}

// Watchdog.

namespace {

constexpr char kWatchdog[] =
    "model = watchdog\nidentity = Virtual Watchdog\ntimeout_s = 60\nmax_timeout_s = 600\n";

int keep_alive(ModelHarness &board) {
  return board.ask(WDIOC_KEEPALIVE, nullptr);
}

}  // namespace

TEST(WatchdogModel, opening_arms_and_every_sign_of_life_starts_the_limit_anew) {
  ModelHarness board(kWatchdog);
  EXPECT_EQ(fake_core.reset_at, kNever);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(fake_core.reset_at, 60 * kSecond);
  fake_core.now = 10 * kSecond;
  EXPECT_EQ(keep_alive(board), 0);
  EXPECT_EQ(fake_core.reset_at, 70 * kSecond);
  fake_core.now = 20 * kSecond;
  EXPECT_EQ(board.write("x", 1), 1);
  EXPECT_EQ(fake_core.reset_at, 80 * kSecond);
  fake_core.now = 30 * kSecond;
  int seconds = 15;
  EXPECT_EQ(board.request(WDIOC_SETTIMEOUT, seconds), 0);
  EXPECT_EQ(fake_core.reset_at, 45 * kSecond);
}

TEST(WatchdogModel, close_without_the_magic_character_leaves_it_armed) {
  ModelHarness board(kWatchdog);
  ASSERT_EQ(board.open(), 0);
  fake_core.now = 5 * kSecond;
  board.shut();
  EXPECT_EQ(fake_core.reset_at, 65 * kSecond);
}

TEST(WatchdogModel, close_after_the_magic_character_stops_it) {
  ModelHarness board(kWatchdog);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(board.write("aVb", 3), 3);
  board.shut();
  EXPECT_EQ(fake_core.reset_at, kNever);
}

TEST(WatchdogModel, the_magic_character_holds_for_the_last_write_only) {
  ModelHarness board(kWatchdog);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(board.write("V", 1), 1);
  EXPECT_EQ(board.write("x", 1), 1);
  board.shut();
  EXPECT_EQ(fake_core.reset_at, 60 * kSecond);
}

TEST(WatchdogModel, nowayout_cannot_be_stopped) {
  ModelHarness board((std::string(kWatchdog) + "nowayout = 1\n").c_str());
  ASSERT_EQ(board.open(), 0);
  int options = WDIOS_DISABLECARD;
  EXPECT_EQ(board.request(WDIOC_SETOPTIONS, options), -EBUSY);
  EXPECT_EQ(board.write("V", 1), 1);
  board.shut();
  EXPECT_EQ(fake_core.reset_at, 60 * kSecond);
}

TEST(WatchdogModel, disabled_is_stopped_and_a_keep_alive_does_not_wake_it) {
  ModelHarness board(kWatchdog);
  ASSERT_EQ(board.open(), 0);
  int options = WDIOS_DISABLECARD;
  EXPECT_EQ(board.request(WDIOC_SETOPTIONS, options), 0);
  EXPECT_EQ(fake_core.reset_at, kNever);
  EXPECT_EQ(keep_alive(board), 0);
  EXPECT_EQ(fake_core.reset_at, kNever);
  fake_core.now = 10 * kSecond;
  options = WDIOS_ENABLECARD;
  EXPECT_EQ(board.request(WDIOC_SETOPTIONS, options), 0);
  EXPECT_EQ(fake_core.reset_at, 70 * kSecond);
  options = 0;
  EXPECT_EQ(board.request(WDIOC_SETOPTIONS, options), -EINVAL);
}

TEST(WatchdogModel, tells_identity_options_and_limits) {
  ModelHarness board(kWatchdog);
  ASSERT_EQ(board.open(), 0);
  watchdog_info info = {};
  ASSERT_EQ(board.request(WDIOC_GETSUPPORT, info), 0);
  EXPECT_STREQ(reinterpret_cast<char *>(info.identity), "Virtual Watchdog");
  EXPECT_EQ(info.options, 0x8180u);
  int seconds = 0;
  ASSERT_EQ(board.request(WDIOC_GETTIMEOUT, seconds), 0);
  EXPECT_EQ(seconds, 60);
  fake_core.now = 12 * kSecond;
  ASSERT_EQ(board.request(WDIOC_GETTIMELEFT, seconds), 0);
  EXPECT_EQ(seconds, 48);
  for (const int bad : {0, -5, 601}) {
    seconds = bad;
    EXPECT_EQ(board.request(WDIOC_SETTIMEOUT, seconds), -EINVAL) << bad;
  }
}

TEST(WatchdogModel, time_limit_is_kept_for_the_next_opener) {
  ModelHarness board(kWatchdog);
  ASSERT_EQ(board.open(), 0);
  int seconds = 10;
  ASSERT_EQ(board.request(WDIOC_SETTIMEOUT, seconds), 0);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(fake_core.reset_at, 10 * kSecond);
}

TEST(WatchdogModel, second_opener_is_refused) {
  ModelHarness board(kWatchdog);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(board.open_second(), -EBUSY);
}

TEST(WatchdogModel, broken_one_never_bites) {
  ModelHarness board((std::string(kWatchdog) + "bites = 0\n").c_str());
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(keep_alive(board), 0);
  EXPECT_EQ(fake_core.reset_at, kNever);
  int seconds = 0;
  ASSERT_EQ(board.request(WDIOC_GETTIMELEFT, seconds), 0);
  EXPECT_EQ(seconds, 60);
}

// Card.

namespace {

using Block = unsigned char[ICCARD_SIZE];

void fill(Block &block) {
  for (int i = 0; i < ICCARD_SIZE; ++i)
    block[i] = static_cast<unsigned char>(i * 7);
}

}  // namespace

TEST(IccardModel, gives_back_what_was_written_also_to_the_next_opener) {
  ModelHarness board("model = iccard\nmedium = card\n");
  ASSERT_EQ(board.open(), 0);
  Block written, read = {};
  fill(written);
  ASSERT_EQ(board.request(HAL_ICCARD_WRITE, written), 0);
  ASSERT_EQ(board.open(), 0);
  ASSERT_EQ(board.request(HAL_ICCARD_READ, read), 0);
  EXPECT_EQ(memcmp(written, read, sizeof(read)), 0);
  EXPECT_EQ(board.file("media/card").size(), 256u);
}

TEST(IccardModel, worn_cards) {
  ModelHarness board("model = iccard\nmedium = card\nstuck_byte = 17\nstuck_value = 0x5A\n");
  ASSERT_EQ(board.open(), 0);
  Block written, read = {};
  fill(written);
  ASSERT_EQ(board.request(HAL_ICCARD_WRITE, written), 0);
  ASSERT_EQ(board.request(HAL_ICCARD_READ, read), 0);
  for (int i = 0; i < ICCARD_SIZE; ++i)
    EXPECT_EQ(read[i], i == 17 ? 0x5A : written[i]) << i;

  board.write_file("dev/node", "model = iccard\nmedium = card\ninverted = 1\n");
  ASSERT_EQ(board.open(), 0);
  ASSERT_EQ(board.request(HAL_ICCARD_READ, read), 0);
  for (int i = 0; i < ICCARD_SIZE; ++i)
    EXPECT_EQ(read[i], static_cast<unsigned char>(~written[i])) << i;
}

TEST(IccardModel, protected_card_refuses_writes) {
  ModelHarness board("model = iccard\nmedium = card\nprotected = 1\n");
  ASSERT_EQ(board.open(), 0);
  Block block = {};
  EXPECT_EQ(board.request(HAL_ICCARD_WRITE, block), -EROFS);
  EXPECT_EQ(board.request(HAL_ICCARD_READ, block), 0);
}

TEST(IccardModel, cut_medium_is_an_input_error) {
  ModelHarness board("model = iccard\nmedium = card\n");
  board.write_file("media/card", "short");
  ASSERT_EQ(board.open(), 0);
  Block block = {};
  EXPECT_EQ(board.request(HAL_ICCARD_READ, block), -EIO);
}

// Flash.

namespace {

constexpr char kFlash[] = "model = mtd\nmedium = flash\nerase_size = 4096\n";

int erase(ModelHarness &board, std::uint32_t start, std::uint32_t length) {
  erase_info_user range = {.start = start, .length = length};
  return board.request(MEMERASE, range);
}

ssize_t write_at(ModelHarness &board, off_t offset, const char *bytes) {
  board.position = offset;
  return board.write(bytes, strlen(bytes));
}

}  // namespace

TEST(MtdModel, is_blank_nor_flash_of_64_kib) {
  ModelHarness board(kFlash);
  ASSERT_EQ(board.open(), 0);
  mtd_info_user info = {};
  ASSERT_EQ(board.request(MEMGETINFO, info), 0);
  EXPECT_EQ(info.type, MTD_NORFLASH);
  EXPECT_EQ(info.size, 65536u);
  EXPECT_EQ(info.erasesize, 4096u);
  EXPECT_EQ(info.writesize, 1u);
  EXPECT_EQ(board.file("media/flash"), std::string(65536, '\xff'));
  int regions = 9;
  EXPECT_EQ(board.request(MEMGETREGIONCOUNT, regions), 0);
  EXPECT_EQ(regions, 0);
}

TEST(MtdModel, programming_clears_bits_and_moves_on) {
  ModelHarness board(kFlash);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(write_at(board, 100, "\xF0\xF0"), 2);
  EXPECT_EQ(board.position, 102);
  EXPECT_EQ(write_at(board, 100, "\x3C\xFF"), 2);
  EXPECT_EQ(board.file("media/flash").substr(99, 4), "\xFF\x30\xF0\xFF");
}

TEST(MtdModel, writes_end_at_the_end) {
  ModelHarness board(kFlash);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(write_at(board, 65534, "abc"), 2);
  EXPECT_EQ(write_at(board, 65536, "abc"), -ENOSPC);
  EXPECT_EQ(board.file("media/flash").size(), 65536u);
}

TEST(MtdModel, erases_whole_blocks_only) {
  ModelHarness board(kFlash);
  ASSERT_EQ(board.open(), 0);
  write_at(board, 4095, "xyz");
  EXPECT_EQ(erase(board, 4096, 4096), 0);
  EXPECT_EQ(board.file("media/flash").substr(4095, 3), "x\xFF\xFF");
  EXPECT_EQ(erase(board, 1, 4096), -EINVAL);
  EXPECT_EQ(erase(board, 0, 100), -EINVAL);
  EXPECT_EQ(erase(board, 0, 0), -EINVAL);
  EXPECT_EQ(erase(board, 61440, 8192), -EINVAL);
  EXPECT_EQ(erase(board, 0, 65536), 0);
  EXPECT_EQ(board.file("media/flash"), std::string(65536, '\xff'));
}

TEST(MtdModel, protection_is_a_feature_of_some_chips) {
  ModelHarness board(kFlash);
  erase_info_user all = {.start = 0, .length = 65536};
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(board.request(MEMLOCK, all), -EOPNOTSUPP);
  board.write_file("dev/node", (std::string(kFlash) + "locks = 1\nprotected = 1\n").c_str());
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(write_at(board, 0, "a"), -EROFS);
  EXPECT_EQ(erase(board, 0, 4096), -EROFS);
  EXPECT_EQ(board.request(MEMUNLOCK, all), 0);
  EXPECT_EQ(write_at(board, 0, "a"), 1);
  EXPECT_EQ(board.request(MEMLOCK, all), 0);
  EXPECT_NE(board.node().find("protected = 1\n"), std::string::npos);
}

TEST(MtdModel, worn_block_does_not_erase) {
  ModelHarness board((std::string(kFlash) + "worn_block = 2\n").c_str());
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(erase(board, 0, 8192), 0);
  EXPECT_EQ(erase(board, 8192, 4096), -EIO);
}

// Interfaces.

namespace {

int address_of(ModelHarness &board, std::string &out) {
  ifreq record = {};
  const int result = board.request(SIOCGIFADDR, record);
  sockaddr_in address;
  memcpy(&address, &record.ifr_addr, sizeof address);
  char text[INET_ADDRSTRLEN] = "";
  if (result == 0 && address.sin_family == AF_INET)
    inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
  out = text;
  return result;
}

}  // namespace

TEST(InterfaceModel, address_is_that_of_its_file) {
  struct Row {
    const char *node;
    int result;
    const char *address;
  };
  for (const Row &row :
       {Row{"ipv4 = 10.64.0.2\n", 0, "10.64.0.2"}, Row{"ipv4 =\n", -EADDRNOTAVAIL, ""},
        Row{"# none\n", -EADDRNOTAVAIL, ""}, Row{"ipv4 = 10.64.0\n", -EADDRNOTAVAIL, ""}}) {
    ModelHarness board((std::string("model = interface\n") + row.node).c_str());
    ASSERT_EQ(board.open(), 0);
    std::string address;
    EXPECT_EQ(address_of(board, address), row.result) << row.node;
    EXPECT_EQ(address, row.address);
  }
}

TEST(Models, every_row_is_found_by_its_name) {
  for (const char *name : {"gyro", "iccard", "lcd", "mtd", "rtc", "socket", "watchdog"}) {
    ASSERT_NE(find_model(name), nullptr) << name;
    EXPECT_STREQ(find_model(name)->name, name);
  }
  EXPECT_EQ(find_model("none"), nullptr);
}
