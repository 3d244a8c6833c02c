// Clocks, waits and timers. "now" prints how much time has passed since the first step that asked.

#include "probe.h"

#include <errno.h>
#include <math.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace {

timespec to_timespec(double seconds) {
  timespec result;
  result.tv_sec = static_cast<time_t>(seconds);
  result.tv_nsec = static_cast<long>((seconds - static_cast<double>(result.tv_sec)) * 1e9 + 0.5);
  return result;
}

timeval to_timeval(double seconds) {
  timeval result;
  result.tv_sec = static_cast<time_t>(seconds);
  result.tv_usec =
      static_cast<suseconds_t>((seconds - static_cast<double>(result.tv_sec)) * 1e6 + 0.5);
  return result;
}

double clock_seconds(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

timespec after(clockid_t clock, double seconds) {
  return to_timespec(clock_seconds(clock) + seconds);
}

double started[3];

// The time since the program's start on three clocks that must agree.
void step_now(char **) {
  double passed[3] = {clock_seconds(CLOCK_MONOTONIC), clock_seconds(CLOCK_REALTIME), 0};
  timeval day;
  gettimeofday(&day, nullptr);
  passed[2] = static_cast<double>(day.tv_sec) + static_cast<double>(day.tv_usec) / 1e6;
  for (int i = 0; i < 3; ++i) {
    if (started[i] == 0)
      started[i] = passed[i];
    passed[i] -= started[i];
  }
  if (fabs(passed[0] - passed[1]) > 0.1 || fabs(passed[0] - passed[2]) > 0.1)
    printf("clocks disagree: %.3f %.3f %.3f\n", passed[0], passed[1], passed[2]);
  printf("now %.3f\n", passed[0]);
}

void step_date(char **) {
  const time_t now = time(nullptr);
  char text[64];
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", gmtime(&now));
  printf("date %s\n", text);
}

void step_sleep(char **words) {
  report("sleep", static_cast<long>(sleep(static_cast<unsigned int>(atoi(words[0])))));
}

void step_usleep(char **words) {
  report("usleep", usleep(static_cast<useconds_t>(atoi(words[0]))));
}

void step_nanosleep(char **words) {
  // Request and remainder may be the same record.
  timespec time = to_timespec(atof(words[0]));
  report("nanosleep", nanosleep(&time, &time));
}

void step_remainder(char **words) {
  timespec time = to_timespec(atof(words[0]));
  const int result = nanosleep(&time, &time);
  if (result == 0)
    report("remainder", 0);
  else
    printf("remainder %.3f\n",
           static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9);
}

void step_clock_nanosleep(char **words) {
  const timespec time = to_timespec(atof(words[0]));
  report("clock_nanosleep", clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr));
}

void step_sleep_until(char **words) {
  const timespec time = after(CLOCK_MONOTONIC, atof(words[0]));
  report("sleep_until", clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr));
}

void step_sleep_until_date(char **words) {
  const timespec time = after(CLOCK_REALTIME, atof(words[0]));
  report("sleep_until_date", clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &time, nullptr));
}

// The four ways to wait for the current descriptor (or for nothing when there is none); a negative
// time waits for ever.
void step_select(char **words) {
  const double seconds = atof(words[0]);
  timeval time = to_timeval(seconds < 0 ? 0 : seconds);
  fd_set set;
  FD_ZERO(&set);
  if (current >= 0)
    FD_SET(current, &set);
  report("select", select(current + 1, current >= 0 ? &set : nullptr, nullptr, nullptr,
                          seconds < 0 ? nullptr : &time));
}

void step_pselect(char **words) {
  const double seconds = atof(words[0]);
  timespec time = to_timespec(seconds < 0 ? 0 : seconds);
  fd_set set;
  FD_ZERO(&set);
  if (current >= 0)
    FD_SET(current, &set);
  report("pselect", pselect(current + 1, current >= 0 ? &set : nullptr, nullptr, nullptr,
                            seconds < 0 ? nullptr : &time, nullptr));
}

void step_poll(char **words) {
  pollfd one = {current, POLLIN, 0};
  const double seconds = atof(words[0]);
  report("poll", poll(&one, current >= 0 ? 1 : 0,
                      seconds < 0 ? -1 : static_cast<int>(seconds * 1000 + 0.5)));
}

void step_ppoll(char **words) {
  pollfd one = {current, POLLIN, 0};
  const double seconds = atof(words[0]);
  timespec time = to_timespec(seconds < 0 ? 0 : seconds);
  report("ppoll", ppoll(&one, current >= 0 ? 1 : 0, seconds < 0 ? nullptr : &time, nullptr));
}

void step_epoll(char **words) {
  const int set = epoll_create1(EPOLL_CLOEXEC);
  if (current >= 0) {
    epoll_event wanted = {};
    wanted.events = EPOLLIN;
    if (epoll_ctl(set, EPOLL_CTL_ADD, current, &wanted) != 0) {
      report("epoll", -1);
      close(set);
      return;
    }
  }
  epoll_event found;
  const double seconds = atof(words[0]);
  report("epoll",
         epoll_wait(set, &found, 1, seconds < 0 ? -1 : static_cast<int>(seconds * 1000 + 0.5)));
  close(set);
}

// Signals and timers.

volatile sig_atomic_t caught;

void count_signal(int) {
  caught = caught + 1;
}

void step_catch(char **words) {
  struct sigaction action = {};
  action.sa_handler = count_signal;
  report("catch", sigaction(strcmp(words[0], "TERM") == 0  ? SIGTERM
                            : strcmp(words[0], "INT") == 0 ? SIGINT
                                                           : SIGALRM,
                            &action, nullptr));
}

void step_ignore(char **words) {
  report("ignore",
         signal(strcmp(words[0], "TERM") == 0 ? SIGTERM : SIGINT, SIG_IGN) == SIG_ERR ? -1 : 0);
}

void step_caught(char **) {
  report("caught", caught);
}

void step_alarm(char **words) {
  report("alarm", static_cast<long>(alarm(static_cast<unsigned int>(atoi(words[0])))));
}

void step_itimer(char **words) {
  const itimerval time = {to_timeval(atof(words[1])), to_timeval(atof(words[0]))};
  report("itimer", setitimer(ITIMER_REAL, &time, nullptr));
}

void step_timer(char **words) {
  sigevent event = {};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGALRM;
  timer_t timer;
  if (timer_create(CLOCK_MONOTONIC, &event, &timer) != 0) {
    report("timer", -1);
    return;
  }
  const itimerspec time = {to_timespec(atof(words[1])), to_timespec(atof(words[0]))};
  report("timer", timer_settime(timer, 0, &time, nullptr));
}

void step_pause(char **) {
  report("pause", pause());
}

void step_pauses(char **words) {
  for (int left = atoi(words[0]); left > 0; --left) {
    pause();
    step_now(nullptr);
  }
}

// Waits on objects that nobody signals.

void report_error(const char *name, int error) {
  printf("%s %s\n", name, error == 0 ? "0" : strerrorname_np(error));
}

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;

void step_cond_timedwait(char **words) {
  static pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
  const timespec until = after(CLOCK_REALTIME, atof(words[0]));
  pthread_mutex_lock(&mutex);
  const int error = pthread_cond_timedwait(&condition, &mutex, &until);
  pthread_mutex_unlock(&mutex);
  report_error("cond_timedwait", error);
}

void step_cond_timedwait_monotonic(char **words) {
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  pthread_cond_t condition;
  pthread_cond_init(&condition, &attributes);
  const timespec until = after(CLOCK_MONOTONIC, atof(words[0]));
  pthread_mutex_lock(&mutex);
  const int error = pthread_cond_timedwait(&condition, &mutex, &until);
  pthread_mutex_unlock(&mutex);
  report_error("cond_timedwait_monotonic", error);
}

void step_cond_clockwait(char **words) {
  static pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
  const timespec until = after(CLOCK_MONOTONIC, atof(words[0]));
  pthread_mutex_lock(&mutex);
  const int error = pthread_cond_clockwait(&condition, &mutex, CLOCK_MONOTONIC, &until);
  pthread_mutex_unlock(&mutex);
  report_error("cond_clockwait", error);
}

void step_sem_timedwait(char **words) {
  sem_t semaphore;
  sem_init(&semaphore, 0, 0);
  const timespec until = after(CLOCK_REALTIME, atof(words[0]));
  report("sem_timedwait", sem_timedwait(&semaphore, &until));
}

}  // namespace

const Step kTimeSteps[] = {
    {"now", 0, step_now},
    {"date", 0, step_date},
    {"sleep", 1, step_sleep},
    {"usleep", 1, step_usleep},
    {"nanosleep", 1, step_nanosleep},
    {"remainder", 1, step_remainder},
    {"clock_nanosleep", 1, step_clock_nanosleep},
    {"sleep_until", 1, step_sleep_until},
    {"sleep_until_date", 1, step_sleep_until_date},
    {"select", 1, step_select},
    {"pselect", 1, step_pselect},
    {"poll", 1, step_poll},
    {"ppoll", 1, step_ppoll},
    {"epoll", 1, step_epoll},
    {"catch", 1, step_catch},
    {"ignore", 1, step_ignore},
    {"caught", 0, step_caught},
    {"alarm", 1, step_alarm},
    {"itimer", 2, step_itimer},
    {"timer", 2, step_timer},
    {"pause", 0, step_pause},
    {"pauses", 1, step_pauses},
    {"cond_timedwait", 1, step_cond_timedwait},
    {"cond_timedwait_monotonic", 1, step_cond_timedwait_monotonic},
    {"cond_clockwait", 1, step_cond_clockwait},
    {"sem_timedwait", 1, step_sem_timedwait},
    {nullptr, 0, nullptr},
};
