// proctrace on a connector that this program plays: the socket is one end of a pair, and the calls
// that only a kernel's connector could answer are this program's own.

#include "debug/debug_tools.h"

#include <linux/netlink.h>
#include <sys/socket.h>

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace {

struct Connector {
  int ends[2] = {-1, -1};              // the program's and the kernel's
  std::vector<std::uint32_t> senders;  // port ids of the datagrams in order
  std::size_t received = 0;
  int waits = 0;
  int interrupted_wait = 0;             // SIGINT comes when this wait begins, from 1; 0: never
  int failed_wait = 0;                  // this wait finds an error of the socket, as receiving does
  std::size_t interrupted_receive = 0;  // SIGINT comes with this datagram, from 1; 0: never
  int refused_socket = 0;               // the errno of socket() when that fails
  int refused_bind = 0;                 // that of bind()
  int refused_option = -1;              // an option of the socket that takes a privilege
  std::vector<int> options;             // in the order in which they were set
};

Connector *connector = nullptr;

template <typename Function>
Function real(Function, const char *name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// SIGINT, right before a wait that blocks the signals of `mask`. False when the wait would not end.
bool interrupt_wait(const sigset_t *mask) {
  raise(SIGINT);
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, SIGINT) == 1 && mask != nullptr && sigismember(mask, SIGINT) == 0;
}

}  // namespace

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  if (connector == nullptr)
    return real(&socket, "socket")(domain, type, protocol);
  if (connector->refused_socket == 0)
    return connector->ends[0];
  errno = connector->refused_socket;
  return -1;
}

int bind(int fd, const sockaddr *addr, socklen_t len) noexcept {
  if (connector == nullptr)
    return real(&bind, "bind")(fd, addr, len);
  if (connector->refused_bind == 0)
    return 0;
  errno = connector->refused_bind;
  return -1;
}

int setsockopt(int fd, int level, int optname, const void *optval, socklen_t optlen) noexcept {
  if (connector == nullptr)
    return real(&setsockopt, "setsockopt")(fd, level, optname, optval, optlen);
  EXPECT_EQ(level, SOL_SOCKET);
  int number = 0;
  EXPECT_EQ(optlen, sizeof number);
  memcpy(&number, optval, sizeof number);
  EXPECT_EQ(number, 4 << 20);
  connector->options.push_back(optname);
  if (optname != connector->refused_option)
    return 0;
  errno = EPERM;
  return -1;
}

ssize_t recvmsg(int fd, msghdr *message, int flags) {
  const socklen_t room = message->msg_namelen;
  const ssize_t count = real(&recvmsg, "recvmsg")(fd, message, flags);
  if (connector == nullptr)
    return count;
  EXPECT_EQ(message->msg_iovlen, 1u);
  if (connector->waits == connector->failed_wait) {
    errno = ENOBUFS;
    return -1;
  }
  sockaddr_nl source = {};
  source.nl_family = AF_NETLINK;
  source.nl_pid = connector->senders.at(connector->received++);
  memcpy(message->msg_name, &source, std::min<std::size_t>(room, sizeof source));
  message->msg_namelen = sizeof source;
  if (connector->received == connector->interrupted_receive)
    raise(SIGINT);
  return count;
}

int ppoll(pollfd *fds, nfds_t nfds, const timespec *timeout, const sigset_t *ss) {
  const auto wait = real(&ppoll, "ppoll");
  if (connector == nullptr)
    return wait(fds, nfds, timeout, ss);
  EXPECT_EQ(timeout, nullptr);
  if (++connector->waits == connector->failed_wait) {
    fds->revents = POLLERR;
    return 1;
  }
  const bool ignores_error =
      connector->failed_wait > 0 && connector->waits > connector->failed_wait;
  const bool loses_signal = connector->waits == connector->interrupted_wait && !interrupt_wait(ss);
  const bool forgets_signal =
      connector->interrupted_receive > 0 && connector->received >= connector->interrupted_receive;
  if (ignores_error || loses_signal || forgets_signal) {
    ADD_FAILURE() << "this wait never ends";
    errno = ETIME;
    return -1;
  }
  return wait(fds, nfds, nullptr, ss);
}

}  // extern "C"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes event(std::uint32_t what, std::uint32_t pid, std::uint32_t group) {
  const std::array<std::uint32_t, 19> words = {76, 3,    0, 0, 1, 1,   0,    0,
                                               40, what, 0, 0, 0, pid, group};
  Bytes bytes(sizeof words);
  memcpy(bytes.data(), words.data(), bytes.size());
  return bytes;
}

constexpr std::uint32_t kExec = 2;
constexpr std::uint32_t kUnknown = 0x100;
constexpr char kInterrupted[] = "[proctrace_main:235]WARN:poll socket fail[4]\n";

class ProctraceSocket : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, played.ends), 0);
    sigprocmask(SIG_BLOCK, nullptr, &before);
  }
  void TearDown() override {
    close(played.ends[1]);
    signal(SIGINT, SIG_IGN);  // drops one that nobody took
    sigprocmask(SIG_SETMASK, &before, nullptr);
    signal(SIGINT, SIG_DFL);
  }

  void add(const Bytes &datagram, std::uint32_t sender) {
    ASSERT_EQ(send(played.ends[1], datagram.data(), datagram.size(), 0),
              static_cast<ssize_t>(datagram.size()));
    played.senders.push_back(sender);
  }

  int run() {
    char name[] = "proctrace";
    char *argv[] = {name, nullptr};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    connector = &played;
    const int status = proctrace_main(1, argv);
    connector = nullptr;
    out = testing::internal::GetCapturedStdout();
    err = testing::internal::GetCapturedStderr();
    return status;
  }

  // Operations of the subscriptions that the kernel's end got.
  std::vector<std::uint32_t> operations() {
    std::vector<std::uint32_t> list;
    std::uint32_t words[10];
    while (recv(played.ends[1], words, sizeof words, MSG_DONTWAIT) == sizeof words)
      list.push_back(words[9]);
    return list;
  }

  Connector played;
  sigset_t before;
  std::string out;
  std::string err;
};

TEST_F(ProctraceSocket, datagrams_of_other_processes_are_ignored) {
  add(event(kExec, 1, 2), 0);
  add(event(kExec, 3, 4), 77);
  add(event(kUnknown, 5, 6), static_cast<std::uint32_t>(getpid()));
  add(event(kExec, 7, 8), 0xFFFFFFFF);
  add(event(kExec, 9, 10), 0);
  add(event(kUnknown, 0, 0), 0);
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "exec pid=1/tgid=2\nexec pid=9/tgid=10\nunhandled event: 0x     100\n");
  EXPECT_EQ(operations(), (std::vector<std::uint32_t>{1, 2}));
}

TEST_F(ProctraceSocket, a_socket_that_is_not_to_be_had_has_its_code) {
  played.refused_socket = EPROTONOSUPPORT;
  EXPECT_EQ(run(), static_cast<int>(0xB8090006u));
  close(played.ends[0]);
  EXPECT_EQ(out, "[proctrace_main:212]RETURN:Create socket fail[93]\n");
  EXPECT_EQ(err, "");
}

TEST_F(ProctraceSocket, an_address_that_is_not_to_be_had_has_its_code) {
  played.refused_bind = EADDRINUSE;
  EXPECT_EQ(run(), static_cast<int>(0xB8090007u));
  EXPECT_EQ(out, "[proctrace_main:220]WARN:bind socket fail[98]\n");
  EXPECT_EQ(err, "");
  EXPECT_EQ(fcntl(played.ends[0], F_GETFD), -1);  // closed
  EXPECT_EQ(operations(), (std::vector<std::uint32_t>{}));
}

// The board's limit is for those who may not pass it.
TEST_F(ProctraceSocket, the_buffer_is_asked_for_within_the_limit_only_without_the_privilege) {
  played.interrupted_wait = 1;
  run();
  EXPECT_EQ(played.options, (std::vector<int>{SO_RCVBUFFORCE}));
}

TEST_F(ProctraceSocket, without_the_privilege_the_buffer_has_the_limit_of_the_board) {
  played.interrupted_wait = 1;
  played.refused_option = SO_RCVBUFFORCE;
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(played.options, (std::vector<int>{SO_RCVBUFFORCE, SO_RCVBUF}));
}

TEST_F(ProctraceSocket, an_empty_datagram_is_ignored) {
  add({}, 0);
  add(event(kExec, 1, 2), 0);
  add(event(kUnknown, 0, 0), 0);
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "exec pid=1/tgid=2\nunhandled event: 0x     100\n");
  EXPECT_EQ(operations(), (std::vector<std::uint32_t>{1, 2}));
}

// The signal comes after the look at the stop flag and before the wait.
TEST_F(ProctraceSocket, a_signal_right_before_the_wait_interrupts_it) {
  played.interrupted_wait = 1;
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(out, kInterrupted);
  EXPECT_EQ(err, "");
  EXPECT_EQ(played.waits, 1);
  EXPECT_EQ(operations(), (std::vector<std::uint32_t>{1, 2}));
}

TEST_F(ProctraceSocket, a_signal_right_before_a_later_wait_interrupts_that) {
  add(event(kExec, 1, 2), 0);
  played.interrupted_wait = 2;
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(out, kInterrupted);
  EXPECT_EQ(err, "exec pid=1/tgid=2\n");
  EXPECT_EQ(played.waits, 2);
}

// The wait is not interrupted, so that nothing is reported.
TEST_F(ProctraceSocket, a_signal_while_an_event_is_handled_ends_the_trace_after_that_event) {
  add(event(kExec, 1, 2), 0);
  add(event(kExec, 3, 4), 0);
  add(event(kExec, 5, 6), 0);
  played.interrupted_receive = 2;
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "exec pid=1/tgid=2\nexec pid=3/tgid=4\n");
  EXPECT_EQ(played.waits, 2);
  EXPECT_EQ(operations(), (std::vector<std::uint32_t>{1, 2}));
}

TEST_F(ProctraceSocket, a_signal_that_its_parent_blocked_interrupts_the_wait_too) {
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  sigprocmask(SIG_BLOCK, &interrupt, nullptr);
  played.interrupted_wait = 1;
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(out, kInterrupted);
  sigset_t after;
  sigprocmask(SIG_BLOCK, nullptr, &after);
  EXPECT_EQ(sigismember(&after, SIGINT), 1);
}

TEST_F(ProctraceSocket, the_signal_is_not_left_blocked) {
  played.interrupted_wait = 1;
  run();
  sigset_t after;
  sigprocmask(SIG_BLOCK, nullptr, &after);
  EXPECT_EQ(sigismember(&after, SIGINT), 0);
}

TEST_F(ProctraceSocket, an_error_of_the_socket_is_what_receiving_reports) {
  add(event(kExec, 1, 2), 0);
  add(event(kExec, 3, 4), 0);
  played.failed_wait = 2;
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(out, "[recv_proc_event:139]WARN:netlink recvmsg fail[105]\n");
  EXPECT_EQ(err, "exec pid=1/tgid=2\n");
  EXPECT_EQ(operations(), (std::vector<std::uint32_t>{1, 2}));
}

}  // namespace
