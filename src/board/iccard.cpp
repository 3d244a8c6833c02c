// iccard: the IC card reader behind /dev/iccard. Reads or writes the card's 256 bytes, has an
// operator pull and insert the card ten times, and tests itself with random blocks ("autotest").
//
// The node exists while a card is in the slot, so the insertion test only asks whether it is there.
// The autotest's status is 0 whatever it found: its verdict line tells.

#include "board/board.h"

#include "app/build_stamp.h"
#include "board/iccard.h"
#include "platform/driver/iccard.h"

#include <sys/ioctl.h>

#include <fcntl.h>
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr int kHotplugRounds = 10;
constexpr int kHotplugTries = 10;
constexpr int kPasses = 10;
constexpr std::uint8_t kPattern = 5;

void iccard_usage(const char *name) {
  puts("");
  puts("------KORVEXIUM iccard test tools:\t------");
  printf("------BUILD: %s-%s  ------\n", build_date(), build_time());
  puts("");
  printf("1. %s -h          : print this info.\n", name);
  printf("2. %s -r          : get the iccard data\n", name);
  printf("3. %s -w          : set the iccard data\n", name);
  printf("4. %s -c          : iccard register test\n", name);
  printf("5. %s autotest    : iccard autotest\n", name);
}

void read_card(int device) {
  std::uint8_t data[ICCARD_SIZE] = {};
  if (ioctl(device, HAL_ICCARD_READ, data) < 0) {
    puts("HAL_ICCARD_READ set failure.");
    return;
  }
  puts("HAL_ICCARD_READ sucess, Val is :");  // sic
  for (const std::uint8_t byte : data)
    printf("%d    ", byte);  // the line stays open
}

void write_card(int device) {
  std::uint8_t data[ICCARD_SIZE];
  memset(data, kPattern, sizeof data);
  if (ioctl(device, HAL_ICCARD_WRITE, data) < 0)
    puts("HAL_ICCARD_WRITE set failure.");
  else
    puts("HAL_ICCARD_WRITE sucess");  // sic
}

// Looks once a second for the card to be in or out, while `tries` is below its limit; true when it
// is. `tries` goes on counting from where it stood.
bool wait_for_card(bool wanted, int &tries) {
  while (tries < kHotplugTries) {
    const bool present = access(ICCARD_DEVICE, F_OK) == 0;
    ++tries;
    if (present == wanted)
      return true;
    sleep(1);
  }
  return false;
}

// `tries` is shared by both waits and reset by a successful one only: once a wait has timed out,
// the later rounds print their two prompts without waiting and the test fails.
void iccard_hotplug_test() {
  int unplugged = 0;
  int plugged = 0;
  int tries = 0;
  puts("*************start hotplug iccard test*************");
  for (int round = 0; round < kHotplugRounds; ++round) {
    puts("*************please unplug iccard*************");
    const bool removed = wait_for_card(false, tries);
    if (removed) {
      ++unplugged;
      tries = 0;
    }
    puts("*************please plug iccard*************");
    if (removed && wait_for_card(true, tries)) {
      ++plugged;
      tries = 0;
    }
  }
  print_hotplug_verdict(unplugged, plugged);
}

// Writes, reads back and compares random blocks; 0 when all passes held, else the result of the
// request that ended the test. A block that came back different ends it with the read request's
// result, which is no failure: `passes` below kPasses tells.
int write_and_compare(int device, int &passes) {
  for (passes = 0; passes < kPasses; ++passes) {
    std::uint8_t written[ICCARD_SIZE];
    std::uint8_t read_back[ICCARD_SIZE] = {};
    srand(static_cast<unsigned int>(time(nullptr)));  // anew in every pass
    for (std::uint8_t &byte : written)
      byte = static_cast<std::uint8_t>(rand());

    int result = ioctl(device, HAL_ICCARD_WRITE, written);
    if (result < 0) {
      puts("HAL_ICCARD_WRITE set failure.");
      return result;
    }
    puts("HAL_ICCARD_WRITE sucess ");  // sic
    sleep(1);
    result = ioctl(device, HAL_ICCARD_READ, read_back);
    if (result < 0) {
      puts("HAL_ICCARD_READ set failure.");
      return result;
    }
    puts("HAL_ICCARD_READ sucess ");  // sic
    const int at = find_difference(read_back, written);
    if (at >= 0) {
      printf("r_buf[%d] = %d w_buf[%d] =%d\n", at, read_back[at], at, written[at]);
      return result;
    }
  }
  return 0;
}

int iccard_rw_test() {
  puts("*************start read write iccard test*************");
  const int device = open(ICCARD_DEVICE, O_RDWR);
  if (device < 0) {
    printf("open %s error\n", ICCARD_DEVICE);
    puts("*************read write iccard fail!*************");
    return -1;
  }
  int passes = 0;
  const int result = write_and_compare(device, passes);
  close(device);
  if (passes == kPasses)
    printf("*************read write iccard pass(%d)!*************\n", passes);
  else
    printf("*************read write iccard fail(%d)!*************\n", passes);
  return result;
}

int run_options(int device, int argc, char **argv) {
  int option;
  optind = 0;
  while ((option = getopt(argc, argv, "hrwc")) != -1) {
    switch (option) {
      case 'r':
        read_card(device);
        break;
      case 'w':
        write_card(device);
        break;
      case 'c':
        iccard_hotplug_test();
        break;
      case 'h':
        iccard_usage(argv[0]);
        return -1;
      default:
        break;
    }
  }
  return 0;
}

}  // namespace

int find_difference(std::span<const std::uint8_t> read, std::span<const std::uint8_t> written) {
  for (std::size_t i = 0; i < read.size(); ++i) {
    if (read[i] != written[i])
      return static_cast<int>(i);
  }
  return -1;
}

void print_hotplug_verdict(int unplugged, int plugged) {
  // The exclamation mark behind the verdict is the full-width one, U+FF01, in UTF-8.
  if (unplugged == kHotplugRounds && plugged == kHotplugRounds)
    printf("*********iccard  hotplug test pass(%d)！*********\n", plugged);
  else
    printf("*********iccard  hotplug test fail！unplug(%d) plug(%d) *********\n", unplugged,
           plugged);
}

int iccard_main(int argc, char **argv) {
  if (argc < 2) {
    iccard_usage(argv[0]);
    return -1;
  }
  if (argc == 2 && strcmp(argv[1], "autotest") == 0) {
    iccard_rw_test();
    return 0;
  }
  const int device = open(ICCARD_DEVICE, O_RDWR);
  if (device < 0)
    printf("open %s error\n", ICCARD_DEVICE);  // the options run all the same, and fail
  const int status = run_options(device, argc, argv);
  if (device >= 0)
    close(device);
  return status;
}
