// What an event of the block trace costs between the driver and the disk: formatting its line and
// writing it, without the look-up of the process name and without the sync.
//
// usage: block_event FILE
//
// Each round does the same number of lines in every way, by turns, and starts the file anew; the
// medians of the rounds are compared. Writing a line that is ready is what no formatting could go
// below, so it is the first line, and the ratios are to it.

#include "storage/block_event.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

namespace {

constexpr int kRounds = 201;
constexpr int kLines = 2000;

std::size_t ready_line(const StorTraceEvent &, char (&)[kEventLineSize]) {
  return 0;  // the line of the round before is still there
}

std::size_t event_line(const StorTraceEvent &event, char (&out)[kEventLineSize]) {
  return format_event("mmcblk0", "kworker/0:1", event, out);
}

// The same columns from texts that are ready and numbers alone: what the C library takes for them.
std::size_t plain_line(const StorTraceEvent &event, char (&out)[kEventLineSize]) {
  const int length =
      snprintf(out, sizeof out, "%-20s%-20llu%-20s%-3s%-20llu%-10u%-16s%-5x\n", "mmcblk0",
               static_cast<unsigned long long>(event.time), "kworker/0:1", "Q",
               static_cast<unsigned long long>(event.sector), event.bytes / 512, "WS", event.error);
  return static_cast<std::size_t>(length) + 1;
}

struct Way {
  const char *name;
  std::size_t (*line)(const StorTraceEvent &event, char (&out)[kEventLineSize]);
  bool writes;
};

constexpr Way kWays[] = {
    {"write a ready line", ready_line, true},
    {"format an event", event_line, false},
    {"snprintf the same columns", plain_line, false},
    {"format and write an event", event_line, true},
};

double seconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

StorTraceEvent make_event(int number) {
  StorTraceEvent event = {};
  event.action = STOR_TRACE_WRITE | STOR_TRACE_SYNC | 1;
  event.time = 1'000'000'000ULL + 104'729ULL * static_cast<unsigned int>(number);
  event.sector = 2048ULL + 8ULL * static_cast<unsigned int>(number);
  event.bytes = 4096;
  return event;
}

// Seconds for a round, or a negative number when the file could not be written.
double time_round(const Way &way, int file) {
  char line[kEventLineSize];
  const std::size_t ready = event_line(make_event(0), line);
  if (ftruncate(file, 0) != 0 || lseek(file, 0, SEEK_SET) != 0)
    return -1;
  const double start = seconds();
  for (int i = 0; i < kLines; ++i) {
    std::size_t size = way.line(make_event(i), line);
    size = size == 0 ? ready : size;
    asm volatile("" : : "r"(line) : "memory");  // nobody reads it when it is not written
    if (way.writes && write(file, line, size) != static_cast<ssize_t>(size))
      return -1;
  }
  return seconds() - start;
}

}  // namespace

int main(int argc, char **argv) {
  const int file = argc == 2 ? open(argv[1], O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644) : -1;
  if (file < 0) {
    fprintf(stderr, "usage: block_event FILE\n");
    return 1;
  }
  static double times[std::size(kWays)][kRounds];
  for (int round = 0; round < kRounds; ++round) {
    for (std::size_t way = 0; way < std::size(kWays); ++way) {
      times[way][round] = time_round(kWays[way], file);
      if (times[way][round] < 0) {
        perror("block_event");
        return 1;
      }
    }
  }
  for (std::size_t way = 0; way < std::size(kWays); ++way) {
    std::nth_element(times[way], times[way] + kRounds / 2, times[way] + kRounds);
    printf("%-34s %5.3f\n", kWays[way].name, times[way][kRounds / 2] / times[0][kRounds / 2]);
  }
  close(file);
  return 0;
}
