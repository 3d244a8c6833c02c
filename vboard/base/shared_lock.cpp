#include "vboard/base/shared_lock.h"

#include "vboard/base/process_status.h"

#include <errno.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vboard {

namespace {

// Above every number of a thread.
constexpr std::uint32_t kOthersWait = 0x80000000;
// How long to wait until the owner is looked at, in nanoseconds of the PC.
constexpr long kPatience = 20'000'000;

// Asking the kernel every time would cost as much as the rest of a request.
__thread std::uint32_t own_number __attribute__((tls_model("initial-exec")));

void wait_for_change(std::atomic<std::uint32_t> &word, std::uint32_t seen) {
  struct {
    long seconds, nanoseconds;
  } limit = {0, kPatience};
  syscall(SYS_futex, &word, FUTEX_WAIT, seen, &limit, nullptr, 0);
}

}  // namespace

std::uint32_t own_thread() {
  if (own_number == 0)
    own_number = static_cast<std::uint32_t>(syscall(SYS_gettid));
  return own_number;
}

void renew_own_thread() {
  own_number = 0;
}

bool has_lock(const SharedLock &lock) {
  return (lock.word.load(std::memory_order_relaxed) & ~kOthersWait) == own_thread();
}

void take_lock(SharedLock &lock) {
  std::atomic<std::uint32_t> &word = lock.word;
  const int kept = errno;
  const std::uint32_t self = own_thread();
  std::uint32_t mine = self;
  for (;;) {
    std::uint32_t seen = 0;
    if (word.compare_exchange_strong(seen, mine, std::memory_order_acquire))
      break;
    // Whoever has waited once cannot know that nobody else does.
    mine = self | kOthersWait;
    if ((seen & kOthersWait) == 0 && !word.compare_exchange_strong(seen, seen | kOthersWait))
      continue;
    seen |= kOthersWait;
    wait_for_change(word, seen);
    if (word.load(std::memory_order_relaxed) == seen &&
        thread_has_died(static_cast<pid_t>(seen & ~kOthersWait)) &&
        word.compare_exchange_strong(seen, mine, std::memory_order_acquire))
      break;
  }
  errno = kept;
}

void give_up_lock(SharedLock &lock) {
  const int kept = errno;
  if ((lock.word.exchange(0, std::memory_order_release) & kOthersWait) != 0)
    syscall(SYS_futex, &lock.word, FUTEX_WAKE, 1, nullptr, nullptr, 0);
  errno = kept;
}

}  // namespace vboard
