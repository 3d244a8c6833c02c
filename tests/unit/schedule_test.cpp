// Whose turn is next in a run whose clock jumps, by the tables alone: no thread runs here.

#include "vboard/board/schedule.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vboard {
namespace {

constexpr std::int32_t kProcess = 100;
constexpr std::int32_t kOther = 200;

struct Waiting {
  std::int64_t deadline = kNoTime;
  std::uint64_t key = 0;
  bool looks = false;
  bool open_ended = false;
  bool has_line = false;
};

class ScheduleTest : public testing::Test {
 protected:
  ScheduleTest() : memory(std::make_unique<Schedule>()), schedule(*memory) {
    begin_schedule(schedule);
  }

  Seat &seat(std::int32_t index) {
    return schedule.seats[index];
  }
  std::int32_t take(std::int32_t process = kProcess, std::int32_t thread = 1,
                    std::int64_t now = 0) {
    return take_seat(schedule, process, thread, now);
  }
  // The seat gets the baton, and begins to wait.
  void wait(std::int32_t index, const Waiting &waiting) {
    begin_running(schedule, index, 0);
    Seat &waits = seat(index);
    waits.deadline = waiting.deadline;
    waits.key = waiting.key;
    waits.looks = waiting.looks;
    waits.open_ended = waiting.open_ended;
    waits.has_line = waiting.has_line;
    begin_wait(schedule, waits);
  }
  std::int32_t take_and_wait(const Waiting &waiting, std::int32_t process = kProcess) {
    const std::int32_t index = take(process);
    wait(index, waiting);
    return index;
  }
  // The seat has looked, and what it waits for has not come.
  void look_in_vain(std::int32_t index) {
    seat(index).looked = schedule.round;
    seat(index).called = 0;
  }
  std::string next(std::int64_t event = kNoTime) const {
    const Turn turn = next_turn(schedule, event);
    switch (turn.kind) {
      case Turn::kGive:
        return "give " + std::to_string(turn.seat);
      case Turn::kJump:
        return "jump " + std::to_string(turn.moment);
      case Turn::kIdle:
        return "idle";
      default:
        return "stuck";
    }
  }
  // Lets everybody who is ready run once, and end.
  std::vector<std::int32_t> order_of_ready() {
    std::vector<std::int32_t> order;
    for (Turn turn = next_turn(schedule, kNoTime);
         turn.kind == Turn::kGive && order.size() < kMostSeats;
         turn = next_turn(schedule, kNoTime)) {
      order.push_back(turn.seat);
      free_seat(schedule, turn.seat);
    }
    return order;
  }

  const std::unique_ptr<Schedule> memory;
  Schedule &schedule;
};

using Order = std::vector<std::int32_t>;

}  // namespace

TEST_F(ScheduleTest, begins_with_nobody) {
  EXPECT_EQ(schedule.begun, 1u);
  EXPECT_EQ(schedule.holder, kNobody);
  EXPECT_EQ(schedule.next_due, kNoTime);
  EXPECT_EQ(earliest_deadline(schedule), kNoTime);
  EXPECT_FALSE(is_computing(schedule));
  EXPECT_EQ(next(), "idle");
  // A run without threads has no time any more.
  EXPECT_EQ(next(5), "idle");
}

TEST_F(ScheduleTest, new_threads_are_ready_in_their_order) {
  for (std::int32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(take(), i);
    EXPECT_EQ(seat(i).use, Seat::kReady);
  }
  EXPECT_EQ(order_of_ready(), (Order{0, 1, 2}));
}

TEST_F(ScheduleTest, a_new_thread_comes_after_those_that_are_ready) {
  const std::int32_t first = take();
  const std::int32_t second = take();
  free_seat(schedule, first);
  const std::int32_t third = take();
  EXPECT_EQ(third, first);  // the same place, at the end of the order
  EXPECT_EQ(order_of_ready(), (Order{second, third}));
}

TEST_F(ScheduleTest, ready_threads_come_by_time_before_order) {
  const std::int32_t late = take(kProcess, 1, 30);
  const std::int32_t early = take(kProcess, 2, 10);
  const std::int32_t between = take(kProcess, 3, 20);
  const std::int32_t as_early = take(kProcess, 4, 10);
  EXPECT_EQ(order_of_ready(), (Order{early, as_early, between, late}));
}

TEST_F(ScheduleTest, ready_comes_before_looks_and_looks_before_a_jump) {
  const std::int32_t looker = take_and_wait({.deadline = 500, .looks = true});
  const std::int32_t ready = take();
  ++schedule.round;
  EXPECT_EQ(next(), "give " + std::to_string(ready));
  free_seat(schedule, ready);
  EXPECT_EQ(next(), "give " + std::to_string(looker));
  look_in_vain(looker);
  EXPECT_EQ(next(), "jump 500");
}

TEST_F(ScheduleTest, looks_come_by_birth) {
  const std::int32_t oldest = take();
  const std::int32_t middle = take();
  const std::int32_t youngest = take();
  // Not in the order in which they began to wait.
  for (const std::int32_t index : {youngest, oldest, middle})
    wait(index, {.looks = true});
  ++schedule.round;
  Order looks;
  for (Turn turn = next_turn(schedule, kNoTime); turn.kind == Turn::kGive && looks.size() < 9;
       turn = next_turn(schedule, kNoTime)) {
    looks.push_back(turn.seat);
    look_in_vain(turn.seat);
  }
  EXPECT_EQ(looks, (Order{oldest, middle, youngest}));
  EXPECT_EQ(next(), "stuck");

  // The place of one that has ended is no birth right.
  free_seat(schedule, oldest);
  const std::int32_t newborn = take_and_wait({.looks = true});
  EXPECT_EQ(newborn, oldest);
  ++schedule.round;
  EXPECT_EQ(next(), "give " + std::to_string(middle));
  look_in_vain(middle);
  EXPECT_EQ(next(), "give " + std::to_string(youngest));
  look_in_vain(youngest);
  EXPECT_EQ(next(), "give " + std::to_string(newborn));
}

TEST_F(ScheduleTest, a_wait_begins_with_a_look_and_another_comes_after_somebody_has_run) {
  const std::int32_t looker = take_and_wait({.deadline = 9, .looks = true});
  EXPECT_EQ(next(), "jump 9");
  const std::int32_t runner = take();
  begin_running(schedule, runner, 0);
  free_seat(schedule, runner);
  EXPECT_EQ(next(), "give " + std::to_string(looker));
}

TEST_F(ScheduleTest, who_need_not_look_is_not_asked) {
  take_and_wait({.deadline = 9});
  ++schedule.round;
  EXPECT_EQ(next(), "jump 9");
}

TEST_F(ScheduleTest, running_takes_the_baton_for_a_slice) {
  const std::int32_t sleeper = take_and_wait({.deadline = 7'000'000});
  const std::int32_t runner = take();
  seat(runner).called = 1;
  const std::uint64_t round = schedule.round;
  begin_running(schedule, runner, 1'000'000);
  EXPECT_EQ(schedule.holder, runner);
  EXPECT_EQ(seat(runner).use, Seat::kRuns);
  EXPECT_EQ(seat(runner).called, 0u);
  EXPECT_EQ(schedule.slice_end, 1'100'000);
  EXPECT_EQ(schedule.next_due, 7'000'000);
  EXPECT_NE(schedule.round, round);
  EXPECT_EQ(seat(sleeper).use, Seat::kWaits);
  begin_wait(schedule, seat(runner));
  EXPECT_EQ(schedule.holder, kNobody);
  EXPECT_EQ(seat(runner).use, Seat::kWaits);
}

TEST_F(ScheduleTest, time_jumps_to_the_earliest_deadline_or_event) {
  take_and_wait({.deadline = 300});
  take_and_wait({.deadline = 200});
  take_and_wait({.deadline = 400});
  EXPECT_EQ(earliest_deadline(schedule), 200);
  EXPECT_EQ(next(), "jump 200");
  EXPECT_EQ(next(201), "jump 200");
  EXPECT_EQ(next(199), "jump 199");
}

TEST_F(ScheduleTest, only_waits_have_deadlines) {
  const std::int32_t index = take_and_wait({.deadline = 300});
  make_ready(schedule, seat(index), 0);
  EXPECT_EQ(earliest_deadline(schedule), kNoTime);
  begin_running(schedule, index, 0);
  EXPECT_EQ(schedule.next_due, kNoTime);
}

TEST_F(ScheduleTest, due_waits_end_the_earliest_first) {
  const std::int32_t late = take_and_wait({.deadline = 30});
  const std::int32_t early = take_and_wait({.deadline = 10});
  const std::int32_t due_now = take_and_wait({.deadline = 25});
  const std::int32_t not_yet = take_and_wait({.deadline = 31});
  EXPECT_FALSE(end_due_waits(schedule, 9));
  EXPECT_TRUE(end_due_waits(schedule, 25));
  EXPECT_EQ(seat(early).use, Seat::kReady);
  EXPECT_EQ(seat(early).ready_at, 10);
  EXPECT_EQ(seat(due_now).ready_at, 25);
  EXPECT_EQ(seat(late).use, Seat::kWaits);
  // One that became ready at a moment between the two has its turn between them.
  const std::int32_t between = take(kProcess, 9, 15);
  EXPECT_TRUE(end_due_waits(schedule, 30));
  EXPECT_FALSE(end_due_waits(schedule, 30));
  EXPECT_EQ(seat(not_yet).use, Seat::kWaits);
  EXPECT_EQ(order_of_ready(), (Order{early, between, due_now, late}));
}

TEST_F(ScheduleTest, waits_that_end_together_go_on_by_birth) {
  const std::int32_t ended = take();
  const std::int32_t older = take();
  free_seat(schedule, ended);
  const std::int32_t younger = take();  // in the place before the older one's
  wait(younger, {.deadline = 10});
  wait(older, {.deadline = 10});
  EXPECT_TRUE(end_due_waits(schedule, 10));
  EXPECT_EQ(order_of_ready(), (Order{older, younger}));
}

TEST_F(ScheduleTest, the_earliest_of_due_waits_becomes_ready_first) {
  const std::int32_t older = take_and_wait({.deadline = 20});
  const std::int32_t younger = take_and_wait({.deadline = 10});
  EXPECT_TRUE(end_due_waits(schedule, 20));
  EXPECT_LT(seat(younger).order, seat(older).order);
}

TEST_F(ScheduleTest, a_wait_with_the_baton_for_a_look_ends_itself) {
  const std::int32_t looker = take_and_wait({.deadline = 10, .looks = true});
  schedule.holder = looker;
  EXPECT_FALSE(end_due_waits(schedule, 10));
  EXPECT_EQ(seat(looker).use, Seat::kWaits);
}

TEST_F(ScheduleTest, a_wake_is_for_the_longest_waiting_one) {
  const std::int32_t born_first = take();
  const std::int32_t longest = take();
  wait(longest, {.key = 0xA});
  wait(born_first, {.key = 0xA});
  wake_seats(schedule, kProcess, 0xA, false, 70);
  EXPECT_EQ(seat(longest).use, Seat::kReady);
  EXPECT_EQ(seat(longest).woken, 1u);
  EXPECT_EQ(seat(longest).ready_at, 70);
  EXPECT_EQ(seat(born_first).use, Seat::kWaits);
  EXPECT_EQ(seat(born_first).woken, 0u);
  wake_seats(schedule, kProcess, 0xA, false, 70);
  EXPECT_EQ(order_of_ready(), (Order{longest, born_first}));
}

TEST_F(ScheduleTest, a_wake_of_all_keeps_the_order_of_waiting) {
  Order expected;
  for (std::int32_t i = 0; i < 4; ++i)
    take();
  for (const std::int32_t index : {2, 0, 3, 1}) {
    wait(index, {.key = 0xA});
    expected.push_back(index);
  }
  wake_seats(schedule, kProcess, 0xA, true, 5);
  EXPECT_EQ(order_of_ready(), expected);
}

TEST_F(ScheduleTest, a_wake_leaves_other_keys_and_other_processes_alone) {
  const std::int32_t same_key = take_and_wait({.key = 0xA}, kOther);
  const std::int32_t other_key = take_and_wait({.key = 0xB});
  wake_seats(schedule, kProcess, 0xA, true, 5);
  EXPECT_EQ(seat(same_key).use, Seat::kWaits);
  EXPECT_EQ(seat(same_key).woken, 0u);
  EXPECT_EQ(seat(other_key).woken, 0u);
  EXPECT_EQ(next(), "stuck");
}

TEST_F(ScheduleTest, a_wake_does_not_last_until_a_later_wait) {
  const std::int32_t index = take();
  seat(index).key = 0xA;
  wake_seats(schedule, kProcess, 0xA, true, 5);  // it does not wait
  EXPECT_EQ(seat(index).woken, 0u);
  seat(index).woken = 1;
  wait(index, {.key = 0xA});
  EXPECT_EQ(seat(index).woken, 0u);
}

TEST_F(ScheduleTest, one_wake_each_even_while_a_thread_looks) {
  const std::int32_t looker = take_and_wait({.key = 0xA, .looks = true});
  const std::int32_t sleeper = take_and_wait({.key = 0xA});
  schedule.holder = looker;
  wake_seats(schedule, kProcess, 0xA, false, 5);
  EXPECT_EQ(seat(looker).woken, 1u);
  EXPECT_EQ(seat(looker).use, Seat::kWaits);  // it has the baton, and finds that it is woken
  EXPECT_EQ(seat(sleeper).woken, 0u);
  wake_seats(schedule, kProcess, 0xA, false, 5);
  EXPECT_EQ(seat(sleeper).use, Seat::kReady);
}

TEST_F(ScheduleTest, who_is_called_looks_once_more) {
  const std::int32_t one = take_and_wait({.deadline = 9});
  const std::int32_t of_other = take_and_wait({.deadline = 9, .looks = true}, kOther);
  const std::int32_t ready = take();
  call_seats(schedule, kProcess);
  EXPECT_EQ(seat(one).called, 1u);
  EXPECT_EQ(seat(of_other).called, 0u);
  EXPECT_EQ(seat(ready).called, 0u);
  free_seat(schedule, ready);
  EXPECT_EQ(next(), "give " + std::to_string(one));
  look_in_vain(one);
  EXPECT_EQ(next(), "jump 9");
  call_seats(schedule, 0);
  EXPECT_EQ(seat(one).called, 1u);
  EXPECT_EQ(seat(of_other).called, 1u);
  EXPECT_EQ(next(), "give " + std::to_string(one));
}

TEST_F(ScheduleTest, lines_are_asked_of_waits_that_have_one) {
  const std::int32_t plain = take_and_wait({});
  const std::int32_t runs = take();
  seat(runs).has_line = 1;
  EXPECT_FALSE(ask_for_lines(schedule, 0));
  const std::int32_t line = take_and_wait({.has_line = true});
  const std::int32_t line_of_other = take_and_wait({.has_line = true}, kOther);

  EXPECT_TRUE(ask_for_lines(schedule, kOther));
  EXPECT_EQ(seat(line_of_other).tells, 1u);
  EXPECT_EQ(seat(line_of_other).called, 1u);
  EXPECT_EQ(seat(line).tells, 0u);
  EXPECT_EQ(seat(line).called, 0u);
  EXPECT_FALSE(ask_for_lines(schedule, 300));

  EXPECT_TRUE(ask_for_lines(schedule, 0));
  EXPECT_EQ(seat(line).tells, 1u);
  EXPECT_EQ(seat(line).called, 1u);
  EXPECT_EQ(seat(plain).tells, 0u);
  EXPECT_EQ(seat(plain).called, 0u);
  EXPECT_EQ(seat(runs).tells, 0u);
}

TEST_F(ScheduleTest, while_a_thread_computes_time_goes_as_far_as_its_pace) {
  const std::int32_t computes = take();
  take_and_wait({.deadline = 500});
  seat(computes).use = Seat::kOutside;
  EXPECT_TRUE(is_computing(schedule));
  schedule.pace = 499;
  EXPECT_EQ(next(), "idle");
  schedule.pace = 500;
  EXPECT_EQ(next(), "jump 500");
  // One that sleeps outside of the schedule holds nobody up.
  schedule.pace = 0;
  seat(computes).sleeps = 1;
  EXPECT_FALSE(is_computing(schedule));
  EXPECT_EQ(next(), "jump 500");
}

TEST_F(ScheduleTest, whoever_is_ready_goes_on_while_a_thread_computes) {
  const std::int32_t computes = take();
  const std::int32_t ready = take();
  seat(computes).use = Seat::kOutside;
  EXPECT_EQ(next(), "give " + std::to_string(ready));
}

TEST_F(ScheduleTest, waits_for_ever_are_stuck_unless_something_may_come_from_outside) {
  const std::int32_t closed = take_and_wait({.looks = true});
  EXPECT_EQ(next(), "stuck");
  const std::int32_t open = take_and_wait({.open_ended = true});
  look_in_vain(closed);
  EXPECT_EQ(next(), "idle");
  EXPECT_EQ(next(50), "jump 50");
  // What an earlier user of the seat waited for counts no more.
  free_seat(schedule, open);
  EXPECT_EQ(next(), "stuck");
  const std::int32_t outside = take();
  seat(outside).use = Seat::kOutside;
  seat(outside).sleeps = 1;
  EXPECT_EQ(next(), "idle");
  // It looks when it makes its next call, not before.
  seat(outside).looks = 1;
  seat(outside).called = 1;
  EXPECT_EQ(next(), "idle");
}

TEST_F(ScheduleTest, a_timer_is_found_by_process_and_number) {
  RunTimer *const made = make_timer(schedule, kProcess, 7);
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->expiry, kNoTime);
  EXPECT_EQ(made->interval, 0);
  EXPECT_EQ(find_timer(schedule, kProcess, 7), made);
  EXPECT_EQ(find_timer(schedule, kProcess, 8), nullptr);
  EXPECT_EQ(find_timer(schedule, kOther, 7), nullptr);
  RunTimer *const alarm = make_timer(schedule, kProcess, kAlarm);
  EXPECT_NE(alarm, made);
  EXPECT_EQ(find_timer(schedule, kProcess, kAlarm), alarm);
  made->used = 0;
  EXPECT_EQ(find_timer(schedule, kProcess, 7), nullptr);
}

TEST_F(ScheduleTest, a_timer_has_nothing_of_the_one_before_it) {
  RunTimer *const first = make_timer(schedule, kProcess, 7);
  *first = {.used = 0,
            .process = kProcess,
            .expiry = 5,
            .interval = 6,
            .id = 7,
            .clock = 1,
            .notify = 4,
            .signal = 10,
            .thread = 3,
            .value = 99};
  RunTimer *const second = make_timer(schedule, kOther, 8);
  ASSERT_EQ(second, first);
  EXPECT_EQ(second->used, 1u);
  EXPECT_EQ(second->process, kOther);
  EXPECT_EQ(second->expiry, kNoTime);
  EXPECT_EQ(second->interval, 0);
  EXPECT_EQ(second->id, 8);
  EXPECT_EQ(second->signal, 0);
  EXPECT_EQ(second->value, 0u);
}

TEST_F(ScheduleTest, there_are_128_timers) {
  std::int64_t made = 0;
  while (made < 1000 && make_timer(schedule, kProcess, made) != nullptr)
    ++made;
  EXPECT_EQ(made, 128);
  find_timer(schedule, kProcess, 127)->used = 0;
  EXPECT_NE(make_timer(schedule, kProcess, 1000), nullptr);
  EXPECT_EQ(make_timer(schedule, kProcess, 1001), nullptr);
}

TEST_F(ScheduleTest, time_jumps_to_the_expiry_of_a_timer) {
  take_and_wait({.deadline = 500});
  RunTimer *const timer = make_timer(schedule, kProcess, 1);
  EXPECT_EQ(next(), "jump 500");
  timer->expiry = 400;
  EXPECT_EQ(earliest_deadline(schedule), 400);
  EXPECT_EQ(next(), "jump 400");
  timer->used = 0;
  EXPECT_EQ(next(), "jump 500");
}

TEST_F(ScheduleTest, a_timer_goes_on_after_the_expiries_that_were_jumped_over) {
  struct Case {
    std::int64_t expiry, interval, now, expected;
  };
  for (const Case &c : {
           Case{10, 0, 10, kNoTime},
           Case{10, 10, 10, 20},
           Case{10, 10, 19, 20},
           Case{10, 10, 20, 30},  // the one of this moment as well
           Case{10, 10, 35, 40},
           Case{10, 7, 1000, 1004},
           // Further away than any moment of the run.
           Case{10, kNoTime, 10, kNoTime},
           Case{10, kNoTime - 9, 10, kNoTime},
           Case{10, kNoTime - 11, 10, kNoTime - 1},
       }) {
    RunTimer timer = {};
    timer.expiry = c.expiry;
    timer.interval = c.interval;
    renew_timer(timer, c.now);
    EXPECT_EQ(timer.expiry, c.expected) << c.expiry << ' ' << c.interval << ' ' << c.now;
  }
}

TEST_F(ScheduleTest, seats_are_found_by_process_and_thread) {
  take(kOther, 1);
  take(kProcess, 1);
  take(kProcess, 2);
  EXPECT_EQ(find_seat(schedule, kProcess), 1);
  EXPECT_EQ(find_seat_of_thread(schedule, kProcess, 2), 2);
  EXPECT_EQ(find_seat_of_thread(schedule, kProcess, 3), kNobody);
  EXPECT_EQ(find_seat_of_thread(schedule, kOther, 2), kNobody);
  EXPECT_EQ(find_seat(schedule, 300), kNobody);
  free_seat(schedule, 1);
  EXPECT_EQ(find_seat(schedule, kProcess), 2);
  EXPECT_EQ(find_seat_of_thread(schedule, kProcess, 1), kNobody);
  // A free seat is nobody's.
  EXPECT_EQ(find_seat(schedule, 0), kNobody);
  EXPECT_EQ(find_seat_of_thread(schedule, 0, 1), kNobody);
  EXPECT_EQ(&seats_of(schedule)[2], &seat(2));
  EXPECT_EQ(index_of(schedule, seat(2)), 2);
}

TEST_F(ScheduleTest, a_seat_has_nothing_of_its_last_user) {
  const std::int32_t index = take();
  Seat &used = seat(index);
  used.deadline = 5;
  used.key = 0xA;
  used.handle = 6;
  used.looks = 1;
  used.woken = 1;
  used.open_ended = 1;
  used.sleeps = 1;
  used.has_line = 1;
  used.tells = 1;
  used.halts = 1;
  used.bell = 7;
  used.called = 1;
  used.calls = 8;
  used.waits_for[0] = 'x';
  free_seat(schedule, index);
  ASSERT_EQ(take(kOther, 3, 40), index);
  EXPECT_EQ(used.process, kOther);
  EXPECT_EQ(used.thread, 3);
  EXPECT_EQ(used.ready_at, 40);
  EXPECT_EQ(used.deadline, kNoTime);
  EXPECT_EQ(used.key, 0u);
  EXPECT_EQ(used.handle, 0u);
  EXPECT_EQ(used.looks, 0u);
  EXPECT_EQ(used.woken, 0u);
  EXPECT_EQ(used.open_ended, 0u);
  EXPECT_EQ(used.sleeps, 0u);
  EXPECT_EQ(used.has_line, 0u);
  EXPECT_EQ(used.tells, 0u);
  EXPECT_EQ(used.halts, 0u);
  EXPECT_EQ(used.bell, 0u);
  EXPECT_EQ(used.called, 0u);
  EXPECT_EQ(used.calls, 0u);
  EXPECT_STREQ(used.waits_for, "");
}

TEST_F(ScheduleTest, a_process_that_ends_takes_all_it_had_with_it) {
  const std::int32_t survivor = take_and_wait({.deadline = 900}, kOther);
  const std::int32_t first = take(kProcess, 1);
  const std::int32_t second = take(kProcess, 2);
  make_timer(schedule, kProcess, 1)->expiry = 20;
  make_timer(schedule, kOther, 1)->expiry = 950;
  begin_running(schedule, second, 0);
  const std::uint64_t round = schedule.round;
  free_seats_of(schedule, kProcess);
  EXPECT_EQ(schedule.holder, kNobody);
  EXPECT_EQ(seat(first).use, Seat::kFree);
  EXPECT_EQ(seat(second).use, Seat::kFree);
  EXPECT_EQ(find_timer(schedule, kProcess, 1), nullptr);
  EXPECT_NE(find_timer(schedule, kOther, 1), nullptr);
  // Whoever waits looks again: a parent for its child, a reader for the end of a pipe.
  EXPECT_NE(schedule.round, round);
  EXPECT_EQ(next(), "give " + std::to_string(survivor));
  look_in_vain(survivor);
  EXPECT_EQ(next(), "jump 900");
}

TEST_F(ScheduleTest, the_end_of_others_leaves_the_baton_where_it_is) {
  const std::int32_t holder = take(kProcess, 1);
  const std::int32_t other = take(kOther, 1);
  begin_running(schedule, holder, 0);
  free_seat(schedule, other);
  EXPECT_EQ(schedule.holder, holder);
  free_seats_of(schedule, kOther);
  EXPECT_EQ(schedule.holder, holder);
  free_seat(schedule, holder);
  EXPECT_EQ(schedule.holder, kNobody);
}

TEST_F(ScheduleTest, there_are_256_seats) {
  // What lies after the seats is not free either.
  for (std::int64_t i = 0; i < 128; ++i)
    make_timer(schedule, kProcess, i);
  for (std::int32_t i = 0; i < 256; ++i)
    ASSERT_EQ(take(kProcess, i + 1), i);
  EXPECT_EQ(schedule.seats_end, 256u);
  EXPECT_EQ(take(kOther), kNobody);
  EXPECT_EQ(find_seat(schedule, kOther), kNobody);
  free_seat(schedule, 77);
  EXPECT_EQ(take(kOther), 77);
  EXPECT_EQ(schedule.seats_end, 256u);
}

TEST_F(ScheduleTest, a_schedule_that_was_overwritten_is_not_left) {
  take_and_wait({.deadline = 40, .key = 0xA});
  for (const std::uint32_t wrong : {257u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    schedule.seats_end = wrong;
    EXPECT_EQ(seats_of(schedule).size(), 256u);
    EXPECT_EQ(find_seat(schedule, kOther), kNobody);
    EXPECT_EQ(find_seat_of_thread(schedule, kOther, 1), kNobody);
    EXPECT_EQ(earliest_deadline(schedule), 40);
    EXPECT_EQ(next(), "jump 40");
    EXPECT_FALSE(is_computing(schedule));
    EXPECT_FALSE(ask_for_lines(schedule, 0));
    EXPECT_FALSE(end_due_waits(schedule, 39));
    wake_seats(schedule, kOther, 0xA, true, 0);
    free_seats_of(schedule, kOther);
    look_in_vain(0);
  }
  EXPECT_EQ(take(), 1);
}

}  // namespace vboard
