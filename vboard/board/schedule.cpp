#include "vboard/board/schedule.h"

#include <algorithm>
#include <tuple>

namespace vboard {

namespace {

std::uint32_t use_of(const Seat &seat) {
  return seat.use.load(std::memory_order_relaxed);
}

bool must_look(const Schedule &schedule, const Seat &seat) {
  return use_of(seat) == Seat::kWaits && ((seat.looks != 0 && seat.looked != schedule.round) ||
                                          seat.called.load(std::memory_order_relaxed) != 0);
}

bool waits_for_outside(const Schedule &schedule, const Seat &seat) {
  return use_of(seat) == Seat::kWaits &&
         (seat.open_ended == Seat::kFromOutside ||
          (seat.open_ended == Seat::kFromKeyboard && schedule.has_keyboard != 0));
}

bool comes_before(const Seat &one, const Seat &other) {
  return std::tie(one.ready_at, one.order) < std::tie(other.ready_at, other.order);
}

}  // namespace

void begin_schedule(Schedule &schedule) {
  schedule.holder = kNobody;
  schedule.next_due = kNoTime;
  schedule.begun = 1;
}

std::span<Seat> seats_of(Schedule &schedule) {
  return {schedule.seats, std::min<std::size_t>(schedule.seats_end, kMostSeats)};
}

std::span<const Seat> seats_of(const Schedule &schedule) {
  return {schedule.seats, std::min<std::size_t>(schedule.seats_end, kMostSeats)};
}

std::int32_t index_of(const Schedule &schedule, const Seat &seat) {
  return static_cast<std::int32_t>(&seat - schedule.seats);
}

std::int32_t take_seat(Schedule &schedule, std::int32_t process, std::int32_t thread,
                       std::int64_t now) {
  std::uint32_t at = 0;
  while (at < kMostSeats && use_of(schedule.seats[at]) != Seat::kFree)
    ++at;
  if (at == kMostSeats)
    return kNobody;
  schedule.seats_end = std::max(schedule.seats_end, at + 1);
  Seat &seat = schedule.seats[at];
  seat.process = process;
  seat.thread = thread;
  seat.birth = ++schedule.births;
  seat.deadline = kNoTime;
  seat.handle = 0;
  seat.bell = 0;
  seat.calls = 0;
  // Whoever had the seat before may have been killed in the middle of anything.
  seat.key = 0;
  seat.looks = 0;
  seat.woken = 0;
  seat.open_ended = 0;
  seat.sleeps = 0;
  seat.has_line = 0;
  seat.tells = 0;
  seat.halts = 0;
  seat.called = 0;
  seat.waits_for[0] = '\0';
  make_ready(schedule, seat, now);
  return static_cast<std::int32_t>(at);
}

void free_seat(Schedule &schedule, std::int32_t index) {
  schedule.seats[index].use = Seat::kFree;
  schedule.seats[index].process = 0;
  if (schedule.holder == index)
    schedule.holder = kNobody;
}

void free_seats_of(Schedule &schedule, std::int32_t process) {
  for (const Seat &seat : seats_of(schedule)) {
    if (use_of(seat) != Seat::kFree && seat.process == process)
      free_seat(schedule, index_of(schedule, seat));
  }
  for (RunTimer &timer : schedule.timers) {
    if (timer.process == process)
      timer.used = 0;
  }
  ++schedule.round;
  call_seats(schedule, 0);
}

std::int32_t find_seat(const Schedule &schedule, std::int32_t process) {
  for (const Seat &seat : seats_of(schedule)) {
    if (use_of(seat) != Seat::kFree && seat.process == process)
      return index_of(schedule, seat);
  }
  return kNobody;
}

std::int32_t find_seat_of_thread(const Schedule &schedule, std::int32_t process,
                                 std::int32_t thread) {
  for (const Seat &seat : seats_of(schedule)) {
    if (use_of(seat) != Seat::kFree && seat.process == process && seat.thread == thread)
      return index_of(schedule, seat);
  }
  return kNobody;
}

void make_ready(Schedule &schedule, Seat &seat, std::int64_t now) {
  seat.ready_at = now;
  seat.order = ++schedule.orders;
  seat.use = Seat::kReady;
}

void begin_wait(Schedule &schedule, Seat &seat) {
  seat.order = ++schedule.orders;
  seat.looked = schedule.round;
  seat.woken = 0;
  seat.use = Seat::kWaits;
  schedule.holder = kNobody;
}

void begin_running(Schedule &schedule, std::int32_t index, std::int64_t now) {
  schedule.seats[index].use = Seat::kRuns;
  schedule.seats[index].called = 0;
  schedule.holder = index;
  schedule.slice_end = now + kSlice;
  schedule.next_due = earliest_deadline(schedule);
  ++schedule.round;
}

void wake_seats(Schedule &schedule, std::int32_t process, std::uint64_t key, bool all,
                std::int64_t now) {
  for (;;) {
    Seat *first = nullptr;
    for (Seat &seat : seats_of(schedule)) {
      if (use_of(seat) == Seat::kWaits && seat.process == process && seat.key == key &&
          seat.woken == 0 && (first == nullptr || seat.order < first->order))
        first = &seat;
    }
    if (first == nullptr)
      return;
    first->woken = 1;
    // One that has the baton for a look finds that it is woken.
    if (schedule.holder != index_of(schedule, *first))
      make_ready(schedule, *first, now);
    if (!all)
      return;
  }
}

void call_seats(Schedule &schedule, std::int32_t process) {
  for (Seat &seat : seats_of(schedule)) {
    if (use_of(seat) == Seat::kWaits && (process == 0 || seat.process == process))
      seat.called = 1;
  }
}

bool ask_for_lines(Schedule &schedule, std::int32_t process) {
  bool any = false;
  for (Seat &seat : seats_of(schedule)) {
    if (use_of(seat) != Seat::kWaits || seat.has_line == 0 ||
        (process != 0 && seat.process != process))
      continue;
    seat.tells = 1;
    seat.called = 1;
    any = true;
  }
  return any;
}

bool end_due_waits(Schedule &schedule, std::int64_t now) {
  bool any = false;
  for (;;) {
    Seat *first = nullptr;
    for (Seat &seat : seats_of(schedule)) {
      if (use_of(seat) == Seat::kWaits && seat.deadline <= now &&
          schedule.holder != index_of(schedule, seat) &&
          (first == nullptr ||
           std::tie(seat.deadline, seat.birth) < std::tie(first->deadline, first->birth)))
        first = &seat;
    }
    if (first == nullptr)
      return any;
    make_ready(schedule, *first, first->deadline);
    any = true;
  }
}

std::int64_t earliest_deadline(const Schedule &schedule) {
  std::int64_t earliest = kNoTime;
  for (const Seat &seat : seats_of(schedule)) {
    if (use_of(seat) == Seat::kWaits)
      earliest = std::min(earliest, seat.deadline);
  }
  for (const RunTimer &timer : schedule.timers) {
    if (timer.used != 0)
      earliest = std::min(earliest, timer.expiry);
  }
  return earliest;
}

Turn next_turn(const Schedule &schedule, std::int64_t next_event) {
  const Seat *ready = nullptr;
  const Seat *looker = nullptr;
  bool waits_outside = false;
  bool any = false;
  for (const Seat &seat : seats_of(schedule)) {
    const std::uint32_t use = use_of(seat);
    any = any || use != Seat::kFree;
    if (use == Seat::kReady && (ready == nullptr || comes_before(seat, *ready)))
      ready = &seat;
    if (must_look(schedule, seat) && (looker == nullptr || seat.birth < looker->birth))
      looker = &seat;
    waits_outside = waits_outside || use == Seat::kOutside || waits_for_outside(schedule, seat);
  }
  if (ready != nullptr || looker != nullptr)
    return {Turn::kGive, index_of(schedule, ready != nullptr ? *ready : *looker), 0};
  const std::int64_t moment = std::min(next_event, earliest_deadline(schedule));
  // A run that has ended has no time any more.
  if (!any || (moment > schedule.pace && is_computing(schedule)))
    return {Turn::kIdle, kNobody, 0};
  if (moment != kNoTime)
    return {Turn::kJump, kNobody, moment};
  return {waits_outside ? Turn::kIdle : Turn::kStuck, kNobody, 0};
}

bool is_computing(const Schedule &schedule) {
  for (const Seat &seat : seats_of(schedule)) {
    if (use_of(seat) == Seat::kOutside && seat.sleeps == 0)
      return true;
  }
  return false;
}

RunTimer *find_timer(Schedule &schedule, std::int32_t process, std::int64_t id) {
  for (RunTimer &timer : schedule.timers) {
    if (timer.used != 0 && timer.process == process && timer.id == id)
      return &timer;
  }
  return nullptr;
}

RunTimer *make_timer(Schedule &schedule, std::int32_t process, std::int64_t id) {
  for (RunTimer &timer : schedule.timers) {
    if (timer.used != 0)
      continue;
    timer = {};
    timer.used = 1;
    timer.process = process;
    timer.expiry = kNoTime;
    timer.id = id;
    return &timer;
  }
  return nullptr;
}

void renew_timer(RunTimer &timer, std::int64_t now) {
  if (timer.interval <= 0) {
    timer.expiry = kNoTime;
    return;
  }
  const std::int64_t last = now - (now - timer.expiry) % timer.interval;
  if (__builtin_add_overflow(last, timer.interval, &timer.expiry))
    timer.expiry = kNoTime;
}

}  // namespace vboard
