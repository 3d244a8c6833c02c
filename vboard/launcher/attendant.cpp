#include "vboard/launcher/attendant.h"

#include "vboard/base/bell.h"
#include "vboard/base/process_status.h"
#include "vboard/base/text.h"
#include "vboard/board/turns.h"
#include "vboard/launcher/story.h"
#include "vboard/launcher/terminal.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

namespace vboard {

namespace {

// Of the PC's time: while threads take turns, and while nobody could use one.
constexpr std::int64_t kShortPause = 1'000'000;
constexpr std::int64_t kLongPause = 200'000'000;
// How often a thread must be seen in the same sleep: a moment's sleep may be for a lock of the
// board's.
constexpr int kLooksAsleep = 3;
// A program that has not made its first call yet: the loader is at work.
constexpr std::int64_t kStarting = 10;

// A process of the run and a descriptor that is readable when it has ended.
struct Attended {
  pid_t process;
  int fd;  // -1: the kernel has none
  bool is_named;
};

// What was seen of the thread with the baton.
struct Observation {
  std::int32_t holder;
  std::uint64_t calls;
  std::int64_t processor_time;
  std::int64_t times_run;
  int asleep;  // so many looks
};

// The board time that may pass for others while a thread computes without the baton: hardly any at
// first, since that one may be about to be done, and a minute after 600 ms of processor time.
std::int64_t pace_after(std::int64_t processor_time) {
  constexpr std::int64_t kMost = 2'000'000;  // microseconds whose cube still has room
  const std::int64_t used = std::clamp<std::int64_t>(processor_time / 1000, 0, kMost);
  return used * used * used / 3'600'000;
}

struct Attendant {
  int bell;
  std::uint32_t number;
  Attended processes[kMostAttended];
  std::size_t count;
  Observation last;
  pid_t command;
  pid_t computing;  // the last one that was put outside, the board's time then, and its own
  std::int64_t board_then, processor_then;
};

Attendant attendant;

// Whether a process is of this run: a descendant of the launcher.
bool is_of_run(pid_t process) {
  constexpr int kMostGenerations = 64;
  ProcessStatus status;
  for (int i = 0; i < kMostGenerations && process > 1; ++i) {
    if (process == getpid())
      return i > 0;
    if (!read_status(process, 0, status))
      return false;
    process = status.parent;
  }
  return false;
}

Passer own_passer() {
  return {attendant.bell, kNobody, attendant.command, is_of_run};
}

void pass_on(RunFile &run) {
  if (run.schedule.holder == kNobody &&
      next_turn(run.schedule, next_event(run.page)).kind != Turn::kIdle)
    pass_baton(run, own_passer());
}

Attended *find_attended(pid_t process) {
  for (std::size_t i = 0; i < attendant.count; ++i) {
    if (attendant.processes[i].process == process)
      return &attendant.processes[i];
  }
  return nullptr;
}

void attend_process(pid_t process) {
  if (process <= 0 || find_attended(process) != nullptr || attendant.count == kMostAttended)
    return;
  const int fd = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
  attendant.processes[attendant.count++] = {process, fd, false};
}

void attend_new_processes(const Schedule &schedule) {
  for (const Seat &seat : seats_of(schedule)) {
    if (seat.use != Seat::kFree)
      attend_process(seat.process);
  }
}

bool has_ended(const Attended &one) {
  if (one.fd < 0)
    return process_has_ended(one.process);
  pollfd ended = {one.fd, POLLIN, 0};
  return poll(&ended, 1, 0) > 0;
}

void forget_ended(Schedule &schedule) {
  for (std::size_t i = 0; i < attendant.count;) {
    const Attended one = attendant.processes[i];
    if (!has_ended(one)) {
      ++i;
      continue;
    }
    if (one.fd >= 0)
      close(one.fd);
    attendant.processes[i] = attendant.processes[--attendant.count];
    free_seats_of(schedule, one.process);
    // Its parent has been sent a signal by the time that the kernel answers this.
    siginfo_t child;
    waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT);
  }
}

// Whether anybody could go on if the holder of the baton did not have it.
bool is_waited_for(const RunFile &run) {
  const Turn turn = next_turn(run.schedule, next_event(run.page));
  return turn.kind == Turn::kGive || turn.kind == Turn::kJump;
}

bool has_several_threads(const Schedule &schedule) {
  return std::ranges::count_if(schedule.seats,
                               [](const Seat &seat) { return seat.use != Seat::kFree; }) > 1;
}

// Once for each process.
void name_process(pid_t process, bool sleeps) {
  Attended *one = find_attended(process);
  if (one == nullptr || one->is_named)
    return;
  one->is_named = true;
  char name[32];
  read_program_name(process, name);
  FixedText<128> line;
  append_text(line, "board time goes on without ", name[0] != '\0' ? name : "a program",
              sleeps ? ", which waits in a call that the board does not know"
                     : ", which computes without a call");
  fprintf(stderr, "vboard: %s\n", line.c_str());
  append_text(line, ": the order is not promised any more");
  add_to_story(line.view());
}

void put_outside(RunFile &run, std::int32_t holder, bool sleeps) {
  Seat &seat = run.schedule.seats[holder];
  seat.use = Seat::kOutside;
  seat.sleeps = sleeps;
  seat.ready_at = run.page.jumped;
  run.schedule.holder = kNobody;
  attendant.last.holder = kNobody;
  // One that was about to go on after all asks for the baton again.
  ring_bell(attendant.bell, seat.bell);
  // What it did since its last call may be what others wait for.
  ++run.schedule.round;
  if (sleeps)
    return;
  attendant.computing = seat.process;
  attendant.board_then = seat.ready_at;
  attendant.processor_then = processor_time(seat.process);
  run.schedule.pace = seat.ready_at;
}

// Lets board time get on while a thread computes.
void keep_pace(RunFile &run) {
  if (!is_computing(run.schedule))
    return;
  // In terms of a program that is neither emulated nor instrumented.
  const std::int64_t used = (processor_time(attendant.computing) - attendant.processor_then) *
                            kPatience / std::max<std::int64_t>(run.page.patience, kPatience);
  run.schedule.pace = std::max(run.schedule.pace, attendant.board_then + pace_after(used));
}

// Names those without whom board time has gone on for others.
void name_outsiders(const RunFile &run) {
  if (!has_several_threads(run.schedule))
    return;
  for (const Seat &seat : run.schedule.seats) {
    if (seat.use == Seat::kOutside && run.page.jumped > seat.ready_at + kSlice)
      name_process(seat.process, seat.sleeps != 0);
  }
}

// The thread with the baton, which has made no call since the last look.
void look_at_idler(RunFile &run, const Seat &seat, Observation &seen) {
  Schedule &schedule = run.schedule;
  ProcessStatus status;
  const std::int32_t thread = seat.thread > 0 ? seat.thread : 0;
  if (!read_status(seat.process, thread, status) || status.state == 'Z' || status.state == 'X') {
    // The process is about to end, and its end is noted then; or this thread has ended by a call
    // that nobody knows of.
    if (thread != 0 && thread != seat.process)
      free_seat(schedule, seen.holder);
    return;
  }
  // A thread that has been made and has not begun yet will make a call of its own accord.
  if (seat.halts != 0 || seat.thread < 0)
    return;
  // While a debugger outside of the run looks at it, time stands still; one of the run needs a
  // turn.
  const bool is_debugged =
      status.state == 't' && find_seat(schedule, tracer_of(seat.process)) != kNobody;
  const bool sleeps = status.state == 'S' || status.state == 'T' || is_debugged;
  const std::int64_t times = times_run(seat.process, thread);
  seen.asleep = sleeps && times == seen.times_run ? seen.asleep + 1 : 0;
  seen.times_run = times;
  if (seen.asleep >= kLooksAsleep)
    put_outside(run, seen.holder, true);
  if (status.state != 'R')
    return;
  const std::int64_t patience =
      std::int64_t{run.page.patience} * 1'000'000 * (seat.calls == 0 ? kStarting : 1);
  if (processor_time(seat.process) - seen.processor_time >= patience)
    put_outside(run, seen.holder, false);
}

void look_at_holder(RunFile &run) {
  const std::int32_t holder = run.schedule.holder;
  Observation &seen = attendant.last;
  if (holder < 0 || holder >= static_cast<std::int32_t>(kMostSeats)) {
    seen.holder = kNobody;
    return;
  }
  const Seat &seat = run.schedule.seats[holder];
  const std::uint64_t calls = seat.calls;
  if (seen.holder != holder || seen.calls != calls)
    seen = {holder, calls, processor_time(seat.process), -1, 0};
  else if (is_waited_for(run) || has_several_threads(run.schedule))
    look_at_idler(run, seat, seen);
}

// Standard input may have ended. All look once more for what was typed last. A thread that has the
// baton may have looked before that came, and be about to wait: its turn ends first.
void look_at_keyboard(Schedule &schedule) {
  if (schedule.has_keyboard == 0 || schedule.holder != kNobody || may_be_typed_on())
    return;
  schedule.has_keyboard = 0;
  call_seats(schedule, 0);
}

}  // namespace

bool begin_attending(RunFile &run) {
  if (!run.page.jumping)
    return true;
  attendant.bell = make_bell(0, attendant.number);
  begin_schedule(run.schedule);
  run.schedule.attendant = attendant.number;
  attendant.last.holder = kNobody;
  return attendant.bell >= 0;
}

void attend_command(RunFile &run, pid_t command) {
  if (!run.page.jumping)
    return;
  take_lock(run.schedule.lock);
  std::int32_t seat = find_seat(run.schedule, command);
  if (seat == kNobody)
    seat = take_seat(run.schedule, command, 0, 0);
  attendant.command = command;
  attend_process(command);
  pass_on(run);
  give_up_lock(run.schedule.lock);
}

std::size_t attended_descriptors(pollfd *fds) {
  if (attendant.number == 0)
    return 0;
  std::size_t count = 0;
  fds[count++] = {attendant.bell, POLLIN, 0};
  for (std::size_t i = 0; i < attendant.count; ++i) {
    if (attendant.processes[i].fd >= 0)
      fds[count++] = {attendant.processes[i].fd, POLLIN, 0};
  }
  return count;
}

void attend_schedule(RunFile &run) {
  if (attendant.number == 0)
    return;
  silence_bell(attendant.bell);
  // Nobody goes on meanwhile, so that needs no lock.
  const bool types = run.schedule.holder == kAttendant;
  if (types)
    type_due_texts(run.page, attendant.command);
  take_lock(run.schedule.lock);
  if (types) {
    run.schedule.holder = kNobody;
    call_seats(run.schedule, 0);
  }
  look_at_keyboard(run.schedule);
  attend_new_processes(run.schedule);
  forget_ended(run.schedule);
  look_at_holder(run);
  keep_pace(run);
  pass_on(run);
  name_outsiders(run);
  give_up_lock(run.schedule.lock);
}

std::int64_t attendants_pause(const RunFile &run) {
  if (attendant.number == 0)
    return INT64_MAX;
  const Schedule &schedule = run.schedule;
  const bool is_busy = is_waited_for(run) || is_computing(schedule) ||
                       (schedule.holder != kNobody && has_several_threads(schedule));
  return is_busy ? kShortPause : kLongPause;
}

}  // namespace vboard
