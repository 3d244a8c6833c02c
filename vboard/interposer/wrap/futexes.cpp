#include "vboard/interposer/wrap/futexes.h"

#include "vboard/interposer/core/jumping.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cstddef>

namespace vboard {

namespace {

// One wait. The places are nobody's stack: a signal handler may leave a wait by longjmp(), and its
// place is lost then.
struct WordWait {
  bool used;
  const std::uint32_t *word;
  std::uint32_t value, bits;
  std::uint64_t number;  // in the order of their beginning
  std::atomic<bool> woken;
};

constexpr std::size_t kMostWaits = 256;

// Taken with every signal blocked, before the engine's lock.
pthread_mutex_t words_lock = PTHREAD_MUTEX_INITIALIZER;
WordWait waits[kMostWaits];
std::uint64_t last_number;
pthread_once_t fork_watched = PTHREAD_ONCE_INIT;

void lock_words(sigset_t &saved) {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &saved);
  pthread_mutex_lock(&words_lock);
}

void unlock_words(const sigset_t &saved) {
  pthread_mutex_unlock(&words_lock);
  pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

// In the child of a fork no other thread is left to wait.
void renew_words() {
  words_lock = PTHREAD_MUTEX_INITIALIZER;
  for (WordWait &one : waits)
    one.used = false;
}

std::uint32_t value_at(const std::uint32_t *word) {
  return __atomic_load_n(word, __ATOMIC_SEQ_CST);
}

// A word that has changed ends the wait as well: the call may return for no reason, and whoever
// changed it may be another process.
bool has_ended(const void *key) {
  const WordWait &one = *static_cast<const WordWait *>(key);
  return one.woken.load() || value_at(one.word) != one.value;
}

WordWait *take_place() {
  for (WordWait &one : waits) {
    if (!one.used)
      return &one;
  }
  return nullptr;
}

WordWait *longest_waiting(const std::uint32_t *word, std::uint32_t bits) {
  WordWait *found = nullptr;
  for (WordWait &one : waits) {
    if (one.used && one.word == word && (one.bits & bits) != 0 && !one.woken.load() &&
        (found == nullptr || one.number < found->number))
      found = &one;
  }
  return found;
}

}  // namespace

int wait_for_word(std::uint32_t *word, std::uint32_t value, std::uint32_t bits,
                  BoardTime deadline) {
  pthread_once(&fork_watched, [] { pthread_atfork(nullptr, nullptr, renew_words); });
  sigset_t saved;
  lock_words(saved);
  const bool differs = value_at(word) != value;
  WordWait *mine = differs ? nullptr : take_place();
  if (mine == nullptr) {
    unlock_words(saved);
    return differs ? -EAGAIN : -ENOSYS;
  }
  mine->used = true;
  mine->word = word;
  mine->value = value;
  mine->bits = bits;
  mine->number = ++last_number;
  mine->woken.store(false);

  Wait wait;
  wait.deadline = deadline;
  wait.mask = &saved;
  wait.key = mine;
  wait.release = &words_lock;
  wait.done = has_ended;
  const WaitEnd end = wait_on_board(wait);
  pthread_mutex_lock(&words_lock);
  mine->used = false;
  unlock_words(saved);
  switch (end) {
    case WaitEnd::kTimeout:
      return -ETIMEDOUT;
    case WaitEnd::kInterrupted:
      return -EINTR;
    default:
      return 0;
  }
}

int wake_word(const std::uint32_t *word, int most, std::uint32_t bits) {
  sigset_t saved;
  lock_words(saved);
  int count = 0;
  while (count < most) {
    WordWait *one = longest_waiting(word, bits);
    if (one == nullptr)
      break;
    one->woken.store(true);
    wake_waiters(one, false);
    ++count;
  }
  unlock_words(saved);
  return count;
}

}  // namespace vboard
