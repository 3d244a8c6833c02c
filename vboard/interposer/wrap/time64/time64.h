// 64-bit time on a 32-bit machine: the names that a program imports when it is built with it. Each
// wrapper of this folder turns its records into those of the wrapper for 32-bit time and calls
// that. The headers' own records are the 64-bit ones here, so this one comes before all others.

#ifndef VBOARD_INTERPOSER_WRAP_TIME64_TIME64_H
#define VBOARD_INTERPOSER_WRAP_TIME64_TIME64_H

#define _TIME_BITS 64
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"
#include "vboard/interposer/models/model.h"

#include <errno.h>
#include <sys/time.h>
#include <time.h>
#include <utime.h>

#include <cstdint>

// Declares the wrapper for 32-bit time by the name vboard_narrow_NAME.
#define NARROW(result, name, ...) extern "C" result vboard_narrow_##name(__VA_ARGS__) __asm__(#name)

namespace vboard {

static_assert(sizeof(time_t) == 8);

struct Time32 {
  std::int32_t seconds;
  std::int32_t part;  // nanoseconds of a timespec, microseconds of a timeval
};

struct Interval32 {
  Time32 interval, value;
};

struct FileTimes32 {
  std::int32_t access, modification;
};

// A time beyond the year 2038 is as far away as 32 bits can say.
inline std::int32_t clamp(std::int64_t value) {
  return static_cast<std::int32_t>(value > INT32_MAX   ? INT32_MAX
                                   : value < INT32_MIN ? INT32_MIN
                                                       : value);
}

inline Time32 narrow(const timespec &time) {
  return {clamp(time.tv_sec), clamp(time.tv_nsec)};
}

inline Time32 narrow(const timeval &time) {
  return {clamp(time.tv_sec), clamp(time.tv_usec)};
}

inline Interval32 narrow(const itimerspec &timer) {
  return {narrow(timer.it_interval), narrow(timer.it_value)};
}

inline Interval32 narrow(const itimerval &timer) {
  return {narrow(timer.it_interval), narrow(timer.it_value)};
}

inline void widen(const Time32 &time, timespec &out) {
  out.tv_sec = time.seconds;
  out.tv_nsec = time.part;
}

inline void widen(const Time32 &time, timeval &out) {
  out.tv_sec = time.seconds;
  out.tv_usec = time.part;
}

template <typename Timer>
void widen(const Interval32 &timer, Timer &out) {
  widen(timer.interval, out.it_interval);
  widen(timer.value, out.it_value);
}

// A record that goes in, with null for null.
template <typename Narrow>
struct In {
  Narrow record = {};
  const Narrow *pointer = nullptr;

  template <typename Wide>
  explicit In(const Wide *wide) {
    if (wide != nullptr) {
      record = narrow(*wide);
      pointer = &record;
    }
  }
};

// A record that comes out; `wide` holds it in full width at the end of the call.
template <typename Narrow, typename Wide>
struct Out {
  Wide *wide;
  Narrow record = {};
  Narrow *pointer = nullptr;

  explicit Out(Wide *given) : wide(given) {
    if (wide != nullptr)
      pointer = &record;
  }
  void store() {
    if (wide != nullptr)
      widen(record, *wide);
  }
};

inline timespec timespec_of_board(std::int64_t nanoseconds) {
  timespec time = {};
  time.tv_sec = nanoseconds / kSecond;
  time.tv_nsec = static_cast<long>(nanoseconds % kSecond);
  return time;
}

// Access and modification.
template <typename Wide>
struct FileTimes {
  Time32 pair[2] = {};
  const Time32 *pointer = nullptr;

  explicit FileTimes(const Wide *wide) {
    if (wide != nullptr) {
      pair[0] = narrow(wide[0]);
      pair[1] = narrow(wide[1]);
      pointer = pair;
    }
  }
};

}  // namespace vboard

#endif
