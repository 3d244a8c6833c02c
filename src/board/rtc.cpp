// rtc: tests that the clock at /dev/rtc0 runs, and that it runs on after it was set.
//
// The test leaves the clock at 2015-04-01 08:57:23 plus the few seconds that passed. A clock that
// stands still or cannot be read ends the test early, and its status is 0 all the same: the printed
// lines are the verdict. Any word in place of "autotest" runs the test without its banners.

#include "board/board.h"
#include "board/rtc_pace.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/rtc.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>

namespace {

constexpr char kUsage[] = "\ninput error!!!\n";

// GB2312 texts, as bytes, so that no editor changes them.
constexpr char kRuns[] =
    "RTC\xD7\xDF\xCA\xB1\xB2\xE2\xCA\xD4\xB3\xC9\xB9\xA6\xA1\xA3";  // RTC走时测试成功。 the RTC
                                                                    // runs
constexpr char kSetting[] =
    "\xC9\xE8\xD6\xC3RTC\xCA\xB1\xBC\xE4: 2015-04-01 08:57:23";  // 设置RTC时间: setting the RTC
constexpr char kAfterSetting[] =  // 测试设置后的走时: running after it was set
    "\xB2\xE2\xCA\xD4\xC9\xE8\xD6\xC3\xBA\xF3\xB5\xC4\xD7\xDF\xCA\xB1:";
constexpr char kReadFailed[] =
    "\xB6\xC1\xC8\xA1RTC\xCA\xA7\xB0\xDC";  // 读取RTC失败 reading the RTC failed
constexpr char kCloseFailed[] =
    "\xB9\xD8\xB1\xD5\xCE\xC4\xBC\xFE\xCA\xA7\xB0\xDC!";  // 关闭文件失败! closing the file failed

using Readings = std::array<int, 6>;

static_assert(sizeof(rtc_time) == 36);
static_assert(RTC_RD_TIME == 0x80247009 && RTC_SET_TIME == 0x4024700A);

// 2015-04-01 08:57:23; the fields that the clock works out itself are 0.
constexpr rtc_time time_to_set() {
  rtc_time time = {};
  time.tm_year = 2015 - 1900;
  time.tm_mon = 4 - 1;
  time.tm_mday = 1;
  time.tm_hour = 8;
  time.tm_min = 57;
  time.tm_sec = 23;
  return time;
}

void print_time(const rtc_time &time) {
  printf("%04d-%02d-%02d %02d:%02d:%02d\n", time.tm_year + 1900, time.tm_mon + 1, time.tm_mday,
         time.tm_hour, time.tm_min, time.tm_sec);
}

// Prints six readings, a second apart, and stores their seconds fields. False as soon as one fails.
bool watch_clock(int device, Readings &out_seconds) {
  for (int &seconds : out_seconds) {
    rtc_time time = {};
    if (ioctl(device, RTC_RD_TIME, &time) != 0)
      return false;
    print_time(time);
    seconds = time.tm_sec;
    sleep(1);
  }
  return true;
}

void test_clock(int device) {
  Readings seconds = {};
  if (!watch_clock(device, seconds)) {
    puts("rtc rd time faid");  // sic
    return;
  }
  if (!clock_runs(elapsed_seconds(seconds.front(), seconds.back())))
    return;
  puts(kRuns);

  puts(kSetting);
  const rtc_time time = time_to_set();
  const int result = ioctl(device, RTC_SET_TIME, &time);
  if (result != 0)
    printf("ret:%d, errno:%d\n", result, errno);
  sleep(1);

  puts(kAfterSetting);
  if (!watch_clock(device, seconds))
    puts(kReadFailed);
}

}  // namespace

int rtc_main(int argc, char **argv) {
  if (argc > 2) {
    fputs(kUsage, stderr);
    return -1;
  }
  const bool alone = argc < 2;
  const bool unattended = !alone && strcmp(argv[1], "autotest") == 0;
  if (alone)
    puts("\nRTC START TEST!");
  else if (unattended)
    puts("\nRTC START AUTOTEST!");

  const int device = open("/dev/rtc0", O_RDWR);
  if (device < 0) {
    puts("open rtc0 failed");
    return -1;
  }
  test_clock(device);
  if (close(device) != 0) {
    puts(kCloseFailed);
    return -1;
  }

  if (alone)
    puts("\nRTC TEST FINISH!");
  else if (unattended)
    puts("\nRTC AUTOTEST FINISH!");
  return 0;
}
