// One clock for a whole run that jumps: which thread may run, who waits for what, and when board
// time moves on.
//
// One thread of the run has the baton and runs, over all processes. It passes the baton on in a
// call that waits, or after a slice of board time. Threads that can go on come first, in the order
// in which they became able to; then each that waits for something outside of the schedule (a pipe,
// a child, a device) looks whether it has come, in the order of their birth; and when nobody can go
// on, board time jumps to the earliest moment at which something happens.
//
// The functions here know nothing of the kernel. They are called under the schedule's lock.

#ifndef VBOARD_BOARD_SCHEDULE_H
#define VBOARD_BOARD_SCHEDULE_H
#include "vboard/base/shared_lock.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vboard {

inline constexpr std::int64_t kNoTime = INT64_MAX;

// A thread of the run.
struct Seat {
  enum : std::uint32_t {
    kFree,
    kRuns,     // it has the baton
    kReady,    // it could go on
    kWaits,    // for a moment, for a wake, or for what it must look for itself
    kOutside,  // it runs without the baton, or sleeps in a call that nobody knows of
  };
  enum : std::uint32_t {
    kFromRun,
    kFromOutside,
    kFromKeyboard,  // from outside as long as somebody may type
  };
  std::atomic<std::uint32_t> use;
  std::int32_t process, thread;  // the thread is 0 until it has arrived
  std::int64_t ready_at;         // board time
  std::int64_t deadline;         // kNoTime: none
  std::uint64_t birth;
  std::uint64_t order;                // of becoming ready, or of beginning to wait
  std::uint64_t looked;               // the round of its last look
  std::uint64_t key;                  // an address of its process: what wake_seats() names
  std::uint64_t handle;               // the thread's pthread_t
  std::uint32_t looks;                // whether it must look itself
  std::uint32_t woken;                // by its key
  std::uint32_t open_ended;           // where what it waits for may come from
  std::uint32_t sleeps;               // kOutside: it was asleep, and does not compute
  std::uint32_t has_line;             // the trace's line of its wait is still to be written
  std::uint32_t tells;                // it is to write that line now
  std::uint32_t halts;                // board time stands still while it runs, even if it sleeps
  std::uint32_t bell;                 // the name of the socket that wakes it
  std::atomic<std::uint32_t> called;  // a signal may have reached it: it looks once more
  std::atomic<std::uint64_t> calls;   // that it has made on the board
  char waits_for[64];                 // "read /dev/rtc0", for a person
};

// A timer of a process, whose signal the schedule sends.
struct RunTimer {
  std::uint32_t used;
  std::int32_t process;
  std::int64_t expiry;  // kNoTime: stopped
  std::int64_t interval;
  std::int64_t id;  // of timer_create(); kAlarm
  std::int32_t clock;
  std::int32_t notify, signal;  // as in sigevent
  std::int32_t thread;          // with SIGEV_THREAD_ID
  std::uint64_t value;
};
inline constexpr std::int64_t kAlarm = -1;

inline constexpr std::size_t kMostSeats = 256;
inline constexpr std::size_t kMostRunTimers = 128;
inline constexpr std::int32_t kNobody = -1;
// In the place of a seat with the baton: the launcher types, and nobody goes on.
inline constexpr std::int32_t kAttendant = -2;

struct Schedule {
  SharedLock lock;
  std::atomic<std::int32_t> holder;  // the seat with the baton, kNobody, kAttendant
  std::uint32_t begun;               // 0: nobody has taken a seat yet
  std::uint32_t attendant;           // the bell of the launcher
  // Somebody outside of the run may still type on its terminal.
  std::atomic<std::uint32_t> has_keyboard;
  // How far board time may jump while a thread computes without the baton.
  std::int64_t pace;
  std::uint64_t births, orders;
  std::uint64_t round;                 // of looks: another one after somebody has run
  std::int64_t slice_end;              // of the holder
  std::atomic<std::int64_t> next_due;  // the earliest deadline of a wait or a timer
  std::uint32_t seats_end;             // the seats from here on were never used
  Seat seats[kMostSeats];
  RunTimer timers[kMostRunTimers];
};

// The board time that a thread may use before others have their turn.
inline constexpr std::int64_t kSlice = 100'000;

void begin_schedule(Schedule &schedule);

// The seats that were ever used. A program may have overwritten the number of them: the span never
// leaves the schedule.
std::span<Seat> seats_of(Schedule &schedule);
std::span<const Seat> seats_of(const Schedule &schedule);
std::int32_t index_of(const Schedule &schedule, const Seat &seat);

// A new thread: it is ready, and comes after those that are. kNobody when there is no room.
std::int32_t take_seat(Schedule &schedule, std::int32_t process, std::int32_t thread,
                       std::int64_t now);
void free_seat(Schedule &schedule, std::int32_t index);
// Everything that a process had: it has ended. Whoever waits looks again.
void free_seats_of(Schedule &schedule, std::int32_t process);
// The first seat of a process, or that of one of its threads; kNobody without.
std::int32_t find_seat(const Schedule &schedule, std::int32_t process);
std::int32_t find_seat_of_thread(const Schedule &schedule, std::int32_t process,
                                 std::int32_t thread);

void make_ready(Schedule &schedule, Seat &seat, std::int64_t now);
// The holder begins to wait; what else the seat says about its wait is set by then.
void begin_wait(Schedule &schedule, Seat &seat);
// The seat has the baton, and goes on.
void begin_running(Schedule &schedule, std::int32_t index, std::int64_t now);

// Wakes those of a process that wait for a key, the longest waiting one first.
void wake_seats(Schedule &schedule, std::int32_t process, std::uint64_t key, bool all,
                std::int64_t now);
// A signal may have come to a process (0: to any): its waits are looked at once more.
void call_seats(Schedule &schedule, std::int32_t process);
// Something is about to happen that may end a process (0: all): its waits write their lines first.
// Whether there is one that must.
bool ask_for_lines(Schedule &schedule, std::int32_t process);
// Makes those ready whose moment has come, the earliest first. Whether there was one.
bool end_due_waits(Schedule &schedule, std::int64_t now);

// What is to happen next while nobody has the baton.
struct Turn {
  enum Kind : std::uint8_t {
    kGive,   // `seat` gets the baton
    kJump,   // board time moves to `moment`
    kIdle,   // only something from outside can go on
    kStuck,  // nothing can ever happen
  };
  Kind kind;
  std::int32_t seat;
  std::int64_t moment;
};
// `next_event` is when a planned signal, or the board's reset, comes.
Turn next_turn(const Schedule &schedule, std::int64_t next_event);

// The earliest deadline of a wait or a timer.
std::int64_t earliest_deadline(const Schedule &schedule);

// A timer of a process by its number; null without. make_timer() finds room for a new one.
RunTimer *find_timer(Schedule &schedule, std::int32_t process, std::int64_t id);
RunTimer *make_timer(Schedule &schedule, std::int32_t process, std::int64_t id);
// Whether a thread computes without the baton.
bool is_computing(const Schedule &schedule);

// Moves a timer that is due to its next expiry, or stops it. Expiries that were jumped over count
// as one, as a pending signal is one. A timer whose next expiry would be after the end of all time
// is stopped.
void renew_timer(RunTimer &timer, std::int64_t now);

}  // namespace vboard

#endif
