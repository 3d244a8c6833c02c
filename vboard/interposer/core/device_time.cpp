#include "vboard/interposer/core/device_time.h"

#include "vboard/base/decimal.h"
#include "vboard/base/text.h"
#include "vboard/board/settings.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/power_cut.h"
#include "vboard/interposer/core/state.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>

namespace vboard {

namespace {

// What the thread had blocked before its device began to work.
__thread sigset_t kept_mask __attribute__((tls_model("initial-exec")));
__thread bool blocks_signals __attribute__((tls_model("initial-exec")));

void pass(BoardTime duration) {
  if (duration <= 0)
    return;
  sigset_t all;
  sigfillset(&all);
  if (!blocks_signals)
    pthread_sigmask(SIG_SETMASK, &all, &kept_mask);
  blocks_signals = true;
  int cancel_state;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);
  Wait wait;
  wait.deadline = deadline_after(duration);
  // A debugger, or SIGSTOP and SIGCONT, may interrupt it all the same.
  while (wait_on_board(wait) == WaitEnd::kInterrupted) {
  }
  pthread_setcancelstate(cancel_state, nullptr);
}

// No device takes longer: thirty years.
constexpr BoardTime kLongest = 1'000'000'000 * kSecond;

// How long after its time a piece of work counts as unfinished: a second of the PC, or of a clock
// that jumps. Its thread may be late on a busy machine, or may have been killed.
BoardTime lateness() {
  return jumping() ? kSecond : board_duration({1, 0});
}

// The place of a device that works, or null.
BusyDevice *find_work(std::uint64_t name) {
  for (BusyDevice &place : run_page().busy) {
    if (place.name == name && place.until + lateness() > current_time())
      return &place;
  }
  return nullptr;
}

// Takes a place that is free, or whose work is over. Null when all are taken: the device counts as
// idle then.
BusyDevice *begin_work(std::uint64_t name, BoardTime until) {
  RunPage &page = run_page();
  page.busy_until = std::max<std::int64_t>(page.busy_until, until + lateness());
  for (BusyDevice &place : page.busy) {
    if (place.name == 0 || place.until + lateness() <= current_time()) {
      place = {name, until};
      return &place;
    }
  }
  return nullptr;
}

}  // namespace

void take_device_time(const Description &description, BoardTime duration, Progress progress) {
  const bool fails = power_fails() && progress.done == progress.all / 2;
  if (fails)
    duration /= 2;
  if (duration > 0) {
    const BoardTime until = deadline_after(std::min(duration, kLongest));
    BusyDevice *place = begin_work(text_hash(description.real), until);
    unlock_devices();
    pass(duration);
    lock_devices();
    if (place != nullptr && place->until == until)
      *place = {};
  }
  if (fails)
    end_power_if_failing();
}

void wait_for_turn(const Description &description) {
  if (run_page().busy_until <= current_time())
    return;
  BoardTime late = kCallCost;
  while (const BusyDevice *work = find_work(text_hash(description.real))) {
    const BoardTime rest = work->until - current_time();
    unlock_devices();
    // It ends when the caller of the device has run again.
    pass(rest > 0 ? rest : late);
    lock_devices();
    if (rest <= 0)
      late *= 2;
  }
}

BoardTime line_time(const Description &description, std::size_t bytes) {
  if (description.kind != Kind::kModel)
    return 0;
  constexpr std::string_view key = "byte_us";
  const Setting &row = *find_setting(common_settings(), key);
  const double byte_us = decimal_or(setting_of(description.file.node, row, key), 0);
  const double nanoseconds = byte_us * 1000 * static_cast<double>(bytes);
  return static_cast<BoardTime>(std::min(nanoseconds, static_cast<double>(kLongest)));
}

void pass_line_time(const Description &description, std::size_t bytes) {
  pass(line_time(description, bytes));
}

void end_device_work() {
  if (!blocks_signals)
    return;
  blocks_signals = false;
  pthread_sigmask(SIG_SETMASK, &kept_mask, nullptr);
}

}  // namespace vboard
