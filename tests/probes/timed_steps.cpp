// Timed calls beside those of time_steps.cpp: timers that are descriptors or call a function, locks
// of every family, the C++ library's waits, message queues and sockets with limits.

#include "probe.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <mqueue.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <threads.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <future>
#include <semaphore>

namespace {

timespec to_timespec(double seconds) {
  timespec result = {};
  result.tv_sec = static_cast<time_t>(seconds);
  result.tv_nsec = static_cast<long>((seconds - static_cast<double>(result.tv_sec)) * 1e9 + 0.5);
  return result;
}

double seconds_of(const timespec &time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

timespec after(clockid_t clock, double seconds) {
  timespec now;
  clock_gettime(clock, &now);
  return to_timespec(seconds_of(now) + seconds);
}

void report_error(const char *name, int error) {
  printf("%s %s\n", name, error == 0 ? "0" : strerrorname_np(error));
}

void need(bool good, const char *what) {
  if (good)
    return;
  perror(what);
  exit(2);
}

// The clock of the last step that called start_clock(), for the steps with two threads.
double started;

void start_clock() {
  started = seconds_of(after(CLOCK_MONOTONIC, 0));
}

void tell(const char *what) {
  printf("%.1f %s\n", seconds_of(after(CLOCK_MONOTONIC, 0)) - started, what);
}

void nap(double seconds) {
  const timespec time = to_timespec(seconds);
  nanosleep(&time, nullptr);
}

// Timers that are descriptors. They become the current descriptor.

clockid_t timer_clock;

void step_timerfd(char **words) {
  timer_clock = strcmp(words[0], "REALTIME") == 0 ? CLOCK_REALTIME : CLOCK_MONOTONIC;
  current = timerfd_create(timer_clock, strcmp(words[1], "nonblock") == 0 ? TFD_NONBLOCK : 0);
  report("timerfd", current < 0 ? -1 : 0);
}

// First expiry, interval, and "after" for a time from now on or "at" for an absolute one, which
// "cancel" ends when the calendar is set.
void step_timerfd_set(char **words) {
  const bool is_relative = strcmp(words[2], "after") == 0;
  itimerspec times = {};
  times.it_interval = to_timespec(atof(words[1]));
  times.it_value = is_relative ? to_timespec(atof(words[0])) : after(timer_clock, atof(words[0]));
  int flags = is_relative ? 0 : TFD_TIMER_ABSTIME;
  if (strcmp(words[2], "cancel") == 0)
    flags |= TFD_TIMER_CANCEL_ON_SET;
  report("timerfd_set", timerfd_settime(current, flags, &times, nullptr));
}

void step_timerfd_read(char **) {
  std::uint64_t count = 0;
  const ssize_t got = read(current, &count, sizeof count);
  report("timerfd_read", got == sizeof count ? static_cast<long>(count) : static_cast<long>(got));
}

void step_timerfd_read_short(char **) {
  std::uint32_t count = 0;
  report("timerfd_read_short", read(current, &count, sizeof count));
}

void step_timerfd_left(char **) {
  itimerspec times;
  if (timerfd_gettime(current, &times) != 0)
    report("timerfd_left", -1);
  else
    printf("timerfd_left %.1f %.1f\n", seconds_of(times.it_value), seconds_of(times.it_interval));
}

void *set_timer_later(void *) {
  nap(1.0);
  itimerspec times = {};
  times.it_value = to_timespec(1.0);
  timerfd_settime(current, 0, &times, nullptr);
  return nullptr;
}

// A timer that another thread sets while this one reads it.
void step_timerfd_set_later(char **) {
  current = timerfd_create(CLOCK_MONOTONIC, 0);
  start_clock();
  pthread_t thread;
  need(pthread_create(&thread, nullptr, set_timer_later, nullptr) == 0, "probe: pthread_create");
  std::uint64_t count = 0;
  const ssize_t got = read(current, &count, sizeof count);
  tell(got == sizeof count && count == 1 ? "expired" : "failed");
  pthread_join(thread, nullptr);
  close(current);
  current = -1;
}

// Timers that call a function in a thread of its own.

sem_t called;

void post_call(sigval value) {
  if (value.sival_int == 77)
    sem_post(&called);
}

// "timer_thread FIRST INTERVAL COUNT": the calls, with their times.
void step_timer_thread(char **words) {
  sem_init(&called, 0, 0);
  sigevent event = {};
  event.sigev_notify = SIGEV_THREAD;
  event.sigev_notify_function = post_call;
  event.sigev_value.sival_int = 77;
  timer_t timer;
  need(timer_create(CLOCK_MONOTONIC, &event, &timer) == 0, "probe: timer_create");
  itimerspec times = {};
  times.it_value = to_timespec(atof(words[0]));
  times.it_interval = to_timespec(atof(words[1]));
  start_clock();
  need(timer_settime(timer, 0, &times, nullptr) == 0, "probe: timer_settime");
  for (int left = atoi(words[2]); left > 0; --left) {
    sem_wait(&called);
    tell("called");
  }
  report("timer_delete", timer_delete(timer));
}

// A timer of an absolute time, by its clock's name.
void step_timer_at(char **words) {
  const clockid_t clock = strcmp(words[0], "REALTIME") == 0 ? CLOCK_REALTIME : CLOCK_MONOTONIC;
  sigevent event = {};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGALRM;
  timer_t timer;
  need(timer_create(clock, &event, &timer) == 0, "probe: timer_create");
  itimerspec times = {};
  times.it_value = after(clock, atof(words[1]));
  report("timer_at", timer_settime(timer, TIMER_ABSTIME, &times, nullptr));
}

// Locks that another thread has, and keeps.

pthread_rwlock_t rwlock = PTHREAD_RWLOCK_INITIALIZER;
sem_t taken;

void *take_for_writing(void *) {
  pthread_rwlock_wrlock(&rwlock);
  sem_post(&taken);
  nap(2.0);
  pthread_rwlock_unlock(&rwlock);
  return nullptr;
}

void *keep_for_writing(void *) {
  pthread_rwlock_wrlock(&rwlock);
  sem_post(&taken);
  nap(1e7);
  return nullptr;
}

pthread_t start_holder(void *(*body)(void *)) {
  sem_init(&taken, 0, 0);
  pthread_t thread;
  need(pthread_create(&thread, nullptr, body, nullptr) == 0, "probe: pthread_create");
  while (sem_wait(&taken) != 0) {
  }
  return thread;
}

void keep_rwlock() {
  static bool kept;
  if (!kept)
    start_holder(keep_for_writing);
  kept = true;
}

void step_timedrdlock(char **words) {
  keep_rwlock();
  const timespec until = after(CLOCK_REALTIME, atof(words[0]));
  report_error("timedrdlock", pthread_rwlock_timedrdlock(&rwlock, &until));
}

void step_timedwrlock(char **words) {
  keep_rwlock();
  const timespec until = after(CLOCK_REALTIME, atof(words[0]));
  report_error("timedwrlock", pthread_rwlock_timedwrlock(&rwlock, &until));
}

void step_clockrdlock(char **words) {
  keep_rwlock();
  const timespec until = after(CLOCK_MONOTONIC, atof(words[0]));
  report_error("clockrdlock", pthread_rwlock_clockrdlock(&rwlock, CLOCK_MONOTONIC, &until));
}

void step_clockwrlock(char **words) {
  keep_rwlock();
  const timespec until = after(CLOCK_MONOTONIC, atof(words[0]));
  report_error("clockwrlock", pthread_rwlock_clockwrlock(&rwlock, CLOCK_MONOTONIC, &until));
}

void step_rwlock_unlocked(char **) {
  start_clock();
  const pthread_t thread = start_holder(take_for_writing);
  const timespec until = after(CLOCK_REALTIME, 60);
  tell(pthread_rwlock_timedrdlock(&rwlock, &until) == 0 ? "locked" : "failed");
  pthread_rwlock_unlock(&rwlock);
  pthread_join(thread, nullptr);
}

// The writer itself would wait for ever.
void step_rwlock_deadlock(char **) {
  pthread_rwlock_wrlock(&rwlock);
  const timespec until = after(CLOCK_REALTIME, 60);
  report_error("rwlock_deadlock", pthread_rwlock_timedrdlock(&rwlock, &until));
  pthread_rwlock_unlock(&rwlock);
}

// C11 threads.

const char *name_of_answer(int answer) {
  return answer == thrd_success ? "success" : answer == thrd_timedout ? "timedout" : "error";
}

mtx_t c11_mutex;
cnd_t c11_condition;
bool flag;

void step_cnd_timedwait(char **words) {
  mtx_init(&c11_mutex, mtx_timed);
  cnd_init(&c11_condition);
  const timespec until = after(CLOCK_REALTIME, atof(words[0]));
  mtx_lock(&c11_mutex);
  const int answer = cnd_timedwait(&c11_condition, &c11_mutex, &until);
  mtx_unlock(&c11_mutex);
  printf("cnd_timedwait %s\n", name_of_answer(answer));
}

void step_mtx_timedlock(char **words) {
  mtx_init(&c11_mutex, mtx_timed);
  const timespec until = after(CLOCK_REALTIME, atof(words[0]));
  mtx_lock(&c11_mutex);
  printf("mtx_timedlock %s\n", name_of_answer(mtx_timedlock(&c11_mutex, &until)));
  mtx_unlock(&c11_mutex);
}

int signal_c11(void *all) {
  nap(2.0);
  mtx_lock(&c11_mutex);
  flag = true;
  if (all != nullptr)
    cnd_broadcast(&c11_condition);
  else
    cnd_signal(&c11_condition);
  mtx_unlock(&c11_mutex);
  nap(1.0);
  if (all != nullptr)
    thrd_exit(-5);
  return 42;
}

void c11_signalled(bool all) {
  flag = false;
  mtx_init(&c11_mutex, mtx_plain);
  cnd_init(&c11_condition);
  start_clock();
  thrd_t thread;
  need(thrd_create(&thread, signal_c11, all ? &flag : nullptr) == thrd_success, "thrd_create");
  int answer = thrd_success;
  const timespec until = after(CLOCK_REALTIME, 60);
  mtx_lock(&c11_mutex);
  while (!flag && answer == thrd_success)
    answer = all ? cnd_wait(&c11_condition, &c11_mutex)
                 : cnd_timedwait(&c11_condition, &c11_mutex, &until);
  mtx_unlock(&c11_mutex);
  tell(name_of_answer(answer));
  int result = 0;
  thrd_join(thread, &result);
  tell(result == 42 ? "42" : result == -5 ? "-5" : "wrong");
}

void step_cnd_signalled(char **) {
  c11_signalled(false);
}

void step_cnd_broadcast(char **) {
  c11_signalled(true);
}

int lock_for_two_seconds(void *) {
  mtx_lock(&c11_mutex);
  sem_post(&taken);
  nap(2.0);
  mtx_unlock(&c11_mutex);
  return 0;
}

void step_mtx_unlocked(char **) {
  mtx_init(&c11_mutex, mtx_timed);
  sem_init(&taken, 0, 0);
  start_clock();
  thrd_t thread;
  need(thrd_create(&thread, lock_for_two_seconds, nullptr) == thrd_success, "thrd_create");
  while (sem_wait(&taken) != 0) {
  }
  const timespec until = after(CLOCK_REALTIME, 60);
  tell(name_of_answer(mtx_timedlock(&c11_mutex, &until)));
  mtx_unlock(&c11_mutex);
  thrd_join(thread, nullptr);
}

// Words of memory, by the kernel's call.

std::uint32_t word;

// The kernel's record of SYS_futex, whatever time_t is here.
struct KernelTime {
  long seconds, nanoseconds;
};

KernelTime kernel_time(const timespec &time) {
  return {static_cast<long>(time.tv_sec), static_cast<long>(time.tv_nsec)};
}

long futex(int operation, std::uint32_t value, const KernelTime *limit, std::uint32_t bits) {
  return syscall(SYS_futex, &word, operation, value, limit, nullptr, bits);
}

void step_futex_wait(char **words) {
  const KernelTime limit = kernel_time(to_timespec(atof(words[0])));
  report("futex_wait", futex(FUTEX_WAIT_PRIVATE, word, &limit, 0));
}

void step_futex_until(char **words) {
  const KernelTime limit = kernel_time(after(CLOCK_MONOTONIC, atof(words[0])));
  report("futex_until", futex(FUTEX_WAIT_BITSET, word, &limit, FUTEX_BITSET_MATCH_ANY));
}

void step_futex_until_date(char **words) {
  const KernelTime limit = kernel_time(after(CLOCK_REALTIME, atof(words[0])));
  report("futex_until_date",
         futex(FUTEX_WAIT_BITSET | FUTEX_CLOCK_REALTIME, word, &limit, FUTEX_BITSET_MATCH_ANY));
}

void step_futex_differs(char **) {
  report("futex_differs", futex(FUTEX_WAIT, word + 1, nullptr, 0));
}

std::atomic<int> woken_count;

void *wait_for_bit(void *bit) {
  const std::uint32_t bits = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(bit));
  futex(FUTEX_WAIT_BITSET_PRIVATE, 0, nullptr, bits);
  ++woken_count;
  tell(bits == 1 ? "first" : bits == 2 ? "second" : "third");
  return nullptr;
}

// Three threads wait for three bits of one word, whose value stays as it is.
void step_futex_woken(char **) {
  word = 0;
  pthread_t threads[3];
  start_clock();
  for (std::uintptr_t i = 0; i < 3; ++i) {
    pthread_create(&threads[i], nullptr, wait_for_bit, reinterpret_cast<void *>(1 << i));
    nap(0.5);
  }
  report("nobody", futex(FUTEX_WAKE_BITSET_PRIVATE, 10, nullptr, 8));
  report("one", futex(FUTEX_WAKE_BITSET_PRIVATE, 10, nullptr, 2));
  nap(1.0);
  report("longest", futex(FUTEX_WAKE_PRIVATE, 1, nullptr, 0));
  nap(1.0);
  report("rest", futex(FUTEX_WAKE_PRIVATE, 10, nullptr, 0));
  for (const pthread_t thread : threads)
    pthread_join(thread, nullptr);
}

void step_call_nanosleep(char **words) {
  const KernelTime time = kernel_time(to_timespec(atof(words[0])));
  report("call_nanosleep", syscall(SYS_nanosleep, &time, nullptr));
}

void step_call_sleep_until(char **words) {
  const KernelTime time = kernel_time(after(CLOCK_REALTIME, atof(words[0])));
  report("call_sleep_until",
         syscall(SYS_clock_nanosleep, CLOCK_REALTIME, TIMER_ABSTIME, &time, nullptr));
}

// The time by the kernel's calls, which must be the time of libc's.
void step_call_clocks(char **) {
  KernelTime monotonic;
  KernelTime day;
  syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &monotonic);
  syscall(SYS_gettimeofday, &day, nullptr);
  const double first =
      static_cast<double>(monotonic.seconds) + static_cast<double>(monotonic.nanoseconds) / 1e9;
  const double second =
      static_cast<double>(day.seconds) + static_cast<double>(day.nanoseconds) / 1e6;
  const bool agree = seconds_of(after(CLOCK_MONOTONIC, 0)) - first < 0.1 &&
                     seconds_of(after(CLOCK_REALTIME, 0)) - second < 0.1 &&
                     seconds_of(after(CLOCK_REALTIME, 0)) - second > -0.1;
  printf("call_clocks %s\n", agree ? "agree" : "disagree");
}

// The C++ library.

std::chrono::nanoseconds duration(const char *seconds) {
  return std::chrono::nanoseconds(static_cast<std::int64_t>(atof(seconds) * 1e9));
}

void step_future_wait(char **words) {
  std::promise<int> promise;
  const bool ready = promise.get_future().wait_for(duration(words[0])) == std::future_status::ready;
  printf("future_wait %s\n", ready ? "ready" : "timeout");
}

void step_try_acquire(char **words) {
  std::counting_semaphore<4> semaphore(0);
  printf("try_acquire %s\n", semaphore.try_acquire_for(duration(words[0])) ? "acquired" : "failed");
}

std::promise<int> *promised;
std::counting_semaphore<4> *released;
std::atomic<int> *notified;

void *do_later(void *) {
  nap(2.0);
  if (promised != nullptr)
    promised->set_value(3);
  if (released != nullptr)
    released->release();
  if (notified != nullptr) {
    notified->store(1);
    notified->notify_all();
  }
  return nullptr;
}

pthread_t start_later() {
  start_clock();
  pthread_t thread;
  need(pthread_create(&thread, nullptr, do_later, nullptr) == 0, "probe: pthread_create");
  return thread;
}

void step_future_set(char **) {
  std::promise<int> promise;
  std::future<int> future = promise.get_future();
  promised = &promise;
  const pthread_t thread = start_later();
  tell(future.wait_for(std::chrono::seconds(60)) == std::future_status::ready ? "ready"
                                                                              : "timeout");
  pthread_join(thread, nullptr);
  promised = nullptr;
}

void step_semaphore_released(char **) {
  std::counting_semaphore<4> semaphore(0);
  released = &semaphore;
  const pthread_t thread = start_later();
  tell(semaphore.try_acquire_for(std::chrono::seconds(60)) ? "acquired" : "failed");
  pthread_join(thread, nullptr);
  released = nullptr;
}

void step_atomic_notified(char **) {
  std::atomic<int> value(0);
  notified = &value;
  const pthread_t thread = start_later();
  value.wait(0);
  tell(value.load() == 1 ? "notified" : "failed");
  pthread_join(thread, nullptr);
  notified = nullptr;
}

// Message queues of one message of one byte.

mqd_t queue;

void open_queue() {
  char name[32];
  snprintf(name, sizeof name, "/probe-%d", static_cast<int>(getpid()));
  mq_attr attributes = {};
  attributes.mq_maxmsg = 1;
  attributes.mq_msgsize = 1;
  queue = mq_open(name, O_RDWR | O_CREAT | O_EXCL, 0600, &attributes);
  need(queue >= 0, "probe: mq_open");
  mq_unlink(name);
}

void step_mq_timedreceive(char **words) {
  open_queue();
  char byte;
  const timespec until = after(CLOCK_REALTIME, atof(words[0]));
  report("mq_timedreceive", mq_timedreceive(queue, &byte, 1, nullptr, &until));
  mq_close(queue);
}

void step_mq_timedsend(char **words) {
  open_queue();
  report("mq_send", mq_send(queue, "a", 1, 0));
  const timespec until = after(CLOCK_REALTIME, atof(words[0]));
  report("mq_timedsend", mq_timedsend(queue, "b", 1, 0, &until));
  mq_close(queue);
}

void *send_later(void *) {
  nap(2.0);
  mq_send(queue, "x", 1, 7);
  return nullptr;
}

void *receive_later(void *) {
  nap(2.0);
  char byte;
  mq_receive(queue, &byte, 1, nullptr);
  return nullptr;
}

void step_mq_arrives(char **words) {
  open_queue();
  start_clock();
  pthread_t thread;
  need(pthread_create(&thread, nullptr, send_later, nullptr) == 0, "probe: pthread_create");
  char byte = 0;
  unsigned int priority = 0;
  const timespec until = after(CLOCK_REALTIME, 60);
  const ssize_t got = strcmp(words[0], "timed") == 0
                          ? mq_timedreceive(queue, &byte, 1, &priority, &until)
                          : mq_receive(queue, &byte, 1, &priority);
  tell(got == 1 && byte == 'x' && priority == 7 ? "received" : "failed");
  pthread_join(thread, nullptr);
  mq_close(queue);
}

void step_mq_drained(char **) {
  open_queue();
  start_clock();
  mq_send(queue, "a", 1, 0);
  pthread_t thread;
  need(pthread_create(&thread, nullptr, receive_later, nullptr) == 0, "probe: pthread_create");
  tell(mq_send(queue, "b", 1, 0) == 0 ? "sent" : "failed");
  pthread_join(thread, nullptr);
  mq_close(queue);
}

// Sockets of the PC's kernel. A pair's first end is the current descriptor.

int other_end = -1;

void step_socketpair(char **words) {
  int ends[2];
  const int type = strcmp(words[0], "stream") == 0 ? SOCK_STREAM : SOCK_DGRAM;
  report("socketpair", socketpair(AF_UNIX, type, 0, ends));
  current = ends[0];
  other_end = ends[1];
}

timeval to_timeval(double seconds) {
  timeval result = {};
  result.tv_sec = static_cast<time_t>(seconds);
  result.tv_usec =
      static_cast<suseconds_t>((seconds - static_cast<double>(result.tv_sec)) * 1e6 + 0.5);
  return result;
}

void step_rcvtimeo(char **words) {
  const timeval limit = to_timeval(atof(words[0]));
  report("rcvtimeo", setsockopt(current, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit));
}

void step_sndtimeo(char **words) {
  const timeval limit = to_timeval(atof(words[0]));
  report("sndtimeo", setsockopt(current, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit));
}

void step_limits(char **) {
  timeval receive = {};
  timeval send = {};
  socklen_t size = sizeof receive;
  getsockopt(current, SOL_SOCKET, SO_RCVTIMEO, &receive, &size);
  getsockopt(current, SOL_SOCKET, SO_SNDTIMEO, &send, &size);
  printf("limits %.1f %.1f\n",
         static_cast<double>(receive.tv_sec) + static_cast<double>(receive.tv_usec) / 1e6,
         static_cast<double>(send.tv_sec) + static_cast<double>(send.tv_usec) / 1e6);
}

char room[64];

void step_receive(char **words) {
  const char *how = words[0];
  iovec piece = {room, sizeof room};
  msghdr message = {};
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  ssize_t result = -1;
  if (strcmp(how, "recv") == 0)
    result = recv(current, room, sizeof room, 0);
  else if (strcmp(how, "recvfrom") == 0)
    result = recvfrom(current, room, sizeof room, 0, nullptr, nullptr);
  else if (strcmp(how, "recvmsg") == 0)
    result = recvmsg(current, &message, 0);
  else if (strcmp(how, "read") == 0)
    result = read(current, room, sizeof room);
  else if (strcmp(how, "readv") == 0)
    result = readv(current, &piece, 1);
  else if (strcmp(how, "waitall") == 0)
    result = recv(current, room, 8, MSG_WAITALL);
  report(how, result);
}

// Sends until the other end has no room left.
void step_fill(char **) {
  static char bytes[4096];
  while (send(current, bytes, sizeof bytes, MSG_DONTWAIT) > 0) {
  }
  report("fill", errno == EAGAIN ? 0 : -1);
}

void step_send(char **words) {
  const char *how = words[0];
  static char bytes[100000];
  const std::size_t size = strcmp(words[1], "large") == 0 ? sizeof bytes : 100;
  iovec piece = {bytes, size};
  msghdr message = {};
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  ssize_t result = -1;
  if (strcmp(how, "send") == 0)
    result = send(current, bytes, size, 0);
  else if (strcmp(how, "sendto") == 0)
    result = sendto(current, bytes, size, 0, nullptr, 0);
  else if (strcmp(how, "sendmsg") == 0)
    result = sendmsg(current, &message, 0);
  else if (strcmp(how, "write") == 0)
    result = write(current, bytes, size);
  else if (strcmp(how, "writev") == 0)
    result = writev(current, &piece, 1);
  report(how, result);
}

sockaddr_un unique_name(socklen_t &size) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const int length = snprintf(address.sun_path + 1, sizeof address.sun_path - 1, "probe-%d",
                              static_cast<int>(getpid()));
  size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 +
                                static_cast<std::size_t>(length));
  return address;
}

int listen_here(int backlog) {
  socklen_t size;
  const sockaddr_un address = unique_name(size);
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  need(fd >= 0 && bind(fd, reinterpret_cast<const sockaddr *>(&address), size) == 0 &&
           listen(fd, backlog) == 0,
       "probe: listen");
  return fd;
}

int connect_there(int fd) {
  socklen_t size;
  const sockaddr_un address = unique_name(size);
  return connect(fd, reinterpret_cast<const sockaddr *>(&address), size);
}

void step_listen(char **) {
  current = listen_here(4);
  report("listen", 0);
}

void step_accept(char **) {
  report("accept", accept(current, nullptr, nullptr) < 0 ? -1 : 0);
}

// The queue of a server that takes nobody is full after one.
void step_crowd(char **) {
  other_end = listen_here(0);
  need(connect_there(socket(AF_UNIX, SOCK_STREAM, 0)) == 0, "probe: connect");
  current = socket(AF_UNIX, SOCK_STREAM, 0);
  report("crowd", current < 0 ? -1 : 0);
}

void step_connect_local(char **) {
  report("connect_local", connect_there(current));
}

void *act_on_other_end(void *how) {
  nap(2.0);
  char bytes[4096];
  if (strcmp(static_cast<char *>(how), "write") == 0) {
    if (write(other_end, "abcde", 5) != 5)
      perror("probe: write");
    nap(1.0);
    if (write(other_end, "fgh", 3) != 3)
      perror("probe: write");
  } else if (strcmp(static_cast<char *>(how), "drain") == 0) {
    while (recv(other_end, bytes, sizeof bytes, MSG_DONTWAIT) > 0) {
    }
  } else if (strcmp(static_cast<char *>(how), "accept") == 0) {
    accept(other_end, nullptr, nullptr);
  } else {
    connect_there(socket(AF_UNIX, SOCK_STREAM, 0));
  }
  return nullptr;
}

// "later HOW": a thread that acts on the other end in two seconds.
void step_later(char **words) {
  pthread_t thread;
  need(pthread_create(&thread, nullptr, act_on_other_end, words[0]) == 0, "probe: pthread_create");
  pthread_detach(thread);
}

}  // namespace

const Step kTimedSteps[] = {
    {"timerfd", 2, step_timerfd},
    {"timerfd_set", 3, step_timerfd_set},
    {"timerfd_read", 0, step_timerfd_read},
    {"timerfd_read_short", 0, step_timerfd_read_short},
    {"timerfd_left", 0, step_timerfd_left},
    {"timerfd_set_later", 0, step_timerfd_set_later},
    {"timer_thread", 3, step_timer_thread},
    {"timer_at", 2, step_timer_at},
    {"timedrdlock", 1, step_timedrdlock},
    {"timedwrlock", 1, step_timedwrlock},
    {"clockrdlock", 1, step_clockrdlock},
    {"clockwrlock", 1, step_clockwrlock},
    {"rwlock_unlocked", 0, step_rwlock_unlocked},
    {"rwlock_deadlock", 0, step_rwlock_deadlock},
    {"cnd_timedwait", 1, step_cnd_timedwait},
    {"mtx_timedlock", 1, step_mtx_timedlock},
    {"cnd_signalled", 0, step_cnd_signalled},
    {"cnd_broadcast", 0, step_cnd_broadcast},
    {"mtx_unlocked", 0, step_mtx_unlocked},
    {"futex_wait", 1, step_futex_wait},
    {"futex_until", 1, step_futex_until},
    {"futex_until_date", 1, step_futex_until_date},
    {"futex_differs", 0, step_futex_differs},
    {"futex_woken", 0, step_futex_woken},
    {"call_nanosleep", 1, step_call_nanosleep},
    {"call_sleep_until", 1, step_call_sleep_until},
    {"call_clocks", 0, step_call_clocks},
    {"future_wait", 1, step_future_wait},
    {"try_acquire", 1, step_try_acquire},
    {"future_set", 0, step_future_set},
    {"semaphore_released", 0, step_semaphore_released},
    {"atomic_notified", 0, step_atomic_notified},
    {"mq_timedreceive", 1, step_mq_timedreceive},
    {"mq_timedsend", 1, step_mq_timedsend},
    {"mq_arrives", 1, step_mq_arrives},
    {"mq_drained", 0, step_mq_drained},
    {"socketpair", 1, step_socketpair},
    {"rcvtimeo", 1, step_rcvtimeo},
    {"sndtimeo", 1, step_sndtimeo},
    {"limits", 0, step_limits},
    {"receive", 1, step_receive},
    {"fill", 0, step_fill},
    {"send", 2, step_send},
    {"listen", 0, step_listen},
    {"accept", 0, step_accept},
    {"crowd", 0, step_crowd},
    {"connect_local", 0, step_connect_local},
    {"later", 1, step_later},
    {nullptr, 0, nullptr},
};
