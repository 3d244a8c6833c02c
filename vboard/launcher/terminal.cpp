#include "vboard/launcher/terminal.h"

#include "vboard/base/kernel.h"
#include "vboard/launcher/boards.h"
#include "vboard/launcher/keeper.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

namespace vboard {

namespace {

// The launcher's own terminal, if it types on one.
struct Keyboard {
  bool is_raw;
  termios before;
};

struct Terminal {
  bool is_open;
  int master, slave;
  bool reads_input;  // the launcher's standard input has not ended
  bool has_reader;   // of what the command prints
  char input[1024];  // read from the launcher's standard input and not typed yet
  std::size_t input_begin, input_end;
  const PlannedText *texts;
  std::uint32_t text_count, typed;
};

Keyboard keyboard;
Terminal terminal;

winsize size_of_terminal() {
  winsize size = {};
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO}) {
    if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0)
      return size;
  }
  size = {};
  size.ws_row = 24;
  size.ws_col = 80;
  return size;
}

// Whether somebody still takes what the command prints: waits until its reader has room.
bool wait_for_room() {
  constexpr int kLookAgain = 200;  // milliseconds
  pollfd writable = {STDOUT_FILENO, POLLOUT, 0};
  while (poll(&writable, 1, kLookAgain) == 0) {
    if (is_launcher_gone())
      return false;
  }
  return true;
}

void print(std::string_view text, pid_t command) {
  while (!text.empty() && terminal.has_reader) {
    // So much fits in a pipe that has room.
    const std::size_t size = std::min<std::size_t>(text.size(), PIPE_BUF);
    const ssize_t count = wait_for_room() ? write(STDOUT_FILENO, text.data(), size) : 0;
    if (count > 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
      // As if somebody had closed the window.
      terminal.has_reader = false;
      if (command > 0)
        kill(command, SIGHUP);
    }
  }
}

// Reads all that was printed by now: the kernel makes it readable before it says that there is
// nothing.
void read_output(pid_t command) {
  char text[4096];
  ssize_t count;
  while ((count = read(terminal.master, text, sizeof text)) > 0)
    print({text, static_cast<std::size_t>(count)}, command);
  // The session has ended, and the terminal with it.
  if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
    terminal.is_open = false;
    close(terminal.slave);
    close(terminal.master);
  }
}

bool is_readable(int fd) {
  pollfd readable = {fd, POLLIN, 0};
  return poll(&readable, 1, 0) > 0;
}

bool has_input() {
  return terminal.input_begin < terminal.input_end;
}

void read_input() {
  if (!terminal.reads_input || has_input() || !is_readable(STDIN_FILENO))
    return;
  const ssize_t count = read(STDIN_FILENO, terminal.input, sizeof terminal.input);
  terminal.reads_input = count > 0 || (count < 0 && (errno == EINTR || errno == EAGAIN));
  terminal.input_begin = 0;
  terminal.input_end = count > 0 ? static_cast<std::size_t>(count) : 0;
}

void type_input() {
  const ssize_t count = write(terminal.master, terminal.input + terminal.input_begin,
                              terminal.input_end - terminal.input_begin);
  if (count > 0)
    terminal.input_begin += static_cast<std::size_t>(count);
}

// The kernel takes typed bytes to the slave later, in a thread of its own. Asking a slave without
// input whether it has any waits for that; one that has input answers at once.
void type(std::string_view text, pid_t command) {
  constexpr int kMostTries = 100;
  constexpr int kPause = 1;  // milliseconds
  // A ^C throws away what was printed and not read.
  read_output(command);
  if (!terminal.is_open)
    return;
  const bool had_input = is_readable(terminal.slave);
  for (int i = 0; i < kMostTries && !text.empty() && terminal.is_open; ++i) {
    const ssize_t count = write(terminal.master, text.data(), text.size());
    if (count > 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
      continue;
    }
    pollfd writable = {terminal.master, POLLOUT, 0};
    poll(&writable, 1, kPause);
    read_output(command);
  }
  if (!terminal.is_open)
    return;
  constexpr timespec kArrival = {0, 2'000'000};
  if (had_input)
    nanosleep(&kArrival, nullptr);
  else
    is_readable(terminal.slave);
}

}  // namespace

void begin_keyboard(const RunOptions &options) {
  // The keys belong to the foreground's programs.
  if (!options.has_terminal || tcgetpgrp(STDIN_FILENO) != getpgrp() ||
      tcgetattr(STDIN_FILENO, &keyboard.before) < 0)
    return;
  termios raw = keyboard.before;
  cfmakeraw(&raw);
  keyboard.is_raw = tcsetattr(STDIN_FILENO, TCSADRAIN, &raw) == 0;
}

void end_keyboard() {
  if (keyboard.is_raw)
    tcsetattr(STDIN_FILENO, TCSADRAIN, &keyboard.before);
  keyboard.is_raw = false;
}

int begin_terminal(const RunOptions &options, RunPage &page) {
  if (!options.has_terminal)
    return 0;
  const winsize size = size_of_terminal();
  terminal.master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  const char *name = nullptr;
  if (terminal.master >= 0 && grantpt(terminal.master) == 0 && unlockpt(terminal.master) == 0)
    name = ptsname(terminal.master);
  terminal.slave = name != nullptr ? open(name, O_RDWR | O_NOCTTY | O_CLOEXEC) : -1;
  FileStatus status;
  if (terminal.slave < 0 || sys_fstat(terminal.slave, status) < 0 ||
      fcntl(terminal.master, F_SETFL, O_NONBLOCK) < 0 ||
      ioctl(terminal.slave, TIOCSWINSZ, &size) < 0)
    return fail("no terminal for the run: %s", strerror(errno));
  page.has_terminal = 1;
  page.terminal_major = status.device_major;
  page.terminal_minor = status.device_minor;
  terminal.is_open = true;
  terminal.has_reader = true;
  terminal.reads_input = keyboard.is_raw || isatty(STDIN_FILENO) == 0;
  terminal.texts = options.texts;
  terminal.text_count = options.text_count;
  signal(SIGPIPE, SIG_IGN);
  return 0;
}

void enter_terminal() {
  if (!terminal.is_open)
    return;
  // A terminal's keys work, whoever started the launcher.
  for (const int number : {SIGPIPE, SIGINT, SIGQUIT})
    signal(number, SIG_DFL);
  setsid();
  ioctl(terminal.slave, TIOCSCTTY, 0);
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    dup2(terminal.slave, fd);
}

std::size_t terminal_descriptors(pollfd *fds) {
  if (!terminal.is_open)
    return 0;
  const bool has_keys = has_input();
  const short events = has_keys ? POLLIN | POLLOUT : POLLIN;
  fds[0] = {terminal.master, events, 0};
  fds[1] = {terminal.reads_input && !has_keys ? STDIN_FILENO : -1, POLLIN, 0};
  return kTerminalDescriptors;
}

void continue_terminal(pid_t command) {
  if (!terminal.is_open)
    return;
  read_input();
  if (has_input())
    type_input();
  read_output(command);
}

bool may_be_typed_on() {
  return terminal.is_open && (terminal.reads_input || has_input());
}

void type_due_texts(RunPage &page, pid_t command) {
  const std::uint32_t due = std::min(page.texts_due.load(), terminal.text_count);
  for (; terminal.typed < due; ++terminal.typed) {
    const PlannedText &text = terminal.texts[terminal.typed];
    if (terminal.is_open)
      type({text.bytes, text.size}, command);
  }
  page.texts_typed.store(due);
}

}  // namespace vboard
