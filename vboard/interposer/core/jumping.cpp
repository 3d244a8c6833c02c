#include "vboard/interposer/core/jumping.h"

#include "vboard/base/bell.h"
#include "vboard/base/text.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <sys/stat.h>

#include <algorithm>

DECLARE_WRAPPED(int, ppoll, pollfd *, nfds_t, const timespec *, const sigset_t *);
DECLARE_WRAPPED(int, pthread_mutex_unlock, pthread_mutex_t *);

namespace vboard {

bool is_given(const FileStatus &status) {
  const RunPage &page = run_page();
  for (std::uint32_t i = 0; i < page.given_count && i < kMostGiven; ++i) {
    if (page.given[i].device == status.filesystem && page.given[i].inode == status.inode)
      return true;
  }
  return false;
}

namespace {

// What this thread has done since it last waited: who polls without waiting pays more and more.
__thread std::uint32_t calls_without_wait __attribute__((tls_model("initial-exec")));
__thread std::uint32_t polls_without_wait __attribute__((tls_model("initial-exec")));
constexpr std::uint32_t kCheapCalls = 1024;
constexpr std::uint32_t kMostDoublings = 13;

// A request may be one of many that a long piece of work needs.
BoardTime cost_of_call() {
  return kCallCost * (1 + calls_without_wait++ / kCheapCalls);
}

// A call that does not reach the board costs nothing until there are very many.
constexpr std::uint32_t kFreeCalls = 4096;
__thread std::uint32_t others_without_wait __attribute__((tls_model("initial-exec")));

// Reading a clock, or printing, gets no work done that takes time.
BoardTime cost_of_poll() {
  return kCallCost << std::min(polls_without_wait++ / kCheapCalls, kMostDoublings);
}

// How long an idle run goes without looking at its devices: somebody may work on the board's files.
constexpr timespec kLookAgain = {0, 20'000'000};

BoardTime board_now() {
  return run_page().jumped.load(std::memory_order_relaxed);
}

// The terminal that the launcher made for this run, also by the name of /dev/tty.
bool is_own_terminal(const FileStatus &status) {
  constexpr std::uint32_t kTtyMajor = 5;
  const RunPage &page = run_page();
  if (page.has_terminal == 0 || !S_ISCHR(status.mode))
    return false;
  return (status.device_major == page.terminal_major &&
          status.device_minor == page.terminal_minor) ||
         (status.device_major == kTtyMajor && status.device_minor == 0);
}

// Whether something outside of the run may make it ready: not a pipe of the run's own.
std::uint32_t source_of(int fd) {
  FileStatus status;
  if (fd < 0 || sys_fstat(fd, status) < 0)
    return Seat::kFromRun;
  if (is_own_terminal(status))
    return Seat::kFromKeyboard;
  return !S_ISFIFO(status.mode) || status.filesystem != run_page().pipe_device || is_given(status)
             ? Seat::kFromOutside
             : Seat::kFromRun;
}

std::uint32_t source_of(const Wait &wait) {
  std::uint32_t source = Seat::kFromRun;
  for (std::size_t i = 0; i < wait.fd_count && source != Seat::kFromOutside; ++i) {
    const std::uint32_t one = source_of(wait.fds[i].fd);
    source = one != Seat::kFromRun ? one : source;
  }
  return source;
}

void describe(const Wait &wait, std::span<char> out) {
  const bool has_object = wait.watch_count > 0 || wait.fd_count > 0;
  FixedText<sizeof Seat::waits_for> text;
  append_text(text, wait.what != nullptr ? wait.what : has_object ? "read" : "a signal");
  if (wait.watch_count > 0) {
    append_text(text, " ", wait.watches[0].description->asked);
  } else if (wait.fd_count > 0) {
    append_text(text, " descriptor ");
    append_decimal(text, wait.fds[0].fd);
  }
  copy_text(out, text.view());
}

// What this thread's wait has come to, if it is over. It has the baton.
bool is_over(Wait &wait, const sigset_t &mask, WaitEnd &end) {
  BoardTime ignored = kNever;
  // What is about to happen comes first, even when this wait's time is over at the same moment.
  if (own_seat->use == Seat::kWaits && own_seat->tells != 0) {
    write_wait_line(wait);
    return false;
  }
  // A wait with a test of its own must pass it: it may take what it was woken for.
  if (wait.done != nullptr ? wait.done(wait.key) : own_seat->woken != 0) {
    end = WaitEnd::kWoken;
    return true;
  }
  const bool ready = look_at_watches(wait, board_now(), ignored);
  const timespec zero = {};
  const int polled = poll_kernel(wait, -1, &zero, &mask);
  if (polled < 0)
    end = WaitEnd::kInterrupted;
  else if (polled > 0 || ready)
    end = WaitEnd::kReady;
  else if (wait.deadline <= board_now())
    end = WaitEnd::kTimeout;
  else
    return false;
  return true;
}

// Passes the baton on; this thread gets it again when its wait may be over.
void begin_waiting(Wait &wait) {
  sigset_t saved;
  BoardTime until = wait.deadline;
  look_at_watches(wait, board_now(), until);
  lock_engine(saved);
  Seat &seat = *own_seat;
  seat.deadline = until;
  seat.key = reinterpret_cast<std::uintptr_t>(wait.key);
  seat.looks = wait.fd_count > 0 || wait.watch_count > 0 || wait.done != nullptr;
  seat.called = 0;
  seat.has_line = wait.word != nullptr;
  seat.tells = 0;
  if (seat.use != Seat::kWaits) {
    seat.open_ended = source_of(wait);
    describe(wait, seat.waits_for);
    begin_wait(schedule(), seat);
  } else {
    seat.looked = schedule().round;
    schedule().holder = kNobody;
  }
  pass_on();
  unlock_engine(saved);
}

// The thread was woken by something from outside of the schedule: it asks for the baton when nobody
// has it, or for a look when somebody has.
void ask_for_baton() {
  sigset_t saved;
  lock_engine(saved);
  if (schedule().holder == kNobody || own_seat->use == Seat::kOutside) {
    make_ready(schedule(), *own_seat, board_now());
    if (schedule().holder == kNobody)
      pass_on();
  } else {
    own_seat->called = 1;
  }
  unlock_engine(saved);
}

// Until this thread has the baton. False when a signal came in meanwhile.
bool await_turn(Wait &wait, const sigset_t &mask) {
  bool interrupted = false;
  while (!has_baton()) {
    // While nobody has the baton only something from outside ends a wait.
    const bool idle = schedule().holder == kNobody;
    Wait bell_alone;
    const bool looks_again = own_bell() < 0 || (idle && wait.watch_count > 0);
    const int polled = poll_kernel(idle && !interrupted ? wait : bell_alone, own_bell(),
                                   looks_again ? &kLookAgain : nullptr, &mask);
    interrupted = interrupted || polled < 0;
    if (polled != 0 || (idle && looks_again) || own_seat->use == Seat::kOutside)
      ask_for_baton();
  }
  return !interrupted;
}

// Back to running: the baton stays here.
void go_on() {
  if (own_seat->use == Seat::kRuns)
    return;
  sigset_t saved;
  lock_engine(saved);
  begin_running(schedule(), own_index(), board_now());
  unlock_engine(saved);
}

// A thread without a place in the order looks again and again.
WaitEnd wait_out_of_turn(Wait &wait, const sigset_t &mask) {
  constexpr timespec pause = {0, 1'000'000};
  for (;;) {
    BoardTime ignored = kNever;
    if (wait.done != nullptr && wait.done(wait.key))
      return WaitEnd::kWoken;
    const bool ready = look_at_watches(wait, board_now(), ignored);
    const int polled = poll_kernel(wait, -1, &pause, &mask);
    if (polled < 0)
      return WaitEnd::kInterrupted;
    if (polled > 0 || ready)
      return WaitEnd::kReady;
    if (wait.deadline <= board_now())
      return WaitEnd::kTimeout;
  }
}

WaitEnd wait_in_turn(Wait &wait, const sigset_t &mask) {
  WaitEnd end;
  own_seat->woken = 0;
  while (!is_over(wait, mask, end)) {
    calls_without_wait = 0;
    polls_without_wait = 0;
    others_without_wait = 0;
    begin_waiting(wait);
    if (!await_turn(wait, mask)) {
      end = WaitEnd::kInterrupted;
      break;
    }
  }
  go_on();
  return end;
}

}  // namespace

WaitEnd wait_jumping(Wait &wait) {
  sigset_t all;
  sigset_t saved;
  int cancel_state;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);
  if (own_seat == nullptr || own_seat->use != Seat::kRuns)
    take_baton();
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, &saved);
  if (wait.release != nullptr)
    vboard_pthread_mutex_unlock(wait.release);
  const sigset_t &mask = wait.mask != nullptr ? *wait.mask : saved;
  const WaitEnd end = has_seat() ? wait_in_turn(wait, mask) : wait_out_of_turn(wait, mask);
  sigprocmask(SIG_SETMASK, &saved, nullptr);
  pthread_setcancelstate(cancel_state, nullptr);
  // A condition's mutex is taken again first.
  if (cancel_state == PTHREAD_CANCEL_ENABLE && wait.release == nullptr)
    pthread_testcancel();
  return end;
}

namespace {

bool something_is_due(BoardTime now) {
  return now >= schedule().next_due.load(std::memory_order_relaxed) ||
         now >= next_event(run_page()) || now >= schedule().slice_end;
}

}  // namespace

namespace {

void spend(BoardTime cost) {
  const BoardTime now = run_page().jumped.fetch_add(cost, std::memory_order_relaxed) + cost;
  if (!something_is_due(now))
    return;
  sigset_t saved;
  lock_engine(saved);
  const Passer passer = {own_bell(), own_index(), command_process(), nullptr};
  const bool over = fire_events(*run_file(), now, passer) == Passed::kOver;
  end_due_waits(schedule(), now);
  schedule().slice_end = now + kSlice;
  schedule().next_due = earliest_deadline(schedule());
  unlock_engine(saved);
  if (over)
    end_run(run_page().outcome);
  yield_baton();
}

}  // namespace

void spend_jumping() {
  if (has_seat() && own_seat->use == Seat::kRuns)
    spend(cost_of_call());
}

void spend_other() {
  const std::int64_t times = others_without_wait++ / kFreeCalls;
  if (times == 0 || !has_seat() || has_board_lock())
    return;
  spend(kCallCost * times * times);
}

void spend_poll() {
  if (jumping() && has_seat() && own_seat->use == Seat::kRuns)
    spend(cost_of_poll());
}

}  // namespace vboard
