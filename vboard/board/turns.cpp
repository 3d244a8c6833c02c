#include "vboard/board/turns.h"

#include "vboard/base/bell.h"
#include "vboard/base/process_status.h"
#include "vboard/base/text.h"

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

namespace vboard {

namespace {

// When the next text is to be typed.
std::int64_t next_text(const RunPage &page) {
  const std::uint32_t index = page.texts_due.load(std::memory_order_relaxed);
  return index < std::min(page.text_count, kMaxTexts) ? page.text_times[index] : kNoTime;
}

bool may_signal(const Passer &passer, pid_t process) {
  return process > 0 && (passer.may_signal == nullptr || passer.may_signal(process));
}

void send_signal(pid_t process, int number) {
  const int kept = errno;
  syscall(SYS_kill, process, number);
  errno = kept;
}

void send_timer_signal(const RunTimer &timer) {
  if (timer.notify != SIGEV_SIGNAL && timer.notify != SIGEV_THREAD_ID)
    return;
  if (timer.id == kAlarm) {
    send_signal(timer.process, timer.signal);
    return;
  }
  siginfo_t info = {};
  info.si_signo = timer.signal;
  info.si_code = SI_TIMER;
  info.si_pid = timer.process;
  info.si_uid = getuid();
  info.si_value.sival_ptr = reinterpret_cast<void *>(static_cast<std::uintptr_t>(timer.value));
  const int kept = errno;
  if (timer.notify == SIGEV_SIGNAL)
    syscall(SYS_rt_sigqueueinfo, timer.process, timer.signal, &info);
  else
    syscall(SYS_rt_tgsigqueueinfo, timer.process, timer.thread, timer.signal, &info);
  errno = kept;
}

void give(Schedule &schedule, std::int32_t index, const Passer &passer) {
  schedule.holder = index;
  if (index != passer.seat)
    ring_bell(passer.bell, schedule.seats[index].bell);
}

// Those that wait for descriptors of the kernel's poll them from now on.
void let_all_poll(const Schedule &schedule, const Passer &passer) {
  for (const Seat &seat : seats_of(schedule)) {
    if (seat.use == Seat::kWaits && index_of(schedule, seat) != passer.seat)
      ring_bell(passer.bell, seat.bell);
  }
}

// A thread that slept outside of the schedule may have been woken by what the last one did: it gets
// the baton for the call that it is about to make.
bool give_to_awake(Schedule &schedule) {
  for (const Seat &seat : seats_of(schedule)) {
    ProcessStatus status;
    if (seat.use != Seat::kOutside || seat.sleeps == 0 ||
        !read_status(seat.process, seat.thread, status) || status.state != 'R')
      continue;
    begin_running(schedule, index_of(schedule, seat), 0);
    return true;
  }
  return false;
}

void end_board(RunPage &page, std::uint32_t outcome) {
  std::uint32_t going_on = kGoingOn;
  page.outcome.compare_exchange_strong(going_on, outcome);
}

// Whether a list of names with ", " between them has this one.
bool is_listed(std::string_view list, std::string_view name) {
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(", "), list.size());
    if (list.substr(0, end) == name)
      return true;
    list.remove_prefix(std::min(end + 2, list.size()));
  }
  return false;
}

// What everybody waits for, for the launcher to say.
void note_stuck(RunFile &run) {
  const Schedule &schedule = run.schedule;
  FixedText<sizeof RunPage::stuck_on> text;
  for (const Seat &seat : seats_of(schedule)) {
    const std::string_view name(seat.waits_for, strnlen(seat.waits_for, sizeof seat.waits_for));
    if (seat.use != Seat::kWaits || name.empty() || is_listed(text.view(), name))
      continue;
    append_text(text, text.length > 0 ? ", " : "", name);
  }
  copy_text(run.page.stuck_on, text.view());
  end_board(run.page, kWaitsForEver);
}

// A process that was killed waits for nothing.
bool forget_dead(Schedule &schedule, std::int64_t moment) {
  const pid_t self = getpid();
  for (const Seat &seat : seats_of(schedule)) {
    if (seat.use == Seat::kWaits && seat.deadline == moment && seat.process != self &&
        process_has_ended(seat.process)) {
      free_seats_of(schedule, seat.process);
      return true;
    }
  }
  return false;
}

bool text_is_due(const RunPage &page, std::int64_t now) {
  return next_text(page) <= now;
}

bool next_text_signals(const RunPage &page) {
  const std::uint32_t index = page.texts_due.load(std::memory_order_relaxed);
  return index < kMaxTexts && (page.texts_that_signal >> index & 1) != 0;
}

// The launcher gets the baton when there is something to type. It is the one that has the
// terminal's other end.
bool give_to_attendant(RunFile &run, const Passer &passer) {
  if (run.page.texts_typed == run.page.texts_due)
    return false;
  run.schedule.holder = kAttendant;
  ring_bell(passer.bell, run.schedule.attendant);
  return true;
}

// Before a signal, or the reset, that may end a process.
bool ask_for_lines_of_events(RunFile &run, std::int64_t now, const Passer &passer) {
  RunPage &page = run.page;
  bool any = end_of_board(page) <= now && ask_for_lines(run.schedule, 0);
  for (std::uint32_t i = 0; i < page.signal_count && i < kMaxSignals; ++i) {
    const PlannedSignal &planned = page.signals[i];
    if (planned.at <= now && planned.sent == 0)
      any = ask_for_lines(run.schedule, passer.command) || any;
  }
  if (text_is_due(page, now) && next_text_signals(page))
    any = ask_for_lines(run.schedule, 0) || any;
  for (const RunTimer &timer : run.schedule.timers) {
    if (timer.used != 0 && timer.expiry <= now)
      any = ask_for_lines(run.schedule, timer.process) || any;
  }
  return any;
}

}  // namespace

std::int64_t next_event(const RunPage &page) {
  std::int64_t next = std::min(end_of_board(page), next_text(page));
  for (std::uint32_t i = 0; i < page.signal_count && i < kMaxSignals; ++i) {
    if (page.signals[i].sent.load(std::memory_order_relaxed) == 0)
      next = std::min(next, page.signals[i].at);
  }
  return next;
}

Passed fire_events(RunFile &run, std::int64_t now, const Passer &passer) {
  RunPage &page = run.page;
  Schedule &schedule = run.schedule;
  Passed result = Passed::kIdle;
  for (std::uint32_t i = 0; i < page.signal_count && i < kMaxSignals; ++i) {
    PlannedSignal &planned = page.signals[i];
    if (planned.at > now || planned.sent.exchange(1) != 0)
      continue;
    if (may_signal(passer, passer.command))
      send_signal(passer.command, planned.number);
    call_seats(schedule, passer.command);
    result = Passed::kGiven;
  }
  for (RunTimer &timer : schedule.timers) {
    if (timer.used == 0 || timer.expiry > now)
      continue;
    renew_timer(timer, now);
    if (may_signal(passer, timer.process))
      send_timer_signal(timer);
    call_seats(schedule, timer.process);
    result = Passed::kGiven;
  }
  while (text_is_due(page, now)) {
    ++page.texts_due;
    result = Passed::kGiven;
  }
  if (end_of_board(page) > now)
    return result;
  end_board(page, outcome_of_end(page));
  return Passed::kOver;
}

Passed pass_baton(RunFile &run, const Passer &passer) {
  Schedule &schedule = run.schedule;
  std::atomic<std::int64_t> &clock = run.page.jumped;
  for (;;) {
    if (give_to_attendant(run, passer))
      return Passed::kGiven;
    const Turn turn = next_turn(schedule, next_event(run.page));
    if (turn.kind == Turn::kGive) {
      give(schedule, turn.seat, passer);
      return Passed::kGiven;
    }
    if (give_to_awake(schedule))
      return Passed::kGiven;
    if (turn.kind == Turn::kStuck) {
      note_stuck(run);
      return Passed::kOver;
    }
    if (turn.kind == Turn::kIdle) {
      // The launcher knows whether anything can come from the keyboard.
      if (schedule.has_keyboard != 0)
        ring_bell(passer.bell, schedule.attendant);
      let_all_poll(schedule, passer);
      return Passed::kIdle;
    }
    if (forget_dead(schedule, turn.moment))
      continue;
    const std::int64_t now = std::max(clock.load(), turn.moment);
    clock = now;
    if (ask_for_lines_of_events(run, now, passer))
      continue;
    const Passed fired = fire_events(run, now, passer);
    if (fired == Passed::kOver)
      return Passed::kOver;
    // A signal to a thread that runs without the baton: it gets some time to follow it.
    if (!end_due_waits(schedule, now) && fired == Passed::kGiven &&
        run.page.texts_typed == run.page.texts_due &&
        next_turn(schedule, next_event(run.page)).kind != Turn::kGive) {
      let_all_poll(schedule, passer);
      return Passed::kIdle;
    }
  }
}

}  // namespace vboard
