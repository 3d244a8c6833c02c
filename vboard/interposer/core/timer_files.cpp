#include "vboard/interposer/core/timer_files.h"

#include "vboard/base/calendar.h"
#include "vboard/base/kernel.h"
#include "vboard/interposer/core/device_lock.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/shared_files.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/models/host.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>

#include <algorithm>

namespace vboard {

namespace {

struct TimerState {
  std::int32_t clock;
  // The expiry is a time of the calendar, which may be set, and not one of the board's own time.
  bool by_calendar;
  bool ends_with_calendar;
  bool is_set;
  std::int64_t expiry;          // the first one that has not been read
  std::int64_t interval;        // 0 for a single expiry
  std::int64_t calendar_start;  // as it was when the timer was set
};

std::int64_t timer_now(const TimerState &state, BoardTime now) {
  return state.by_calendar ? calendar_after(run_page().calendar_start.load(), now) : now;
}

bool has_ended_with_calendar(const TimerState &state) {
  return state.ends_with_calendar && state.calendar_start != run_page().calendar_start.load();
}

// How many expiries there have been that nobody has read.
std::uint64_t count_expiries(const TimerState &state, std::int64_t now) {
  if (!state.is_set || now < state.expiry)
    return 0;
  return state.interval == 0
             ? 1
             : 1 + static_cast<std::uint64_t>((now - state.expiry) / state.interval);
}

// The expiry that follows so many others.
std::int64_t expiry_after(const TimerState &state, std::uint64_t count) {
  if (count == 0)
    return state.expiry;
  const std::int64_t last = state.expiry + static_cast<std::int64_t>(count - 1) * state.interval;
  return saturated_sum(last, state.interval);
}

// What has been read does not count again.
void skip_expiries(TimerState &state, std::uint64_t count) {
  if (state.interval == 0)
    state.is_set = false;
  else
    state.expiry = expiry_after(state, count);
}

Readiness timer_ready(OpenFile &file, short events, BoardTime now) {
  const TimerState &state = state_of<TimerState>(file);
  const std::int64_t time = timer_now(state, now);
  if (has_ended_with_calendar(state) || count_expiries(state, time) > 0)
    return {.events = static_cast<short>(events & POLLIN)};
  return {.events = 0,
          .next = state.is_set ? saturated_sum(now, saturated_sum(state.expiry, -time)) : kNever};
}

ssize_t timer_read(OpenFile &file, const UserMemory &to, std::int64_t) {
  TimerState &state = state_of<TimerState>(file);
  if (has_ended_with_calendar(state)) {
    state.calendar_start = run_page().calendar_start.load();
    return -ECANCELED;
  }
  const std::uint64_t count = count_expiries(state, timer_now(state, current_time()));
  if (count == 0)
    return -EAGAIN;
  const ssize_t given = give(to, &count, sizeof count);
  if (given > 0)
    skip_expiries(state, count);
  return given;
}

}  // namespace

extern constexpr Model kTimerModel = {
    .name = kTimerFile,
    .read = timer_read,
    .ready = timer_ready,
    .least_read = sizeof(std::uint64_t),
};

int open_timer(clockid_t clock, int flags) {
  Description *description = new_description(Kind::kModel, kTimerFile, kTimerFile, flags | O_RDWR);
  if (description == nullptr)
    return -ENFILE;
  description->file.model = &kTimerModel;
  state_of<TimerState>(description->file).clock = clock;
  const int fd = open_stand_in(*description->shared, flags);
  const int result = fd < 0 ? fd : attach(description, fd);
  if (result >= 0)
    return fd;
  if (fd >= 0)
    sys_close(fd);
  free_description(description);
  return result;
}

void set_timer_file(Description &timer, const TimerSetting &setting) {
  const DeviceLock lock;
  TimerState &state = state_of<TimerState>(timer.file);
  const bool of_calendar = state.clock == CLOCK_REALTIME || state.clock == CLOCK_REALTIME_ALARM;
  state.by_calendar = setting.is_absolute && of_calendar;
  state.ends_with_calendar = state.by_calendar && setting.ends_with_calendar;
  state.is_set = setting.first != 0;
  state.interval = setting.interval;
  state.calendar_start = run_page().calendar_start.load();
  if (state.by_calendar)
    state.expiry = setting.first;
  else if (setting.is_absolute)
    state.expiry = saturated_sum(setting.first, -run_page().monotonic_start);
  else
    state.expiry = deadline_after(setting.first);
}

void get_timer_file(Description &timer, BoardTime &rest, BoardTime &interval) {
  const DeviceLock lock;
  const TimerState &state = state_of<TimerState>(timer.file);
  const std::int64_t now = timer_now(state, current_time());
  interval = state.interval;
  const std::uint64_t count = count_expiries(state, now);
  if (!state.is_set || (count > 0 && state.interval == 0)) {
    rest = 0;
    return;
  }
  rest = std::max<BoardTime>(saturated_sum(expiry_after(state, count), -now), 1);
}

void wake_timer_files() {
  run_page().changes.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace vboard
