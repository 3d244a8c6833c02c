// Two threads and one clock. Each step prints what happened with the time at which it did, on a
// clock that the step starts.

#include <errno.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include "probe.h"

static double started;

static double monotonic() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

static void tell(const char *what) {
  printf("%.1f %s\n", monotonic() - started, what);
}

static void nap(double seconds) {
  timespec time;
  time.tv_sec = (time_t)seconds;
  time.tv_nsec = (long)((seconds - (double)time.tv_sec) * 1e9 + 0.5);
  nanosleep(&time, nullptr);
}

static pthread_t start(void *(*body)(void *)) {
  pthread_t thread;
  started = monotonic();
  if (int error = pthread_create(&thread, nullptr, body, nullptr)) {
    errno = error;
    perror("probe: pthread_create");
    exit(2);
  }
  return thread;
}

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
static bool flag;
static int ends[2];

// Sleeps that interleave: no two end at the same time.
static void *sleep_by_seconds(void *) {
  for (int i = 0; i < 4; i++) {
    nap(1.0);
    tell("second");
  }
  return nullptr;
}

static void step_interleave(char **) {
  pthread_t thread = start(sleep_by_seconds);
  for (int i = 0; i < 3; i++) {
    nap(1.4);
    tell("first");
  }
  pthread_join(thread, nullptr);
  tell("joined");
}

static void *sleep_and_tell(void *) {
  nap(2.0);
  tell("woke");
  return nullptr;
}

static void step_join(char **) {
  pthread_t thread = start(sleep_and_tell);
  pthread_join(thread, nullptr);
  tell("joined");
}

static void *sleep_and_signal(void *) {
  nap(2.0);
  pthread_mutex_lock(&mutex);
  flag = true;
  pthread_cond_signal(&condition);
  pthread_mutex_unlock(&mutex);
  return nullptr;
}

static void step_cond_signalled(char **) {
  flag = false;
  pthread_t thread = start(sleep_and_signal);
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

static void step_cond_forever(char **) {
  flag = false;
  pthread_t thread = start(sleep_and_signal);
  pthread_mutex_lock(&mutex);
  while (!flag)
    pthread_cond_wait(&condition, &mutex);
  pthread_mutex_unlock(&mutex);
  tell("signalled");
  pthread_join(thread, nullptr);
}

static void *sleep_too_long(void *) {
  nap(7.0);
  pthread_mutex_lock(&mutex);
  flag = true;
  pthread_cond_signal(&condition);
  pthread_mutex_unlock(&mutex);
  tell("too late");
  return nullptr;
}

static void step_cond_too_late(char **) {
  flag = false;
  pthread_t thread = start(sleep_too_long);
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
static void *hold_the_lock(void *) {
  pthread_mutex_lock(&mutex);
  flag = true;
  nap(2.0);
  tell("unlocks");
  pthread_mutex_unlock(&mutex);
  return nullptr;
}

static void step_lock(char **) {
  flag = false;
  pthread_t thread = start(hold_the_lock);
  nap(0.5);
  pthread_mutex_lock(&mutex);
  tell("locked");
  pthread_mutex_unlock(&mutex);
  pthread_join(thread, nullptr);
}

static void *sleep_and_write(void *) {
  nap(2.0);
  if (write(ends[1], "x", 1) != 1)
    perror("probe: write");
  return nullptr;
}

static void step_pipe(char **) {
  if (pipe(ends) != 0) {
    perror("probe: pipe");
    exit(2);
  }
  pthread_t thread = start(sleep_and_write);
  char byte = 0;
  ssize_t got = read(ends[0], &byte, 1);
  tell(got == 1 ? "read" : "failed");
  pthread_join(thread, nullptr);
  close(ends[0]);
  close(ends[1]);
}

static sem_t semaphore;

static void *sleep_and_post(void *) {
  nap(2.0);
  sem_post(&semaphore);
  return nullptr;
}

static void step_semaphore(char **) {
  sem_init(&semaphore, 0, 0);
  pthread_t thread = start(sleep_and_post);
  sem_wait(&semaphore);
  tell("posted");
  pthread_join(thread, nullptr);
}

// While one thread works, the other's sleep must not end: work takes no board time.
static void step_busy(char **) {
  pthread_t thread = start(sleep_and_tell);
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  double until = (double)now.tv_sec + (double)now.tv_nsec / 1e9 + 0.1;
  do {
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  } while ((double)now.tv_sec + (double)now.tv_nsec / 1e9 < until);
  tell("worked");
  nap(1.0);
  tell("napped");
  pthread_join(thread, nullptr);
}

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
