// Passing the baton on, and what it is passed on with: the lock that the processes of a run share,
// the bells of its threads, and what the kernel says about them. Processes and threads are real
// here; the run has no launcher.

#include "vboard/board/turns.h"

#include "vboard/base/bell.h"
#include "vboard/base/process_status.h"
#include "vboard/base/shared_lock.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

namespace vboard {
namespace {

bool is_rung(int bell) {
  pollfd ready = {bell, POLLIN, 0};
  return poll(&ready, 1, 0) > 0;
}

// A run in this process's memory, whose threads are this process's for all that anybody knows.
class TurnsTest : public testing::Test {
 protected:
  TurnsTest() : memory(std::make_unique<RunFile>()), run(*memory), schedule(run.schedule) {
    run.page.reset_time = kNoTime;
    run.page.power_cut_at = kNoTime;
    begin_schedule(schedule);
    passer.bell = make_bell(0, number);
    sigemptyset(&signals);
    for (const int signal : {SIGUSR1, SIGUSR2, SIGALRM})
      sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, &signals_before);
  }
  ~TurnsTest() override {
    while (received().si_signo > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &signals_before, nullptr);
    for (const int bell : bells)
      close(bell);
    close(passer.bell);
  }

  Seat &seat(std::int32_t index) {
    return schedule.seats[index];
  }
  std::int32_t take(std::int32_t process = 0) {
    int bell = -1;
    const std::int32_t index =
        take_seat(schedule, process != 0 ? process : getpid(), 1, run.page.jumped);
    bell = make_bell(0, seat(index).bell);
    bells.push_back(bell);
    return index;
  }
  // A seat that waits, and has looked.
  std::int32_t take_and_wait(std::int64_t deadline, std::int32_t process = 0,
                             const char *waits_for = "") {
    const std::int32_t index = take(process);
    seat(index).deadline = deadline;
    stpcpy(seat(index).waits_for, waits_for);
    begin_wait(schedule, seat(index));
    return index;
  }
  Passed pass() {
    return pass_baton(run, passer);
  }
  // A signal that has come; si_signo is -1 without one.
  siginfo_t received() const {
    siginfo_t info = {};
    constexpr timespec now = {0, 0};
    info.si_signo = sigtimedwait(&signals, &info, &now);
    return info;
  }
  void plan(std::int64_t at, int number_of_signal) {
    PlannedSignal &planned = run.page.signals[run.page.signal_count++];
    planned.at = at;
    planned.number = number_of_signal;
  }

  const std::unique_ptr<RunFile> memory;
  RunFile &run;
  Schedule &schedule;
  std::uint32_t number = 0;
  Passer passer = {-1, kNobody, getpid(), nullptr};
  std::vector<int> bells;
  sigset_t signals, signals_before;
};

}  // namespace

TEST_F(TurnsTest, the_baton_goes_to_who_is_ready_and_rings_its_bell) {
  const std::int32_t first = take();
  const std::int32_t second = take();
  EXPECT_EQ(pass(), Passed::kGiven);
  EXPECT_EQ(schedule.holder, first);
  EXPECT_TRUE(is_rung(bells[0]));
  EXPECT_FALSE(is_rung(bells[1]));
  EXPECT_EQ(run.page.jumped, 0);
  // Nobody rings for itself.
  free_seat(schedule, first);
  passer.seat = second;
  EXPECT_EQ(pass(), Passed::kGiven);
  EXPECT_EQ(schedule.holder, second);
  EXPECT_FALSE(is_rung(bells[1]));
}

TEST_F(TurnsTest, the_clock_jumps_to_the_wait_that_ends_first) {
  const std::int32_t late = take_and_wait(500);
  const std::int32_t early = take_and_wait(300);
  EXPECT_EQ(pass(), Passed::kGiven);
  EXPECT_EQ(schedule.holder, early);
  EXPECT_EQ(run.page.jumped, 300);
  EXPECT_EQ(seat(early).ready_at, 300);
  EXPECT_EQ(seat(late).use, Seat::kWaits);
  EXPECT_TRUE(is_rung(bells[1]));
  EXPECT_FALSE(is_rung(bells[0]));
}

TEST_F(TurnsTest, the_clock_never_goes_back) {
  const std::int32_t overdue = take_and_wait(300);
  run.page.jumped = 450;
  EXPECT_EQ(pass(), Passed::kGiven);
  EXPECT_EQ(schedule.holder, overdue);
  EXPECT_EQ(run.page.jumped, 450);
}

TEST_F(TurnsTest, an_idle_run_lets_all_that_wait_poll) {
  take_and_wait(kNoTime);
  take_and_wait(kNoTime);
  const std::int32_t own = take_and_wait(kNoTime);
  const std::int32_t outside = take();
  seat(0).open_ended = 1;
  seat(outside).use = Seat::kOutside;
  passer.seat = own;
  // The number of seats may have been overwritten.
  schedule.seats_end = 0xFFFFFFFF;
  EXPECT_EQ(pass(), Passed::kIdle);
  EXPECT_EQ(schedule.holder, kNobody);
  EXPECT_TRUE(is_rung(bells[0]));
  EXPECT_TRUE(is_rung(bells[1]));
  EXPECT_FALSE(is_rung(bells[2]));
  EXPECT_FALSE(is_rung(bells[3]));
  EXPECT_EQ(run.page.outcome, kGoingOn);
}

TEST_F(TurnsTest, a_run_that_waits_for_ever_says_for_what) {
  take_and_wait(kNoTime, 0, "read /dev/tty10");
  take_and_wait(kNoTime, 0, "read /dev/tty1");
  take_and_wait(kNoTime, 0, "a signal");
  take_and_wait(kNoTime, 0, "read /dev/tty10");
  take_and_wait(kNoTime, 0, "a signal");
  take_and_wait(kNoTime, 0, "");
  EXPECT_EQ(pass(), Passed::kOver);
  EXPECT_EQ(run.page.outcome, kWaitsForEver);
  EXPECT_STREQ(run.page.stuck_on, "read /dev/tty10, read /dev/tty1, a signal");
  EXPECT_EQ(run.page.jumped, 0);
}

TEST_F(TurnsTest, names_of_waits_that_were_overwritten_end_with_their_room) {
  const std::int32_t index = take_and_wait(kNoTime);
  for (char &letter : seat(index).waits_for)
    letter = 'x';
  take_and_wait(kNoTime);  // the memory after that name
  EXPECT_EQ(pass(), Passed::kOver);
  EXPECT_EQ(std::string(run.page.stuck_on), std::string(64, 'x'));
}

TEST_F(TurnsTest, the_first_outcome_stays) {
  take_and_wait(kNoTime);
  run.page.outcome = kBoardReboot;
  EXPECT_EQ(pass(), Passed::kOver);
  EXPECT_EQ(run.page.outcome, kBoardReboot);
}

TEST_F(TurnsTest, the_board_ends_at_its_reset_or_power_cut) {
  struct Case {
    std::int64_t reset, power_cut, end;
    std::uint32_t outcome;
  };
  for (const Case &c : {Case{200, kNoTime, 200, kBoardReset}, Case{kNoTime, 150, 150, kPowerCut},
                        Case{200, 150, 150, kPowerCut}, Case{120, 150, 120, kBoardReset},
                        Case{150, 150, 150, kPowerCut}}) {
    run.page.outcome = kGoingOn;
    run.page.jumped = 0;
    run.page.reset_time = c.reset;
    run.page.power_cut_at = c.power_cut;
    EXPECT_EQ(next_event(run.page), c.end);
    const std::int32_t waits = take_and_wait(c.end + 1);
    EXPECT_EQ(fire_events(run, c.end - 1, passer), Passed::kIdle);
    EXPECT_EQ(run.page.outcome, kGoingOn);
    EXPECT_EQ(pass(), Passed::kOver);
    EXPECT_EQ(run.page.outcome, c.outcome);
    EXPECT_EQ(run.page.jumped, c.end);
    free_seat(schedule, waits);
  }
}

TEST_F(TurnsTest, a_planned_signal_comes_once_and_is_looked_at) {
  plan(300, SIGUSR2);
  plan(100, SIGUSR1);
  EXPECT_EQ(next_event(run.page), 100);
  const std::int32_t waits = take_and_wait(kNoTime);
  const std::int32_t of_other = take_and_wait(kNoTime, 1 << 30);
  EXPECT_EQ(pass(), Passed::kGiven);
  EXPECT_EQ(run.page.jumped, 100);
  EXPECT_EQ(schedule.holder, waits);
  EXPECT_EQ(seat(of_other).called, 0u);
  EXPECT_EQ(received().si_signo, SIGUSR1);
  EXPECT_EQ(received().si_signo, -1);
  EXPECT_EQ(next_event(run.page), 300);
  EXPECT_EQ(fire_events(run, 299, passer), Passed::kIdle);
  EXPECT_EQ(fire_events(run, 300, passer), Passed::kGiven);
  EXPECT_EQ(received().si_signo, SIGUSR2);
  EXPECT_EQ(fire_events(run, 300, passer), Passed::kIdle);
  EXPECT_EQ(received().si_signo, -1);
  EXPECT_EQ(next_event(run.page), kNoTime);
}

TEST_F(TurnsTest, only_sixteen_signals_are_planned_whatever_the_page_says) {
  for (PlannedSignal &planned : run.page.signals)
    planned.sent = 1;
  run.page.signals[15].sent = 0;
  run.page.signals[15].at = 70;
  run.page.signal_count = 0xFFFFFFFF;
  EXPECT_EQ(next_event(run.page), 70);
  run.page.signals[15].number = SIGUSR1;
  EXPECT_EQ(fire_events(run, 70, passer), Passed::kGiven);
  EXPECT_EQ(received().si_signo, SIGUSR1);
}

TEST_F(TurnsTest, no_signal_for_a_process_that_is_not_of_the_run) {
  plan(100, SIGUSR1);
  RunTimer *const timer = make_timer(schedule, getpid(), kAlarm);
  timer->expiry = 100;
  timer->signal = SIGALRM;
  timer->notify = SIGEV_SIGNAL;
  passer.may_signal = [](pid_t process) { return process != getpid(); };
  EXPECT_EQ(fire_events(run, 100, passer), Passed::kGiven);
  EXPECT_EQ(received().si_signo, -1);
  // They are over all the same.
  EXPECT_EQ(next_event(run.page), kNoTime);
  EXPECT_EQ(timer->expiry, kNoTime);
}

TEST_F(TurnsTest, process_0_is_signalled_by_nobody) {
  // kill(0) would reach the whole group of this process.
  plan(100, SIGUSR1);
  passer.command = 0;
  EXPECT_EQ(fire_events(run, 100, passer), Passed::kGiven);
  EXPECT_EQ(received().si_signo, -1);
}

TEST_F(TurnsTest, timers_send_their_signals) {
  const std::int32_t waits = take_and_wait(1000);
  RunTimer *const alarm = make_timer(schedule, getpid(), kAlarm);
  alarm->expiry = 100;
  alarm->interval = 50;
  alarm->notify = SIGEV_SIGNAL;
  alarm->signal = SIGALRM;
  EXPECT_EQ(pass(), Passed::kGiven);
  EXPECT_EQ(schedule.holder, waits);
  EXPECT_EQ(seat(waits).use, Seat::kWaits);  // its own wait is not over
  EXPECT_EQ(run.page.jumped, 100);
  EXPECT_EQ(alarm->expiry, 150);
  siginfo_t info = received();
  EXPECT_EQ(info.si_signo, SIGALRM);
  EXPECT_EQ(info.si_code, SI_USER);
  EXPECT_EQ(fire_events(run, 149, passer), Passed::kIdle);
  EXPECT_EQ(received().si_signo, -1);

  RunTimer *const posix = make_timer(schedule, getpid(), 4);
  posix->expiry = 120;
  posix->notify = SIGEV_SIGNAL;
  posix->signal = SIGUSR1;
  posix->value = 77;
  EXPECT_EQ(fire_events(run, 120, passer), Passed::kGiven);
  EXPECT_EQ(posix->expiry, kNoTime);
  info = received();
  EXPECT_EQ(info.si_signo, SIGUSR1);
  EXPECT_EQ(info.si_code, SI_TIMER);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(info.si_value.sival_ptr), 77u);

  posix->expiry = 130;
  posix->notify = SIGEV_THREAD_ID;
  posix->thread = static_cast<std::int32_t>(syscall(SYS_gettid));
  EXPECT_EQ(fire_events(run, 130, passer), Passed::kGiven);
  info = received();
  EXPECT_EQ(info.si_signo, SIGUSR1);
  EXPECT_EQ(info.si_code, SI_TIMER);

  posix->expiry = 140;
  posix->notify = SIGEV_NONE;
  EXPECT_EQ(fire_events(run, 140, passer), Passed::kGiven);
  EXPECT_EQ(received().si_signo, -1);
}

TEST_F(TurnsTest, a_timer_with_a_thread_signals_that_thread) {
  RunTimer *const timer = make_timer(schedule, getpid(), 4);
  timer->expiry = 10;
  timer->notify = SIGEV_THREAD_ID;
  timer->signal = SIGUSR1;
  std::atomic<std::int32_t> other{0};
  std::atomic<bool> sent{false};
  int seen = 0;
  std::thread thread([&] {
    other = static_cast<std::int32_t>(syscall(SYS_gettid));
    while (!sent)
      std::this_thread::yield();
    seen = received().si_signo;
  });
  while (other == 0)
    std::this_thread::yield();
  timer->thread = other;
  fire_events(run, 10, passer);
  EXPECT_EQ(received().si_signo, -1);
  sent = true;
  thread.join();
  EXPECT_EQ(seen, SIGUSR1);
}

TEST_F(TurnsTest, a_wait_writes_its_line_before_a_signal_may_end_it) {
  struct Case {
    const char *what;
    bool signal, timer, end;
  };
  for (const Case &c : {Case{"signal", true, false, false}, Case{"timer", false, true, false},
                        Case{"end", false, false, true}}) {
    run.page.jumped = 0;
    const std::int32_t waits = take_and_wait(kNoTime);
    seat(waits).has_line = 1;
    if (c.signal)
      plan(100, SIGUSR1);
    if (c.timer) {
      RunTimer *const timer = make_timer(schedule, getpid(), 3);
      timer->expiry = 100;
      timer->notify = SIGEV_SIGNAL;
      timer->signal = SIGUSR1;
    }
    if (c.end)
      run.page.power_cut_at = 100;
    EXPECT_EQ(pass(), Passed::kGiven) << c.what;
    EXPECT_EQ(schedule.holder, waits) << c.what;
    EXPECT_EQ(seat(waits).tells, 1u) << c.what;
    EXPECT_EQ(run.page.jumped, 100) << c.what;
    EXPECT_EQ(received().si_signo, -1) << c.what;
    EXPECT_EQ(run.page.outcome, kGoingOn) << c.what;
    // The line is written, and the thread waits on.
    seat(waits).has_line = 0;
    seat(waits).tells = 0;
    seat(waits).called = 0;
    schedule.holder = kNobody;
    EXPECT_EQ(pass(), c.end ? Passed::kOver : Passed::kGiven) << c.what;
    EXPECT_EQ(received().si_signo, c.end ? -1 : SIGUSR1) << c.what;
    free_seat(schedule, waits);
  }
}

TEST_F(TurnsTest, what_is_not_due_asks_for_no_line) {
  const std::int32_t waits = take_and_wait(50);
  seat(waits).has_line = 1;
  plan(100, SIGUSR1);
  plan(40, SIGUSR2);
  run.page.signals[1].sent = 1;  // by now
  run.page.power_cut_at = 200;
  make_timer(schedule, getpid(), 3)->expiry = 100;
  EXPECT_EQ(pass(), Passed::kGiven);
  EXPECT_EQ(seat(waits).tells, 0u);
  EXPECT_EQ(seat(waits).use, Seat::kReady);
  EXPECT_EQ(run.page.jumped, 50);
}

TEST_F(TurnsTest, a_signal_to_a_thread_outside_leaves_it_some_time) {
  const std::int32_t outside = take();
  seat(outside).use = Seat::kOutside;
  seat(outside).sleeps = 1;
  seat(outside).process = 1 << 30;
  const std::int32_t waits = take_and_wait(500, (1 << 30) + 1);
  passer.command = 1 << 30;
  plan(100, SIGUSR1);
  EXPECT_EQ(pass(), Passed::kIdle);
  EXPECT_EQ(run.page.jumped, 100);
  EXPECT_TRUE(is_rung(bells[1]));
  EXPECT_EQ(seat(waits).use, Seat::kWaits);
}

TEST_F(TurnsTest, who_was_woken_outside_gets_the_baton) {
  const std::int32_t awake = take();
  seat(awake).thread = static_cast<std::int32_t>(syscall(SYS_gettid));
  seat(awake).use = Seat::kOutside;
  const std::int32_t waits = take_and_wait(500);
  // It computes: it has not been asleep.
  schedule.pace = 500;
  EXPECT_EQ(pass(), Passed::kGiven);
  EXPECT_EQ(schedule.holder, waits);

  schedule.holder = kNobody;
  begin_wait(schedule, seat(waits));
  seat(awake).sleeps = 1;
  EXPECT_EQ(pass(), Passed::kGiven);
  EXPECT_EQ(schedule.holder, awake);
  EXPECT_EQ(seat(awake).use, Seat::kRuns);
}

TEST_F(TurnsTest, who_sleeps_outside_is_passed_over) {
  const pid_t child = fork();
  if (child == 0) {
    for (;;)
      pause();
  }
  ProcessStatus status = {};
  while (read_status(child, 0, status) && status.state != 'S')
    std::this_thread::yield();
  const std::int32_t outside = take(child);
  seat(outside).thread = child;
  seat(outside).use = Seat::kOutside;
  seat(outside).sleeps = 1;
  const std::int32_t waits = take_and_wait(500);
  EXPECT_EQ(pass(), Passed::kGiven);
  EXPECT_EQ(schedule.holder, waits);
  EXPECT_EQ(run.page.jumped, 500);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

TEST_F(TurnsTest, a_process_that_was_killed_waits_for_nothing) {
  const pid_t child = fork();
  if (child == 0)
    _exit(0);
  siginfo_t ended;
  waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT);
  take_and_wait(300, child);
  const std::int32_t waits = take_and_wait(500);
  EXPECT_EQ(pass(), Passed::kGiven);
  // Its end is looked at, at the moment before the clock would have jumped.
  EXPECT_EQ(schedule.holder, waits);
  EXPECT_EQ(seat(waits).called, 1u);
  EXPECT_EQ(run.page.jumped, 0);
  EXPECT_EQ(find_seat(schedule, child), kNobody);
  waitpid(child, nullptr, 0);
}

namespace {

// Threads that take turns by bells, as the threads of a run do.
class Players {
 public:
  explicit Players(int count_of_turns)
      : memory(std::make_unique<RunFile>()),
        run(*memory),
        schedule(run.schedule),
        turns(count_of_turns) {
    run.page.reset_time = kNoTime;
    run.page.power_cut_at = kNoTime;
    begin_schedule(schedule);
  }

  // What each player does in its turn, under the lock; the baton is passed on after it.
  using Act = void (*)(Players &, std::int32_t index, int turn);

  std::vector<std::int32_t> play(Act act) {
    for (std::int32_t i = 0; i < kCount; ++i)
      take_seat(schedule, getpid(), i + 1, 0);
    for (std::int32_t i = 0; i < kCount; ++i)
      bells[i] = make_bell(0, schedule.seats[i].bell);
    std::vector<std::thread> threads;
    for (std::int32_t i = 0; i < kCount; ++i)
      threads.emplace_back([this, act, i] { take_turns(act, i); });
    take_lock(schedule.lock);
    std::uint32_t number = 0;
    const int own = make_bell(0, number);
    pass_baton(run, {own, kNobody, 0, nullptr});
    give_up_lock(schedule.lock);
    for (std::thread &thread : threads)
      thread.join();
    close(own);
    for (const int bell : bells)
      close(bell);
    return order;
  }

  void wait(std::int32_t index, std::int64_t deadline, std::uint64_t key) {
    Seat &seat = schedule.seats[index];
    seat.deadline = deadline;
    seat.key = key;
    begin_wait(schedule, seat);
  }
  std::int64_t now() const {
    return run.page.jumped;
  }

  static constexpr std::int32_t kCount = 8;
  const std::unique_ptr<RunFile> memory;
  RunFile &run;
  Schedule &schedule;
  const int turns;
  int bells[kCount] = {};
  // Only the baton guards it.
  std::vector<std::int32_t> order;
  std::atomic<int> running{0};
  std::atomic<int> together{0};
  std::atomic<bool> unheard{false};

 private:
  bool await_baton(std::int32_t index) {
    for (;;) {
      take_lock(schedule.lock);
      const bool has = schedule.holder == index;
      if (has)
        begin_running(schedule, index, now());
      give_up_lock(schedule.lock);
      if (has || unheard)
        return has;
      pollfd bell = {bells[index], POLLIN, 0};
      constexpr int kFarTooLong = 20'000;
      if (poll(&bell, 1, kFarTooLong) <= 0)
        unheard = true;
      silence_bell(bells[index]);
    }
  }

  void take_turns(Act act, std::int32_t index) {
    for (int turn = 0; turn < turns; ++turn) {
      if (!await_baton(index))
        return;
      if (running++ != 0)
        ++together;
      order.push_back(index);
      run.page.jumped += 1000;
      --running;
      take_lock(schedule.lock);
      if (turn + 1 < turns)
        act(*this, index, turn);
      else
        free_seat(schedule, index);
      pass_baton(run, {bells[index], index, 0, nullptr});
      give_up_lock(schedule.lock);
    }
  }
};

}  // namespace

TEST(TurnsOfThreads, go_round_in_the_order_of_their_birth) {
  constexpr int kTurns = 300;
  Players players(kTurns);
  const std::vector<std::int32_t> order =
      players.play([](Players &all, std::int32_t index, int) { all.wait(index, all.now(), 0); });
  EXPECT_FALSE(players.unheard);
  EXPECT_EQ(players.together, 0);
  ASSERT_EQ(order.size(), std::size_t{Players::kCount} * kTurns);
  for (std::size_t i = 0; i < order.size(); ++i)
    ASSERT_EQ(order[i], static_cast<std::int32_t>(i % Players::kCount)) << i;
}

TEST(TurnsOfThreads, are_the_same_in_every_round) {
  constexpr int kTurns = 300;
  std::vector<std::int32_t> first;
  for (int round = 0; round < 3; ++round) {
    Players players(kTurns);
    const std::vector<std::int32_t> order =
        players.play([](Players &all, std::int32_t index, int turn) {
          const std::uint64_t key = 1 + static_cast<std::uint64_t>(index % 2);
          if ((index + turn) % 3 == 0)
            wake_seats(all.schedule, getpid(), 3 - key, turn % 2 == 0, all.now());
          all.wait(index, all.now() + (index * 7 + turn * 13) % 11 * 700, key);
        });
    EXPECT_FALSE(players.unheard);
    EXPECT_EQ(players.together, 0);
    ASSERT_EQ(order.size(), std::size_t{Players::kCount} * kTurns);
    if (round == 0)
      first = order;
    EXPECT_EQ(order, first) << round;
  }
}

TEST(SharedLockTest, belongs_to_the_thread_that_took_it) {
  SharedLock lock = {};
  EXPECT_FALSE(has_lock(lock));
  errno = 77;
  take_lock(lock);
  EXPECT_TRUE(has_lock(lock));
  bool other_has = true;
  std::thread([&] { other_has = has_lock(lock); }).join();
  EXPECT_FALSE(other_has);
  give_up_lock(lock);
  EXPECT_EQ(errno, 77);
  EXPECT_FALSE(has_lock(lock));
  EXPECT_EQ(lock.word, 0u);
}

TEST(SharedLockTest, lets_one_thread_in_at_a_time) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 20'000;
  SharedLock lock = {};
  int count = 0;  // guarded by the lock alone
  std::atomic<int> errors{0};
  std::vector<std::thread> threads;
  const auto count_up = [&] {
    errno = 77;
    for (int round = 0; round < kRounds; ++round) {
      take_lock(lock);
      const int seen = count;
      if (round % 64 == 0)
        std::this_thread::yield();  // so that others come to wait
      count = seen + 1;
      if (!has_lock(lock))
        ++errors;
      give_up_lock(lock);
    }
    if (errno != 77)
      ++errors;
  };
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back(count_up);
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(count, kThreads * kRounds);
  EXPECT_EQ(errors, 0);
  EXPECT_EQ(lock.word, 0u);
}

TEST(SharedLockTest, a_thread_that_dies_gives_it_up) {
  SharedLock lock = {};
  std::thread([&] { take_lock(lock); }).join();
  EXPECT_NE(lock.word, 0u);
  EXPECT_FALSE(has_lock(lock));
  take_lock(lock);
  EXPECT_TRUE(has_lock(lock));
  give_up_lock(lock);
  EXPECT_EQ(lock.word, 0u);
}

TEST(SharedLockTest, a_living_owner_is_waited_for) {
  SharedLock lock = {};
  std::atomic<bool> asks{false};
  std::atomic<bool> got{false};
  int error = 0;
  take_lock(lock);
  std::thread other([&] {
    errno = 77;
    asks = true;
    take_lock(lock);
    error = errno;
    got = true;
    give_up_lock(lock);
  });
  while (!asks)
    std::this_thread::yield();
  // Longer than it takes until the owner is looked at, several times.
  poll(nullptr, 0, 70);
  EXPECT_FALSE(got);
  EXPECT_TRUE(has_lock(lock));
  give_up_lock(lock);
  other.join();
  EXPECT_TRUE(got);
  EXPECT_EQ(error, 77);
}

namespace {

// The highest bit of a lock's word.
constexpr std::uint32_t kOthersWait = 0x80000000;

// Until a thread of this process sleeps. Whether it does.
bool comes_to_sleep(const std::atomic<std::int32_t> &thread) {
  ProcessStatus status = {};
  for (int i = 0; i < 2000; ++i) {
    if (thread != 0 && read_status(getpid(), thread, status) && status.state == 'S')
      return true;
    poll(nullptr, 0, 1);
  }
  return false;
}

}  // namespace

TEST(SharedLockTest, whoever_waits_sleeps_and_says_so) {
  SharedLock lock = {};
  std::atomic<std::int32_t> thread{0};
  std::uint32_t word = 0;
  take_lock(lock);
  std::thread other([&] {
    thread = static_cast<std::int32_t>(syscall(SYS_gettid));
    take_lock(lock);
    word = lock.word;
    give_up_lock(lock);
  });
  EXPECT_TRUE(comes_to_sleep(thread));
  EXPECT_EQ(lock.word, own_thread() | kOthersWait);
  give_up_lock(lock);
  other.join();
  // It cannot know that nobody else waits.
  EXPECT_EQ(word, static_cast<std::uint32_t>(thread) | kOthersWait);
  EXPECT_EQ(lock.word, 0u);
}

TEST(SharedLockTest, giving_it_up_wakes_one_that_waits) {
  SharedLock lock = {};
  std::atomic<std::int32_t> thread{0};
  long result = -1;
  take_lock(lock);
  lock.word |= kOthersWait;
  const std::uint32_t word = lock.word;
  std::thread other([&] {
    thread = static_cast<std::int32_t>(syscall(SYS_gettid));
    struct {
      long seconds, nanoseconds;
    } limit = {20, 0};
    result = syscall(SYS_futex, &lock.word, FUTEX_WAIT, word, &limit, nullptr, 0);
  });
  EXPECT_TRUE(comes_to_sleep(thread));
  give_up_lock(lock);
  other.join();
  EXPECT_EQ(result, 0);
}

TEST(SharedLockTest, threads_have_the_kernels_numbers) {
  EXPECT_EQ(own_thread(), static_cast<std::uint32_t>(syscall(SYS_gettid)));
  std::uint32_t other = 0;
  long of_kernel = 1;
  std::thread([&] {
    other = own_thread();
    of_kernel = syscall(SYS_gettid);
  }).join();
  EXPECT_EQ(other, static_cast<std::uint32_t>(of_kernel));
  const pid_t child = fork();
  if (child == 0) {
    renew_own_thread();
    _exit(own_thread() == static_cast<std::uint32_t>(getpid()) ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST(BellTest, rings_where_its_number_says) {
  std::uint32_t numbers[3] = {};
  int bells[3];
  errno = 77;
  for (int i = 0; i < 3; ++i) {
    bells[i] = make_bell(100, numbers[i]);
    ASSERT_GE(bells[i], 100);
    EXPECT_NE(fcntl(bells[i], F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(numbers[i], 0u);
    EXPECT_LE(numbers[i], 0x100000u);
  }
  EXPECT_NE(numbers[0], numbers[1]);
  EXPECT_NE(numbers[1], numbers[2]);
  ring_bell(bells[0], numbers[1]);
  EXPECT_FALSE(is_rung(bells[0]));
  EXPECT_TRUE(is_rung(bells[1]));
  EXPECT_FALSE(is_rung(bells[2]));
  silence_bell(bells[1]);
  EXPECT_FALSE(is_rung(bells[1]));
  ring_bell(bells[0], numbers[0]);  // its own
  EXPECT_TRUE(is_rung(bells[0]));
  EXPECT_EQ(errno, 77);
  for (const int bell : bells)
    close(bell);
}

TEST(BellTest, a_bell_that_is_full_or_gone_or_nobodys_holds_nobody_up) {
  std::uint32_t own_number = 0;
  std::uint32_t number = 0;
  const int own = make_bell(0, own_number);
  const int bell = make_bell(0, number);
  errno = 77;
  for (int i = 0; i < 5000; ++i)
    ring_bell(own, number);
  EXPECT_TRUE(is_rung(bell));
  silence_bell(bell);
  EXPECT_FALSE(is_rung(bell));
  silence_bell(bell);
  close(bell);
  ring_bell(own, number);
  ring_bell(own, 0);
  EXPECT_EQ(errno, 77);
  EXPECT_FALSE(is_rung(own));
  close(own);
}

TEST(BellTest, there_is_none_without_a_descriptor) {
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none = {0, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  std::uint32_t number = 5;
  errno = 77;
  const int bell = make_bell(100, number);
  const int error = errno;
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(bell, -1);
  EXPECT_EQ(number, 5u);
  EXPECT_EQ(error, 77);
}

// An emulator answers for its own program, whose state it does not know.
char state_of_this_process() {
  ProcessStatus status = {};
  EXPECT_TRUE(read_status(getpid(), 0, status));
  return status.state == '0' ? 'R' : status.state;
}

TEST(ProcessStatusTest, this_process_runs_below_its_parent) {
  ProcessStatus status = {};
  ASSERT_TRUE(read_status(getpid(), 0, status));
  EXPECT_EQ(state_of_this_process(), 'R');
  EXPECT_EQ(status.parent, getppid());
  EXPECT_FALSE(thread_has_died(getpid()));
  EXPECT_GE(processor_time(getpid()), 0);
}

TEST(ProcessStatusTest, a_name_may_hold_anything) {
  char before[16];
  char name[32] = "";
  prctl(PR_GET_NAME, before);
  prctl(PR_SET_NAME, "a) Z 1 (b) c");
  ProcessStatus status = {};
  const bool found = read_status(getpid(), static_cast<pid_t>(syscall(SYS_gettid)), status);
  read_program_name(getpid(), name);
  prctl(PR_SET_NAME, before);
  EXPECT_TRUE(found);
  EXPECT_EQ(status.state, 'R');
  EXPECT_EQ(status.parent, getppid());
  EXPECT_STREQ(name, "a) Z 1 (b) c");
}

TEST(ProcessStatusTest, a_process_that_nobody_has_waited_for_yet_has_died) {
  const pid_t child = fork();
  if (child == 0)
    _exit(0);
  siginfo_t ended;
  waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT);
  ProcessStatus status = {};
  EXPECT_TRUE(read_status(child, 0, status));
  EXPECT_EQ(status.state, 'Z');
  EXPECT_EQ(status.parent, getpid());
  EXPECT_TRUE(thread_has_died(child));
  waitpid(child, nullptr, 0);
  EXPECT_FALSE(read_status(child, 0, status));
  EXPECT_TRUE(thread_has_died(child));
  EXPECT_EQ(processor_time(child), -1);
  char name[32] = "x";
  read_program_name(child, name);
  EXPECT_STREQ(name, "");
}

TEST(ProcessStatusTest, threads_of_a_process_have_their_own_state) {
  std::atomic<std::int32_t> number{0};
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::thread sleeper([&] {
    number = static_cast<std::int32_t>(syscall(SYS_gettid));
    char byte;
    EXPECT_EQ(read(ends[0], &byte, 1), 0);
  });
  ProcessStatus status = {};
  while (number == 0 || (read_status(getpid(), number, status) && status.state != 'S'))
    std::this_thread::yield();
  EXPECT_EQ(status.state, 'S');
  EXPECT_EQ(state_of_this_process(), 'R');
  close(ends[1]);
  sleeper.join();
  close(ends[0]);
}

TEST(ProcessStatusTest, processor_time_is_that_of_the_process_alone) {
  const std::int64_t before = processor_time(getpid());
  timespec first = {};
  timespec now = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &first);
  do
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  while ((now.tv_sec - first.tv_sec) * 1'000'000'000LL + now.tv_nsec - first.tv_nsec < 5'000'000);
  const std::int64_t used = processor_time(getpid()) - before;
  const std::int64_t seen = (std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec) - before;
  EXPECT_GE(used, 5'000'000);
  EXPECT_GE(used, seen);
  EXPECT_LT(used, seen + 1'000'000'000);
}

TEST(ProcessStatusTest, a_thread_that_has_slept_has_run_once_more) {
  const std::int64_t before = times_run(getpid(), 0);
  if (before == 0)
    GTEST_SKIP() << "this kernel does not count";
  const timespec moment = {0, 2'000'000};
  nanosleep(&moment, nullptr);
  EXPECT_GT(times_run(getpid(), 0), before);
}

TEST(ProcessStatusTest, who_traces_a_process_is_known) {
  EXPECT_EQ(tracer_of(0), 0);
  const pid_t child = fork();
  if (child == 0) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    _exit(0);
  }
  int status;
  ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
  const bool is_traced = WIFSTOPPED(status) && tracer_of(child) != 0;
  const pid_t tracer = tracer_of(child);
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  if (!is_traced)
    GTEST_SKIP() << "nothing can be traced here";
  EXPECT_EQ(tracer, getpid());
}

}  // namespace vboard
