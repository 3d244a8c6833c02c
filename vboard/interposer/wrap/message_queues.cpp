// Wraps mq_send mq_timedsend mq_receive mq_timedreceive.
//
// The queues are the PC's kernel's, whose limits are times of its CLOCK_REALTIME. In a jumping run
// the wait is the engine's: a queue is a descriptor that can be polled.

#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/wrap.h"
#include "vboard/interposer/wrap/deadlines.h"

#include <errno.h>
#include <mqueue.h>
#include <poll.h>
#include <time.h>

using namespace vboard;

namespace {

// Calls `transfer` with the limit of each attempt: its result, or -1 with errno.
template <typename Transfer>
ssize_t transfer_by(mqd_t queue, short events, const timespec *limit, Transfer transfer) {
  if (limit != nullptr && !is_valid_time(*limit))
    return report<ssize_t>(-EINVAL);
  const BoardTime deadline = limit != nullptr ? board_moment(CLOCK_REALTIME, *limit) : kNever;
  if (!jumping()) {
    const timespec pc = pc_calendar_moment(deadline);
    return transfer(limit != nullptr ? &pc : nullptr);
  }
  for (;;) {
    // A moment that has passed: the kernel says whether it would have waited.
    const timespec passed = {};
    const ssize_t result = transfer(&passed);
    if (result >= 0 || errno != ETIMEDOUT)
      return result;
    pollfd one = {queue, events, 0};
    Wait wait;
    wait.fds = &one;
    wait.fd_count = 1;
    wait.deadline = deadline;
    const WaitEnd end = wait_on_board(wait);
    if (end == WaitEnd::kTimeout)
      return report<ssize_t>(-ETIMEDOUT);
    if (end == WaitEnd::kInterrupted && !handlers_restart())
      return report<ssize_t>(-EINTR);
  }
}

}  // namespace

WRAP(ssize_t, mq_timedreceive, mqd_t queue, char *bytes, std::size_t size, unsigned int *priority,
     const timespec *limit) {
  if (!on_board())
    return REAL(mq_timedreceive)(queue, bytes, size, priority, limit);
  return transfer_by(queue, POLLIN, limit, [&](const timespec *until) {
    return REAL(mq_timedreceive)(queue, bytes, size, priority, until);
  });
}

WRAP(ssize_t, mq_receive, mqd_t queue, char *bytes, std::size_t size, unsigned int *priority) {
  return on_board() ? vboard_mq_timedreceive(queue, bytes, size, priority, nullptr)
                    : REAL(mq_receive)(queue, bytes, size, priority);
}

WRAP(int, mq_timedsend, mqd_t queue, const char *bytes, std::size_t size, unsigned int priority,
     const timespec *limit) {
  if (!on_board())
    return REAL(mq_timedsend)(queue, bytes, size, priority, limit);
  return static_cast<int>(transfer_by(queue, POLLOUT, limit, [&](const timespec *until) {
    return ssize_t{REAL(mq_timedsend)(queue, bytes, size, priority, until)};
  }));
}

WRAP(int, mq_send, mqd_t queue, const char *bytes, std::size_t size, unsigned int priority) {
  return on_board() ? vboard_mq_timedsend(queue, bytes, size, priority, nullptr)
                    : REAL(mq_send)(queue, bytes, size, priority);
}
