#include "vboard/interposer/wrap/timer_threads.h"

#include "vboard/base/calendar.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/jumping.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>

#include <atomic>
#include <cstddef>

DECLARE_WRAPPED(int, pthread_create, pthread_t *, const pthread_attr_t *, void *(*)(void *),
                void *);

namespace vboard {

namespace {

struct ThreadTimer {
  PosixTimer timer;
  // Set by whoever changes the timer; its thread looks at it again then.
  std::atomic<bool> changed;
  std::atomic<bool> deleted;
  std::size_t stack_size;  // of the threads that it starts
};
static_assert(offsetof(ThreadTimer, timer) == 0);

ThreadTimer thread_timers[kMostTimers];

ThreadTimer &whole(PosixTimer &timer) {
  return *reinterpret_cast<ThreadTimer *>(&timer);
}

// What a started thread needs: the timer may be deleted before it runs.
struct Notification {
  void (*function)(sigval);
  sigval value;
};

void *notify(void *context) {
  const Notification notification = *static_cast<Notification *>(context);
  free(context);
  // The timer's own thread, which made this one, takes no signals.
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
  notification.function(notification.value);
  return nullptr;
}

int start_detached(void *(*function)(void *), void *context, std::size_t stack_size) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  if (stack_size != 0)
    pthread_attr_setstacksize(&attributes, stack_size);
  pthread_t thread;
  const int error = vboard_pthread_create(&thread, &attributes, function, context);
  pthread_attr_destroy(&attributes);
  return error;
}

// An expiry for which there is no thread is lost, as one that overruns is.
void start_notification(const ThreadTimer &one) {
  Notification *notification = static_cast<Notification *>(malloc(sizeof(Notification)));
  if (notification == nullptr)
    return;
  *notification = {one.timer.event.sigev_notify_function, one.timer.event.sigev_value};
  if (start_detached(notify, notification, one.stack_size) != 0)
    free(notification);
}

bool has_changed(const void *key) {
  return static_cast<const ThreadTimer *>(key)->changed.load();
}

// Moves the timer on when it is due.
bool take_expiry(Timer &timer) {
  sigset_t saved;
  lock_engine(saved);
  const BoardTime expiry = timer.expiry.load();
  const bool due = expiry <= current_time();
  if (due)
    timer.expiry.store(timer.interval > 0 ? saturated_sum(expiry, timer.interval) : kNever);
  unlock_engine(saved);
  return due;
}

// The thread of one timer.
void *serve(void *context) {
  ThreadTimer &one = *static_cast<ThreadTimer *>(context);
  while (!one.deleted.load()) {
    one.changed.store(false);
    Wait wait;
    wait.deadline = one.timer.timer.expiry.load();
    wait.key = &one;
    wait.done = has_changed;
    if (wait_on_board(wait) == WaitEnd::kTimeout && take_expiry(one.timer.timer))
      start_notification(one);
  }
  one.timer.used.store(false);
  return nullptr;
}

// A child of a fork has no timers, and not the threads either.
void forget_thread_timers() {
  for (ThreadTimer &one : thread_timers)
    one.timer.used.store(false);
}

ThreadTimer *take_place() {
  for (ThreadTimer &one : thread_timers) {
    if (!one.timer.used.exchange(true))
      return &one;
  }
  return nullptr;
}

pthread_once_t fork_watched = PTHREAD_ONCE_INIT;

}  // namespace

int add_thread_timer(timer_t id, clockid_t clock, const sigevent &event) {
  pthread_once(&fork_watched, [] { pthread_atfork(nullptr, nullptr, forget_thread_timers); });
  ThreadTimer *one = take_place();
  if (one == nullptr)
    return EAGAIN;
  one->timer.id = id;
  one->timer.clock = clock;
  one->timer.event = event;
  set_timer(one->timer.timer, kNever, 0);
  one->changed.store(false);
  one->deleted.store(false);
  one->stack_size = 0;
  if (event.sigev_notify_attributes != nullptr)
    pthread_attr_getstacksize(event.sigev_notify_attributes, &one->stack_size);
  sigset_t all;
  sigset_t saved;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &saved);
  const int error = start_detached(serve, one, 0);
  pthread_sigmask(SIG_SETMASK, &saved, nullptr);
  if (error != 0)
    one->timer.used.store(false);
  return error;
}

PosixTimer *find_thread_timer(timer_t id) {
  for (ThreadTimer &one : thread_timers) {
    if (one.timer.used.load() && !one.deleted.load() && one.timer.id == id)
      return &one.timer;
  }
  return nullptr;
}

void renew_thread_timer(PosixTimer &timer) {
  whole(timer).changed.store(true);
  wake_waiters(&timer, true);
}

void delete_thread_timer(PosixTimer &timer) {
  whole(timer).deleted.store(true);
  renew_thread_timer(timer);
}

}  // namespace vboard
