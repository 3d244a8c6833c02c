// Wraps system popen pclose.
//
// libc starts the shell, and waits for it, without passing the public functions: in a jumping run
// both must go through them.

#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/paths.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace vboard;

DECLARE_WRAPPED(int, posix_spawn, pid_t *, const char *, const posix_spawn_file_actions_t *,
                const posix_spawnattr_t *, char *const[], char *const[]);
DECLARE_WRAPPED(pid_t, wait4, pid_t, int *, int, struct rusage *);
DECLARE_WRAPPED(FILE *, fdopen, int, const char *);

namespace {

constexpr char kShell[] = "/bin/sh";

void look_for_reboot(const char *command) {
  if (!is_reboot_command(command))
    return;
  trace_call("system", command, 0, 0);
  end_run(kBoardReboot);
}

int start_shell(const char *command, const posix_spawn_file_actions_t *actions,
                const posix_spawnattr_t *attributes, pid_t &out) {
  char *const words[] = {const_cast<char *>("sh"), const_cast<char *>("-c"),
                         const_cast<char *>(command), nullptr};
  return vboard_posix_spawn(&out, kShell, actions, attributes, words, environ);
}

// The end of a child, whatever signals come meanwhile.
int status_of(pid_t child) {
  int status;
  pid_t ended;
  do {
    ended = vboard_wait4(child, &status, 0, nullptr);
  } while (ended < 0 && errno == EINTR);
  return ended == child ? status : -1;
}

int run_command(const char *command) {
  // As a shell's caller does: what a terminal sends is for the command alone, and the end of this
  // child is for nobody else.
  struct sigaction ignore = {};
  struct sigaction interrupt;
  struct sigaction quit;
  sigset_t child_signal;
  sigset_t mask;
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGINT, &ignore, &interrupt);
  sigaction(SIGQUIT, &ignore, &quit);
  sigemptyset(&child_signal);
  sigaddset(&child_signal, SIGCHLD);
  sigprocmask(SIG_BLOCK, &child_signal, &mask);

  posix_spawnattr_t attributes;
  sigset_t reset;
  sigemptyset(&reset);
  if (interrupt.sa_handler != SIG_IGN)
    sigaddset(&reset, SIGINT);
  if (quit.sa_handler != SIG_IGN)
    sigaddset(&reset, SIGQUIT);
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigmask(&attributes, &mask);
  posix_spawnattr_setsigdefault(&attributes, &reset);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  pid_t child;
  // The status of a shell that cannot be run.
  int status = W_EXITCODE(127, 0);
  if (start_shell(command, nullptr, &attributes, child) == 0)
    status = status_of(child);
  posix_spawnattr_destroy(&attributes);

  const int kept = errno;
  sigaction(SIGINT, &interrupt, nullptr);
  sigaction(SIGQUIT, &quit, nullptr);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  errno = kept;
  return status;
}

}  // namespace

WRAP(int, system, const char *command) {
  if (!on_board() || command == nullptr)
    return REAL(system)(command);
  look_for_reboot(command);
  return jumping() ? run_command(command) : REAL(system)(command);
}

namespace {

// The commands that popen() has started.
struct Command {
  FILE *stream;
  pid_t process;
};

constexpr std::size_t kMostCommands = 64;
Command commands[kMostCommands];
SharedLock commands_lock;  // this process's own

Command *find_command(const FILE *stream) {
  for (Command &one : commands) {
    if (one.stream == stream)
      return &one;
  }
  return nullptr;
}

FILE *open_command(Command &out, const char *command, const char *mode) {
  const bool reads = strchr(mode, 'r') != nullptr;
  if (reads == (strchr(mode, 'w') != nullptr)) {
    errno = EINVAL;
    return nullptr;
  }
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) < 0)
    return nullptr;
  const int own = ends[reads ? 0 : 1];
  const int theirs = ends[reads ? 1 : 0];
  const int standard = reads ? STDOUT_FILENO : STDIN_FILENO;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, theirs, standard);
  // Earlier commands' pipes are not for this one.
  for (const Command &one : commands) {
    if (one.stream != nullptr && fileno(one.stream) != standard)
      posix_spawn_file_actions_addclose(&actions, fileno(one.stream));
  }
  const int error = start_shell(command, &actions, nullptr, out.process);
  posix_spawn_file_actions_destroy(&actions);
  close(theirs);
  FILE *stream = error == 0 ? vboard_fdopen(own, reads ? "r" : "w") : nullptr;
  if (stream == nullptr) {
    close(own);
    errno = error != 0 ? error : errno;
    return nullptr;
  }
  if (strchr(mode, 'e') == nullptr)
    fcntl(own, F_SETFD, 0);
  out.stream = stream;
  return stream;
}

}  // namespace

WRAP(FILE *, popen, const char *command, const char *mode) {
  if (!on_board() || command == nullptr)
    return REAL(popen)(command, mode);
  look_for_reboot(command);
  if (!jumping())
    return REAL(popen)(command, mode);
  take_lock(commands_lock);
  Command *room = find_command(nullptr);
  FILE *stream = room != nullptr ? open_command(*room, command, mode) : nullptr;
  if (room == nullptr)
    errno = EMFILE;
  give_up_lock(commands_lock);
  return stream;
}

WRAP(int, pclose, FILE *stream) {
  take_lock(commands_lock);
  Command *command = stream != nullptr ? find_command(stream) : nullptr;
  const pid_t process = command != nullptr ? command->process : 0;
  if (command != nullptr)
    *command = {};
  give_up_lock(commands_lock);
  if (process == 0)
    return REAL(pclose)(stream);
  fclose(stream);
  return status_of(process);
}
