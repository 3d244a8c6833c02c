// proctrace: prints a line for every fork, exec, change of identity, session, rename, core dump and
// exit on the board, as the kernel's process-events connector reports them, until Ctrl-C.
//
// Events go to standard error, diagnostics to standard output. Ctrl-C interrupts the waiting poll,
// and is then reported like any other failure of it; the status is 0 all the same.

#include "debug/debug_tools.h"

#include "common/diagnostics.h"
#include "debug/process_events.h"

#include <linux/connector.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>

namespace {

constexpr int kSocketFailed = static_cast<int>(0xB8090006u);
constexpr int kBindFailed = static_cast<int>(0xB8090007u);
constexpr int kReceiveFailed = static_cast<int>(0xB809000Eu);
constexpr int kSendFailed = static_cast<int>(0xB809000Fu);

constexpr const char *kMainRoutine = "proctrace_main";
constexpr int kSocketLine = 212;
constexpr int kBindLine = 220;
constexpr int kPollLine = 235;
constexpr const char *kReceiveRoutine = "recv_proc_event";
constexpr int kReceiveLine = 139;

constexpr std::size_t kDatagramSize = 256;
// A script may fork by the thousand a second, and events that find the buffer full are lost: the
// reader then gets an error, which ends the trace.
constexpr int kReceiveBuffer = 4 << 20;

static_assert(sizeof(sockaddr_nl) == 12);

std::atomic<bool> stop_requested;
static_assert(std::atomic<bool>::is_always_lock_free);

void request_stop(int) {
  stop_requested.store(true, std::memory_order_relaxed);
}

int set_proc_ev_listen(int socket, bool listen) {
  const ProcessSubscription message =
      build_subscription(static_cast<std::uint32_t>(getpid()), listen);
  return send(socket, &message, sizeof message, 0) < 0 ? kSendFailed : 0;
}

int recv_proc_event(int socket) {
  alignas(4) unsigned char datagram[kDatagramSize] = {};
  sockaddr_nl source = {};
  iovec room = {.iov_base = datagram, .iov_len = sizeof datagram};
  msghdr message = {};
  message.msg_name = &source;
  message.msg_namelen = sizeof source;
  message.msg_iov = &room;
  message.msg_iovlen = 1;
  const ssize_t count = recvmsg(socket, &message, 0);
  if (count < 0) {
    report_warning(kReceiveRoutine, kReceiveLine, "netlink recvmsg fail[%d]", errno);
    return kReceiveFailed;
  }
  if (source.nl_pid != 0)  // not from the kernel
    return 0;
  return print_process_events({datagram, static_cast<std::size_t>(count)});
}

// Waits for the socket, or for SIGINT: that is blocked from the look at the flag to the wait, so
// that one which arrives in between interrupts the wait and is not lost until the next event.
// False when the flag stood; `out_result` is the wait's.
bool wait_for_event(pollfd &socket, int &out_result) {
  sigset_t interrupt;
  sigset_t before;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  sigprocmask(SIG_BLOCK, &interrupt, &before);
  const bool go_on = !stop_requested.load(std::memory_order_relaxed);
  int reason = 0;
  if (go_on) {
    sigset_t while_waiting = before;
    sigdelset(&while_waiting, SIGINT);
    out_result = ppoll(&socket, 1, nullptr, &while_waiting);
    reason = errno;
  }
  sigprocmask(SIG_SETMASK, &before, nullptr);
  errno = reason;
  return go_on;
}

void trace_events(int socket) {
  pollfd waited = {.fd = socket, .events = POLLIN, .revents = 0};
  int result = 0;
  while (wait_for_event(waited, result)) {
    if (result < 0) {
      report_warning(kMainRoutine, kPollLine, "poll socket fail[%d]", errno);
      return;
    }
    // An error of the socket (POLLERR) is what receiving reports.
    if (waited.revents != 0 && recv_proc_event(socket) != 0)
      return;
  }
}

}  // namespace

int proctrace_main([[maybe_unused]] int argc, [[maybe_unused]] char **argv) {
  stop_requested.store(false, std::memory_order_relaxed);
  signal(SIGINT, request_stop);  // the group ignores it
  const int connector = socket(AF_NETLINK, SOCK_DGRAM, NETLINK_CONNECTOR);
  if (connector < 0) {
    report_return(kMainRoutine, kSocketLine, "Create socket fail[%d]", errno);
    return kSocketFailed;
  }
  // The first asks for more than the board's limit, which takes a privilege; either may fail.
  const int size = kReceiveBuffer;
  if (setsockopt(connector, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0)
    setsockopt(connector, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);

  sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  address.nl_pid = static_cast<std::uint32_t>(getpid());
  address.nl_groups = CN_IDX_PROC;
  if (bind(connector, reinterpret_cast<const sockaddr *>(&address), sizeof address) < 0) {
    report_warning(kMainRoutine, kBindLine, "bind socket fail[%d]", errno);
    close(connector);
    return kBindFailed;
  }
  set_proc_ev_listen(connector, true);  // a kernel without the connector just stays silent
  trace_events(connector);
  set_proc_ev_listen(connector, false);
  close(connector);
  return 0;
}
