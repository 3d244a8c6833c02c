// wdt: tests the watchdog at /dev/watchdog: feeds it for a minute, stops it and checks that the
// board stays up, arms it again and lets it reset the board.
//
// The device is closed without the magic close character, so that the watchdog stays armed, and the
// test then counts seconds until the reset: it returns only when it failed. Arguments are ignored,
// and so is SIGINT, by the group.

#include "board/board.h"

#include <fcntl.h>
#include <linux/watchdog.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr int kFeedingTimeout = 10;
constexpr int kFeedingInterval = 6;
constexpr int kFeedings = 10;
constexpr int kStoppedSeconds = 10;
constexpr int kResetTimeout = 15;
constexpr int kFailed = -5;

static_assert(sizeof(watchdog_info) == 40);
static_assert(WDIOC_GETSUPPORT == 0x80285700 && WDIOC_SETOPTIONS == 0x80045704);
static_assert(WDIOC_KEEPALIVE == 0x80045705 && WDIOC_SETTIMEOUT == 0xC0045706);

// Drivers may store the timeout that they took in the word; it is not looked at.
bool set_timeout(int device, int seconds) {
  return ioctl(device, WDIOC_SETTIMEOUT, &seconds) >= 0;
}

bool set_option(int device, int option) {
  return ioctl(device, WDIOC_SETOPTIONS, &option) >= 0;
}

void print_support(int device) {
  watchdog_info info = {};
  if (ioctl(device, WDIOC_GETSUPPORT, &info) < 0)
    puts("Get device infomation  faild!");  // sic
  printf("options=%d,id=%.32s\n", static_cast<int>(info.options),
         reinterpret_cast<const char *>(info.identity));
}

bool feed(int device) {
  if (!set_timeout(device, kFeedingTimeout)) {
    puts("open watchdog faild!");  // sic
    return false;
  }
  printf("set wdt timeout  %d\n", kFeedingTimeout);
  printf("Feed the dog interval %d seconds.\n", kFeedingInterval);

  for (int fed = 1; fed <= kFeedings; ++fed) {
    sleep(kFeedingInterval);
    int unused = 0;
    if (ioctl(device, WDIOC_KEEPALIVE, &unused) < 0) {
      puts("feed watchdog faild!");  // sic
      return false;
    }
    printf("Wdt fed %d times \n", fed);
  }
  puts("");
  return true;
}

bool stay_up_while_stopped(int device) {
  if (!set_option(device, WDIOS_DISABLECARD)) {
    puts("close watchdog faild!");  // sic
    return false;
  }
  puts("The WDT has been closed!");
  printf("Check whether it can remain normal after %d seconds:\n", kStoppedSeconds);
  for (int left = kStoppedSeconds; left > 0; --left) {
    printf("%d seconds!\n", left);
    sleep(1);
  }
  puts("");
  return true;
}

bool arm_for_reset(int device) {
  if (!set_option(device, WDIOS_ENABLECARD)) {
    puts("open the wdt faild!");  // sic
    return false;
  }
  puts("watchdog was reopen!");
  if (!set_timeout(device, kResetTimeout)) {
    puts("set timeout failed!");
    return false;
  }
  printf("set timeout %d seconds.\n", kResetTimeout);
  return true;
}

// Ends with the board. The printing also keeps the loop from being optimised away.
[[noreturn]] void await_reset() {
  printf("If the device resets after %d seconds, the test is successful\xA3\xA1\n",  // GB2312: ！
         kResetTimeout);
  for (unsigned int passed = 1;; ++passed) {
    sleep(1);
    printf("%d seconds!\n", static_cast<int>(passed));
  }
}

}  // namespace

int wdt_main([[maybe_unused]] int argc, [[maybe_unused]] char **argv) {
  const int device = open("/dev/watchdog", O_RDWR);
  if (device < 0) {
    puts("open device faild!");  // sic
    return -1;
  }
  print_support(device);

  const bool armed = feed(device) && stay_up_while_stopped(device) && arm_for_reset(device);
  if (close(device) == 0 && armed)
    await_reset();
  if (armed) {
    puts("close device failed!");
    close(device);  // once more, as after every failure
  }
  puts("");
  return kFailed;
}
