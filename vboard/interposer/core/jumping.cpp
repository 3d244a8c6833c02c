#include "vboard/interposer/core/jumping.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/interposer/core/wrap.h"

#include <fcntl.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

DECLARE_WRAPPED(int, ppoll, pollfd *, nfds_t, const timespec *, const sigset_t *);

namespace vboard {

namespace {

// A thread that waits in a jumping run. It stands on the waiting thread's stack.
struct Waiter {
  Waiter *next;
  Wait *wait;
  pid_t thread;
  int event_fd;  // -1 while this is the only thread
  bool waiting;  // otherwise the thread runs, or has been told to
  bool woken;    // by key
};

pthread_mutex_t engine_lock = PTHREAD_MUTEX_INITIALIZER;
Waiter *waiters;  // in the order of their registration
int thread_count = 1;
int running = 1;

// Threads whose end somebody may wait for.
constexpr std::size_t kMostThreads = 256;
pthread_t live_threads[kMostThreads];
std::size_t live_count;

__thread int thread_event_fd __attribute__((tls_model("initial-exec"))) = -1;

void jump_to(BoardTime when) {
  std::atomic<std::int64_t> &clock = run_page().jumped;
  std::int64_t now = clock.load(std::memory_order_relaxed);
  while (now < when && !clock.compare_exchange_weak(now, when, std::memory_order_relaxed)) {
  }
}

int event_fd_of_thread() {
  if (thread_event_fd < 0) {
    const int fd = static_cast<int>(syscall(SYS_eventfd2, 0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (fd >= 0) {
      thread_event_fd = sys_move_high(fd, kOwnDescriptors);
      add_own_descriptor(thread_event_fd);
    }
  }
  return thread_event_fd;
}

void ring(const Waiter &waiter) {
  std::uint64_t one = 1;
  if (waiter.event_fd >= 0)
    sys_write(waiter.event_fd, &one, sizeof one);
}

void set_running(Waiter &waiter) {
  if (waiter.waiting) {
    waiter.waiting = false;
    ++running;
  }
}

void add_waiter(Waiter &waiter) {
  Waiter **place = &waiters;
  while (*place != nullptr)
    place = &(*place)->next;
  waiter.next = nullptr;
  *place = &waiter;
}

void remove_waiter(Waiter &waiter) {
  for (Waiter **place = &waiters; *place != nullptr; place = &(*place)->next) {
    if (*place == &waiter) {
      *place = waiter.next;
      return;
    }
  }
}

// A signal handler may have left an earlier wait of this thread by longjmp(). Such a waiter stands
// deeper in the stack than this frame; one that a handler interrupted stands above it.
void drop_left_waiters(const Waiter &mine) {
  for (Waiter **place = &waiters; *place != nullptr;) {
    Waiter *one = *place;
    if (one->thread == mine.thread && one < &mine) {
      *place = one->next;
      set_running(*one);
    } else {
      place = &one->next;
    }
  }
}

// A descriptor of another waiting thread that is ready: that thread is about to run.
bool is_kernel_ready(const Wait &wait) {
  constexpr std::size_t limit = 64;
  pollfd fds[limit];
  const std::size_t count = std::min(wait.fd_count, limit);
  if (count == 0)
    return false;
  memcpy(fds, wait.fds, count * sizeof(pollfd));
  const timespec zero = {};
  return REAL(ppoll)(fds, count, &zero, nullptr) > 0;
}

// What happens next is decided by the thread that is the last to wait. True when time has moved, or
// a thread has been told to run: this one looks at its own wait again.
bool decide(Waiter &mine) {
  const BoardTime now = run_page().jumped.load(std::memory_order_relaxed);
  BoardTime next = next_scheduled();
  for (Waiter *one = waiters; one != nullptr; one = one->next) {
    if (!one->waiting)
      continue;
    if (one != &mine && is_kernel_ready(*one->wait))
      return false;
    BoardTime due = one->wait->deadline;
    if (look_at_watches(*one->wait, now, due))
      due = now;
    next = std::min(next, due);
  }
  if (next == kNever)
    return false;
  if (next > now)
    jump_to(next);
  // A signal, or the watchdog, may end the process: the line is written before that.
  if (next_scheduled() <= next)
    write_wait_line(*mine.wait);
  fire_scheduled(std::max(next, now));
  for (Waiter *one = waiters; one != nullptr; one = one->next) {
    BoardTime due = one->wait->deadline;
    if (one->waiting && (look_at_watches(*one->wait, next, due) || due <= next)) {
      set_running(*one);
      ring(*one);
    }
  }
  return true;
}

// "S" in the thread's status: it sleeps in the kernel, in a call that the engine does not know.
// "Z": it has ended before the others.
bool is_asleep(const char *directory, const char *name) {
  FixedText<64> path;
  append_text(path, directory, "/", name, "/stat");
  const int fd = sys_open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return true;  // it has ended
  char status[128];
  const ssize_t length = sys_read(fd, status, sizeof status);
  sys_close(fd);
  const std::string_view line(status, length > 0 ? static_cast<std::size_t>(length) : 0);
  const std::size_t name_end = line.rfind(") ");
  return name_end != std::string_view::npos && name_end + 2 < line.size() &&
         std::string_view("SZX").find(line[name_end + 2]) != std::string_view::npos;
}

// Whether every thread that does not wait on the board sleeps all the same: for a mutex, a pipe, a
// child. Board time must not stand still for those.
bool others_are_asleep(const Waiter &mine) {
  constexpr char directory[] = "/proc/self/task";
  const int fd = sys_open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0)
    return false;
  alignas(8) char entries[2048];
  bool asleep = true;
  for (;;) {
    const ssize_t size = sys_getdents(fd, entries, sizeof entries);
    if (size <= 0)
      break;
    for (ssize_t at = 0; at < size && asleep;) {
      // struct linux_dirent64: inode 8, offset 8, length of the entry 2, type 1, name.
      std::uint16_t entry_size;
      memcpy(&entry_size, entries + at + 16, sizeof entry_size);
      const char *name = entries + at + 19;
      std::int64_t number = 0;
      if (parse_number(name, number)) {
        bool waits = false;
        for (Waiter *one = waiters; one != nullptr; one = one->next)
          waits = waits || (one->thread == number && (one->waiting || one == &mine));
        asleep = waits || is_asleep(directory, name);
      }
      at += entry_size;
    }
  }
  sys_close(fd);
  return asleep;
}

}  // namespace

WaitEnd wait_jumping(Wait &wait) {
  sigset_t saved;
  int cancel_state;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);
  lock_engine(saved);
  const sigset_t *mask = wait.mask != nullptr ? wait.mask : &saved;
  Waiter mine = {nullptr, &wait, static_cast<pid_t>(syscall(SYS_gettid)), -1, false, false};
  drop_left_waiters(mine);
  add_waiter(mine);
  if (wait.release != nullptr) {
    pthread_mutex_unlock(&engine_lock);
    pthread_mutex_unlock(wait.release);
    pthread_mutex_lock(&engine_lock);
  }

  WaitEnd end;
  BoardTime pause = 1'000'000;  // of the PC's time, until the other threads are looked at again
  int asleep = 0;
  for (;;) {
    // First what there is already: a wake, a signal, a descriptor, a device.
    if (mine.woken || (wait.done != nullptr && wait.done(wait.key))) {
      end = WaitEnd::kWoken;
      break;
    }
    const BoardTime now = run_page().jumped.load(std::memory_order_relaxed);
    BoardTime ignored = kNever;
    const bool ready = look_at_watches(wait, now, ignored);
    if (thread_count > 1)
      mine.event_fd = event_fd_of_thread();
    pthread_mutex_unlock(&engine_lock);
    const timespec zero = {};
    int polled = poll_kernel(wait, -1, &zero, mask);
    pthread_mutex_lock(&engine_lock);
    if (polled < 0) {
      end = WaitEnd::kInterrupted;
      break;
    }
    if (polled > 0 || ready) {
      end = WaitEnd::kReady;
      break;
    }
    if (wait.deadline <= run_page().jumped.load(std::memory_order_relaxed)) {
      end = WaitEnd::kTimeout;
      break;
    }
    if (mine.woken)
      continue;

    mine.waiting = true;
    --running;
    const bool idle = running == 0;
    if (idle || asleep >= 2) {
      asleep = 0;
      if (decide(mine)) {
        const bool others_run = running > (mine.waiting ? 0 : 1);
        if (!mine.waiting || !others_run) {
          set_running(mine);
          continue;
        }
      }
    }
    // Nothing of the board can end this wait. Otherwise it looks again now and then: at threads
    // that sleep in calls which the engine does not know, at devices that another process may
    // change.
    const bool forever =
        wait.watch_count == 0 &&
        (thread_count == 1 || (wait.deadline == kNever && next_scheduled() == kNever));
    pthread_mutex_unlock(&engine_lock);
    timespec limit = timespec_of(pause);
    polled = poll_kernel(wait, mine.event_fd, forever ? nullptr : &limit, mask);
    pthread_mutex_lock(&engine_lock);
    const bool told = !mine.waiting;
    set_running(mine);
    if (polled < 0) {
      end = WaitEnd::kInterrupted;
      break;
    }
    if (polled > 0) {
      end = WaitEnd::kReady;
      break;
    }
    if (!told && thread_count > 1) {
      asleep = others_are_asleep(mine) ? asleep + 1 : 0;
      pause = asleep > 0 ? 1'000'000 : std::min<BoardTime>(2 * pause, 20'000'000);
    }
  }
  remove_waiter(mine);
  unlock_engine(saved);
  pthread_setcancelstate(cancel_state, nullptr);
  // A condition's mutex is taken again first.
  if (cancel_state == PTHREAD_CANCEL_ENABLE && wait.release == nullptr)
    pthread_testcancel();
  return end;
}

void wake_waiters(const void *key, bool all) {
  sigset_t saved;
  lock_engine(saved);
  for (Waiter *one = waiters; one != nullptr; one = one->next) {
    if (one->wait->key != key || one->woken)
      continue;
    // A wait with a test of its own looks for itself.
    if (one->wait->done == nullptr)
      one->woken = true;
    set_running(*one);
    ring(*one);
    if (!all)
      break;
  }
  unlock_engine(saved);
}

void wake_watchers() {
  sigset_t saved;
  lock_engine(saved);
  for (Waiter *one = waiters; one != nullptr; one = one->next) {
    if (one->wait->watch_count == 0)
      continue;
    set_running(*one);
    ring(*one);
  }
  unlock_engine(saved);
}

void lock_engine(sigset_t &saved) {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &saved);
  pthread_mutex_lock(&engine_lock);
}

void unlock_engine(const sigset_t &saved) {
  pthread_mutex_unlock(&engine_lock);
  pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

void thread_begins(pthread_t thread) {
  ++thread_count;
  ++running;
  if (live_count < kMostThreads)
    live_threads[live_count++] = thread;
}

bool thread_has_ended(const void *key) {
  const pthread_t thread = reinterpret_cast<pthread_t>(key);
  for (std::size_t i = 0; i < live_count; ++i) {
    if (pthread_equal(live_threads[i], thread))
      return false;
  }
  return true;
}

void thread_ends(pthread_t thread) {
  sigset_t saved;
  lock_engine(saved);
  --thread_count;
  --running;
  for (std::size_t i = 0; i < live_count; ++i) {
    if (pthread_equal(live_threads[i], thread))
      live_threads[i--] = live_threads[--live_count];
  }
  if (thread_event_fd >= 0) {
    remove_own_descriptor(thread_event_fd);
    sys_close(thread_event_fd);
    thread_event_fd = -1;
  }
  // Whoever joins this thread looks whether it has ended; without one, some waiter must decide what
  // happens next in its stead.
  bool told = false;
  for (Waiter *one = waiters; one != nullptr; one = one->next) {
    if (one->wait->done == nullptr)
      continue;
    set_running(*one);
    ring(*one);
    told = true;
  }
  if (!told && waiters != nullptr) {
    set_running(*waiters);
    ring(*waiters);
  }
  unlock_engine(saved);
}

void renew_engine() {
  engine_lock = PTHREAD_MUTEX_INITIALIZER;
  waiters = nullptr;
  thread_count = 1;
  running = 1;
  live_count = 0;
  if (thread_event_fd >= 0) {
    remove_own_descriptor(thread_event_fd);
    sys_close(thread_event_fd);
    thread_event_fd = -1;
  }
}

}  // namespace vboard
