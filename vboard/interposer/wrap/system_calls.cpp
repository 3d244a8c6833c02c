// Wraps syscall.
//
// Of the calls that a program makes by their numbers, those that wait or ask for the time count in
// board time. All others are the kernel's.

#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/wrap.h"
#include "vboard/interposer/wrap/deadlines.h"
#include "vboard/interposer/wrap/futexes.h"

#include <errno.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>

#include <cstdint>

using namespace vboard;

DECLARE_WRAPPED(long, syscall, long, long, long, long, long, long, long);
DECLARE_WRAPPED(int, nanosleep, const timespec *, timespec *);
DECLARE_WRAPPED(int, clock_nanosleep, clockid_t, int, const timespec *, timespec *);
DECLARE_WRAPPED(int, clock_gettime, clockid_t, timespec *);
DECLARE_WRAPPED(int, gettimeofday, timeval *, void *);
DECLARE_WRAPPED(time_t, time, time_t *);

namespace {

// The kernel's record of time for the calls that a 32-bit machine has beside those of its own
// width.
struct WideTime {
  std::int64_t tv_sec;
  std::int64_t tv_nsec;
};

// The six arguments of a call by number.
struct Words {
  long values[6];

  template <typename Record>
  Record *record(int index) const {
    return reinterpret_cast<Record *>(values[index]);
  }
};

long call_kernel(long number, const Words &words) {
  const long(&at)[6] = words.values;
  return REAL(syscall)(number, at[0], at[1], at[2], at[3], at[4], at[5]);
}

template <typename Time>
timespec program_time(const Time &time) {
  timespec out = {};
  out.tv_sec = static_cast<time_t>(time.tv_sec);
  // Kept wrong when it is, for the wrapper to refuse.
  out.tv_nsec = time.tv_nsec < 0 || time.tv_nsec >= kSecond ? -1 : static_cast<long>(time.tv_nsec);
  return out;
}

template <typename Time>
void store_time(const timespec &time, Time *out) {
  if (out == nullptr)
    return;
  out->tv_sec = time.tv_sec;
  out->tv_nsec = time.tv_nsec;
}

// Waiting for a word. `clock` and `absolute` say what the limit is.
struct WordLimit {
  bool absolute;
  clockid_t clock;
};

// At a fixed speed the wait is the kernel's, with its limit on the PC's clock.
template <typename Time>
long wait_in_kernel(long number, Words words, const WordLimit &kind, const timespec &limit) {
  const timespec pc = kind.absolute ? pc_moment(board_moment(kind.clock, limit))
                                    : pc_duration(nanoseconds_of(limit));
  Time record;
  store_time(pc, &record);
  words.values[1] &= ~long{FUTEX_CLOCK_REALTIME};
  words.values[3] = reinterpret_cast<long>(&record);
  return call_kernel(number, words);
}

template <typename Time>
long wait_word(long number, const Words &words, std::uint32_t bits, const WordLimit &kind) {
  const Time *given = words.record<Time>(3);
  const timespec limit = given != nullptr ? program_time(*given) : timespec{};
  if (bits == 0 || !is_valid_time(limit))
    return report<long>(-EINVAL);
  if (!jumping())
    return given != nullptr ? wait_in_kernel<Time>(number, words, kind, limit)
                            : call_kernel(number, words);
  BoardTime deadline = kNever;
  if (given != nullptr)
    deadline =
        kind.absolute ? board_moment(kind.clock, limit) : deadline_after(nanoseconds_of(limit));
  for (;;) {
    const int result = wait_for_word(words.record<std::uint32_t>(0),
                                     static_cast<std::uint32_t>(words.values[2]), bits, deadline);
    if (result == -ENOSYS)
      return call_kernel(number, words);
    if (result != -EINTR || !handlers_restart())
      return report<long>(result);
  }
}

// Those who wait in the kernel are woken as well: libc waits there by itself.
long wake_words(long number, const Words &words, std::uint32_t bits) {
  const int most = static_cast<int>(words.values[2]);
  const int count = wake_word(words.record<std::uint32_t>(0), most, bits);
  if (count > 0 && count >= most)
    return count;
  Words rest = words;
  rest.values[2] = most - count;
  const long more = call_kernel(number, rest);
  return more < 0 ? more : more + count;
}

template <typename Time>
long call_futex(long number, const Words &words) {
  const long operation = words.values[1];
  const std::uint32_t bits = static_cast<std::uint32_t>(words.values[5]);
  const clockid_t clock =
      (operation & FUTEX_CLOCK_REALTIME) != 0 ? CLOCK_REALTIME : CLOCK_MONOTONIC;
  switch (operation & FUTEX_CMD_MASK) {
    case FUTEX_WAIT:
      return wait_word<Time>(number, words, FUTEX_BITSET_MATCH_ANY, {false, clock});
    case FUTEX_WAIT_BITSET:
      return wait_word<Time>(number, words, bits, {true, clock});
    case FUTEX_WAKE:
      return jumping() ? wake_words(number, words, FUTEX_BITSET_MATCH_ANY)
                       : call_kernel(number, words);
    case FUTEX_WAKE_BITSET:
      return jumping() && bits != 0 ? wake_words(number, words, bits) : call_kernel(number, words);
    default:
      return call_kernel(number, words);
  }
}

template <typename Time>
long call_clock_nanosleep(const Words &words) {
  const timespec request = program_time(*words.record<const Time>(2));
  timespec rest = {};
  const int error = vboard_clock_nanosleep(static_cast<clockid_t>(words.values[0]),
                                           static_cast<int>(words.values[1]), &request, &rest);
  if (error == EINTR && (words.values[1] & TIMER_ABSTIME) == 0)
    store_time(rest, words.record<Time>(3));
  return report<long>(-error);
}

long call_nanosleep(const Words &words) {
  return vboard_nanosleep(words.record<const timespec>(0), words.record<timespec>(1));
}

template <typename Time>
long call_clock_gettime(const Words &words) {
  timespec now;
  const int result = vboard_clock_gettime(static_cast<clockid_t>(words.values[0]), &now);
  if (result == 0)
    store_time(now, words.record<Time>(1));
  return result;
}

long call_on_board(long number, const Words &words) {
  switch (number) {
    case SYS_futex:
      return call_futex<timespec>(number, words);
    case SYS_nanosleep:
      return call_nanosleep(words);
    case SYS_clock_nanosleep:
      return call_clock_nanosleep<timespec>(words);
    case SYS_clock_gettime:
      return call_clock_gettime<timespec>(words);
    case SYS_gettimeofday:
      return vboard_gettimeofday(words.record<timeval>(0), words.record<void>(1));
#ifdef SYS_time
    case SYS_time:
      return vboard_time(words.record<time_t>(0));
#endif
#ifdef SYS_futex_time64
    case SYS_futex_time64:
      return call_futex<WideTime>(number, words);
    case SYS_clock_nanosleep_time64:
      return call_clock_nanosleep<WideTime>(words);
    case SYS_clock_gettime64:
      return call_clock_gettime<WideTime>(words);
#endif
    default:
      return call_kernel(number, words);
  }
}

}  // namespace

// libc declares it with any number of arguments; it hands six of them on.
WRAP(long, syscall, long number, long first, long second, long third, long fourth, long fifth,
     long sixth) {
  const Words words = {{first, second, third, fourth, fifth, sixth}};
  return on_board() ? call_on_board(number, words) : call_kernel(number, words);
}
