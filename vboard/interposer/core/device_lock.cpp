#include "vboard/interposer/core/device_lock.h"

#include "vboard/interposer/core/state.h"

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

int depth;  // under the board's lock of the process

// Asking the kernel every time would cost as much as the rest of a request.
__thread std::uint32_t own_number __attribute__((tls_model("initial-exec")));

bool has_died(std::uint32_t owner) {
  return syscall(SYS_kill, static_cast<pid_t>(owner), 0) < 0 && errno == ESRCH;
}

void wait_for_change(std::atomic<std::uint32_t> &word, std::uint32_t seen) {
  struct {
    long seconds, nanoseconds;
  } limit = {0, kPatience};
  syscall(SYS_futex, &word, FUTEX_WAIT, seen, &limit, nullptr, 0);
}

void take(std::atomic<std::uint32_t> &word) {
  if (own_number == 0)
    own_number = static_cast<std::uint32_t>(syscall(SYS_gettid));
  const std::uint32_t self = own_number;
  std::uint32_t mine = self;
  for (;;) {
    std::uint32_t seen = 0;
    if (word.compare_exchange_strong(seen, mine, std::memory_order_acquire))
      return;
    // Whoever has waited once cannot know that nobody else does.
    mine = self | kOthersWait;
    if ((seen & kOthersWait) == 0 && !word.compare_exchange_strong(seen, seen | kOthersWait))
      continue;
    seen |= kOthersWait;
    wait_for_change(word, seen);
    if (word.load(std::memory_order_relaxed) == seen && has_died(seen & ~kOthersWait) &&
        word.compare_exchange_strong(seen, mine, std::memory_order_acquire))
      return;
  }
}

void give_up(std::atomic<std::uint32_t> &word) {
  if ((word.exchange(0, std::memory_order_release) & kOthersWait) != 0)
    syscall(SYS_futex, &word, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

}  // namespace

void lock_devices() {
  lock_board();
  const int kept = errno;
  if (depth++ == 0)
    take(run_page().device_lock.word);
  errno = kept;
}

void unlock_devices() {
  const int kept = errno;
  if (--depth == 0)
    give_up(run_page().device_lock.word);
  errno = kept;
  unlock_board();
}

void renew_device_lock() {
  depth = 0;
  own_number = 0;
}

}  // namespace vboard
