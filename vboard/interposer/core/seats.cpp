#include "vboard/interposer/core/seats.h"

#include "vboard/base/bell.h"
#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

DECLARE_WRAPPED(int, ppoll, pollfd *, nfds_t, const timespec *, const sigset_t *);

namespace vboard {

__thread Seat *own_seat;

namespace {

__thread int thread_bell __attribute__((tls_model("initial-exec"))) = -1;
__thread std::uint32_t thread_bell_number __attribute__((tls_model("initial-exec")));

// A thread for which there is no room runs without a turn.
Seat no_seat;

void make_own_bell() {
  if (thread_bell >= 0)
    return;
  thread_bell = make_bell(kOwnDescriptors, thread_bell_number);
  if (thread_bell >= 0)
    add_own_descriptor(thread_bell);
}

void drop_own_bell() {
  if (thread_bell < 0)
    return;
  remove_own_descriptor(thread_bell);
  sys_close(thread_bell);
  thread_bell = -1;
}

std::int64_t board_now() {
  return run_page().jumped.load(std::memory_order_relaxed);
}

// Under the lock: the seat that was kept for this thread, or a new one.
void find_own_seat() {
  make_own_bell();
  const std::int32_t process = getpid();
  const std::int32_t thread = static_cast<std::int32_t>(own_thread());
  std::int32_t index = find_seat_of_thread(schedule(), process, thread);
  if (index == kNobody && thread == process)
    index = find_seat_of_thread(schedule(), process, 0);
  if (index == kNobody) {
    index = take_seat(schedule(), process, thread, board_now());
    ring_bell(thread_bell, schedule().attendant);
  }
  if (index == kNobody) {
    no_seat.use = Seat::kRuns;
    own_seat = &no_seat;
    return;
  }
  own_seat = &schedule().seats[index];
  own_seat->thread = thread;
  own_seat->bell = thread_bell >= 0 ? thread_bell_number : 0;
}

// The launcher took it for one that sleeps outside.
void ask_again() {
  make_ready(schedule(), *own_seat, board_now());
  if (schedule().holder == kNobody)
    pass_on();
}

// Until this thread has the baton. A signal's handler may run meanwhile; its first call waits for
// the baton as well.
void await_baton() {
  constexpr timespec look_again = {0, 1'000'000};
  const int kept = errno;
  for (;;) {
    sigset_t saved;
    lock_engine(saved);
    const bool has = has_baton();
    if (has && own_seat->use != Seat::kRuns)
      begin_running(schedule(), own_index(), board_now());
    const bool asks = !has && own_seat->use == Seat::kOutside;
    if (asks)
      ask_again();
    unlock_engine(saved);
    if (has)
      break;
    if (asks)
      continue;
    pollfd bell = {thread_bell, POLLIN, 0};
    if (REAL(ppoll)(&bell, 1, thread_bell < 0 ? &look_again : nullptr, nullptr) > 0)
      silence_bell(thread_bell);
  }
  errno = kept;
}

}  // namespace

Schedule &schedule() {
  return run_file()->schedule;
}

bool has_seat() {
  return own_seat != nullptr && own_seat != &no_seat;
}

std::int32_t own_index() {
  return static_cast<std::int32_t>(own_seat - schedule().seats);
}

int own_bell() {
  return thread_bell;
}

void lock_engine(sigset_t &saved) {
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, &saved);
  take_lock(schedule().lock);
}

void unlock_engine(const sigset_t &saved) {
  give_up_lock(schedule().lock);
  sigprocmask(SIG_SETMASK, &saved, nullptr);
}

void pass_on() {
  const Passer passer = {thread_bell, has_seat() ? own_index() : kNobody, command_process(),
                         nullptr};
  if (pass_baton(*run_file(), passer) != Passed::kOver)
    return;
  give_up_lock(schedule().lock);
  end_run(run_page().outcome);
}

void take_baton() {
  const int kept = errno;
  sigset_t saved;
  lock_engine(saved);
  if (own_seat == nullptr)
    find_own_seat();
  own_seat->calls.fetch_add(1, std::memory_order_relaxed);
  if (own_seat == &no_seat) {
    unlock_engine(saved);
    return;
  }
  if (has_baton()) {
    begin_running(schedule(), own_index(), board_now());
  } else {
    if (own_seat->use != Seat::kReady)
      make_ready(schedule(), *own_seat, board_now());
    if (schedule().holder == kNobody)
      pass_on();
  }
  unlock_engine(saved);
  await_baton();
  errno = kept;
}

void yield_baton() {
  sigset_t saved;
  if (!has_seat())
    return;
  lock_engine(saved);
  if (has_baton()) {
    // A wait that is over: those that could go on, and those that look, come first.
    own_seat->deadline = board_now();
    own_seat->has_line = 0;
    own_seat->looks = 0;
    own_seat->key = 0;
    begin_wait(schedule(), *own_seat);
    pass_on();
  }
  unlock_engine(saved);
  await_baton();
}

void begin_process() {
  if (!jumping())
    return;
  sigset_t saved;
  lock_engine(saved);
  const std::int32_t process = getpid();
  // The other threads of a program that has made way for this one, and its timers, are gone.
  const std::int32_t first = find_seat_of_thread(schedule(), process, process);
  const std::int32_t kept = first != kNobody ? first : find_seat(schedule(), process);
  for (const Seat &seat : seats_of(schedule())) {
    const std::int32_t index = index_of(schedule(), seat);
    if (seat.use != Seat::kFree && seat.process == process && index != kept)
      free_seat(schedule(), index);
  }
  for (RunTimer &timer : schedule().timers) {
    if (timer.process == process && timer.id != kAlarm)
      timer.used = 0;
  }
  if (kept != kNobody)
    schedule().seats[kept].thread = process;
  unlock_engine(saved);
  take_baton();
}

void expect_process(pid_t process) {
  if (!jumping())
    return;
  sigset_t saved;
  lock_engine(saved);
  if (find_seat(schedule(), process) == kNobody)
    take_seat(schedule(), process, 0, board_now());
  ring_bell(thread_bell, schedule().attendant);
  unlock_engine(saved);
}

void leave_seats_of_parent() {
  own_seat = nullptr;
  drop_own_bell();
}

std::int32_t expect_thread() {
  sigset_t saved;
  lock_engine(saved);
  // Nobody looks for it by this number.
  const std::int32_t index = take_seat(schedule(), getpid(), -1, board_now());
  unlock_engine(saved);
  return index;
}

void know_thread(std::int32_t seat, pthread_t handle) {
  if (seat != kNobody)
    schedule().seats[seat].handle = static_cast<std::uint64_t>(handle);
}

void forget_thread(std::int32_t seat) {
  sigset_t saved;
  lock_engine(saved);
  if (seat != kNobody)
    free_seat(schedule(), seat);
  unlock_engine(saved);
}

void begin_thread(std::int32_t seat) {
  make_own_bell();
  if (seat == kNobody) {
    no_seat.use = Seat::kRuns;
    own_seat = &no_seat;
    return;
  }
  sigset_t saved;
  lock_engine(saved);
  own_seat = &schedule().seats[seat];
  own_seat->thread = static_cast<std::int32_t>(own_thread());
  own_seat->bell = thread_bell >= 0 ? thread_bell_number : 0;
  unlock_engine(saved);
  await_baton();
}

void end_thread() {
  sigset_t saved;
  lock_engine(saved);
  if (has_seat()) {
    const bool had = has_baton();
    const std::int32_t index = own_index();
    own_seat = nullptr;
    free_seat(schedule(), index);
    ++schedule().round;
    if (had)
      pass_on();
  }
  unlock_engine(saved);
  drop_own_bell();
}

bool thread_has_ended(const void *key) {
  const std::uint64_t handle = reinterpret_cast<std::uintptr_t>(key);
  const std::int32_t process = getpid();
  for (const Seat &seat : seats_of(schedule())) {
    if (seat.use != Seat::kFree && seat.process == process && seat.handle == handle)
      return false;
  }
  return true;
}

void wake_waiters(const void *key, bool all) {
  sigset_t saved;
  lock_engine(saved);
  wake_seats(schedule(), getpid(), reinterpret_cast<std::uintptr_t>(key), all, board_now());
  unlock_engine(saved);
}

void note_signal(pid_t process) {
  sigset_t saved;
  lock_engine(saved);
  call_seats(schedule(), process > 0 ? process : 0);
  unlock_engine(saved);
}

}  // namespace vboard
