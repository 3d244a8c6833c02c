// Two threads and one clock. Each step prints what happened with the time at which it did, on a
// clock that the step starts.

#include "probe.h"

#include <errno.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

namespace {

double started;

double monotonic() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void tell(const char *what) {
  printf("%.1f %s\n", monotonic() - started, what);
}

void nap(double seconds) {
  timespec time;
  time.tv_sec = static_cast<time_t>(seconds);
  time.tv_nsec = static_cast<long>((seconds - static_cast<double>(time.tv_sec)) * 1e9 + 0.5);
  nanosleep(&time, nullptr);
}

pthread_t start(void *(*body)(void *)) {
  pthread_t thread;
  started = monotonic();
  if (const int error = pthread_create(&thread, nullptr, body, nullptr)) {
    errno = error;
    perror("probe: pthread_create");
    exit(2);
  }
  return thread;
}

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
bool flag;
int ends[2];

// Sleeps that interleave: no two end at the same time.
void *sleep_by_seconds(void *) {
  for (int i = 0; i < 4; ++i) {
    nap(1.0);
    tell("second");
  }
  return nullptr;
}

void step_interleave(char **) {
  const pthread_t thread = start(sleep_by_seconds);
  for (int i = 0; i < 3; ++i) {
    nap(1.4);
    tell("first");
  }
  pthread_join(thread, nullptr);
  tell("joined");
}

void *sleep_and_tell(void *) {
  nap(2.0);
  tell("woke");
  return nullptr;
}

void step_join(char **) {
  const pthread_t thread = start(sleep_and_tell);
  pthread_join(thread, nullptr);
  tell("joined");
}

void *sleep_and_signal(void *) {
  nap(2.0);
  pthread_mutex_lock(&mutex);
  flag = true;
  pthread_cond_signal(&condition);
  pthread_mutex_unlock(&mutex);
  return nullptr;
}

void step_cond_signalled(char **) {
  flag = false;
  const pthread_t thread = start(sleep_and_signal);
  timespec until;
  clock_gettime(CLOCK_REALTIME, &until);
  until.tv_sec += 5;
  pthread_mutex_lock(&mutex);
  int error = 0;
  while (!flag && error == 0)
    error = pthread_cond_timedwait(&condition, &mutex, &until);
  pthread_mutex_unlock(&mutex);
  tell(error == 0 ? "signalled" : "timed out");
  pthread_join(thread, nullptr);
}

void step_cond_forever(char **) {
  flag = false;
  const pthread_t thread = start(sleep_and_signal);
  pthread_mutex_lock(&mutex);
  while (!flag)
    pthread_cond_wait(&condition, &mutex);
  pthread_mutex_unlock(&mutex);
  tell("signalled");
  pthread_join(thread, nullptr);
}

void *sleep_too_long(void *) {
  nap(7.0);
  pthread_mutex_lock(&mutex);
  flag = true;
  pthread_cond_signal(&condition);
  pthread_mutex_unlock(&mutex);
  tell("too late");
  return nullptr;
}

void step_cond_too_late(char **) {
  flag = false;
  const pthread_t thread = start(sleep_too_long);
  timespec until;
  clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_sec += 5;
  pthread_mutex_lock(&mutex);
  int error = 0;
  while (!flag && error == 0)
    error = pthread_cond_clockwait(&condition, &mutex, CLOCK_MONOTONIC, &until);
  pthread_mutex_unlock(&mutex);
  tell(error == 0 ? "signalled" : "timed out");
  pthread_join(thread, nullptr);
}

// A thread that waits for a lock, a pipe or a semaphore waits, too: the clock must not stand still.
void *hold_the_lock(void *) {
  pthread_mutex_lock(&mutex);
  flag = true;
  nap(2.0);
  tell("unlocks");
  pthread_mutex_unlock(&mutex);
  return nullptr;
}

void step_lock(char **) {
  flag = false;
  const pthread_t thread = start(hold_the_lock);
  nap(0.5);
  pthread_mutex_lock(&mutex);
  tell("locked");
  pthread_mutex_unlock(&mutex);
  pthread_join(thread, nullptr);
}

void *sleep_and_write(void *) {
  nap(2.0);
  if (write(ends[1], "x", 1) != 1)
    perror("probe: write");
  return nullptr;
}

void step_pipe(char **) {
  if (pipe(ends) != 0) {
    perror("probe: pipe");
    exit(2);
  }
  const pthread_t thread = start(sleep_and_write);
  char byte = 0;
  const ssize_t got = read(ends[0], &byte, 1);
  tell(got == 1 ? "read" : "failed");
  pthread_join(thread, nullptr);
  close(ends[0]);
  close(ends[1]);
}

sem_t semaphore;

void *sleep_and_post(void *) {
  nap(2.0);
  sem_post(&semaphore);
  return nullptr;
}

void step_semaphore(char **) {
  sem_init(&semaphore, 0, 0);
  const pthread_t thread = start(sleep_and_post);
  sem_wait(&semaphore);
  tell("posted");
  pthread_join(thread, nullptr);
}

// While one thread works, the other's sleep must not end: work takes no board time.
void step_busy(char **) {
  const pthread_t thread = start(sleep_and_tell);
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  const double until =
      static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9 + 0.1;
  do {
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  } while (static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9 < until);
  tell("worked");
  nap(1.0);
  tell("napped");
  pthread_join(thread, nullptr);
}

}  // namespace

const Step kThreadSteps[] = {
    {"interleave", 0, step_interleave},
    {"thread_join", 0, step_join},
    {"cond_signalled", 0, step_cond_signalled},
    {"cond_forever", 0, step_cond_forever},
    {"cond_too_late", 0, step_cond_too_late},
    {"lock", 0, step_lock},
    {"pipe", 0, step_pipe},
    {"semaphore", 0, step_semaphore},
    {"busy", 0, step_busy},
    {nullptr, 0, nullptr},
};
