// Whether a clock runs, judged by the seconds fields of its first and its last of six readings,
// which were taken about one second apart.

#ifndef BENCHRIG_BOARD_RTC_PACE_H
#define BENCHRIG_BOARD_RTC_PACE_H

// Seconds from `first` to `last`, both 0 to 59, over at most one minute boundary. Equal fields
// count as a whole minute: a clock that stands still must not look like one that runs.
constexpr int elapsed_seconds(int first, int last) {
  return last > first ? last - first : last - first + 60;
}

// Six readings span five seconds; one more or less is the jitter of sleeping.
constexpr bool clock_runs(int elapsed) {
  return elapsed >= 4 && elapsed <= 8;
}

#endif
