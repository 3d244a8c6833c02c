#include "vboard/launcher/keeper.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/launcher/boards.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace vboard {

namespace {

// As the launcher was started.
sigset_t mask_before;
struct sigaction interrupt_before;
struct sigaction quit_before;

pid_t launcher;
// A program that becomes vboard run by exec() may have had children. They are nobody's of the run:
// the launcher then ends none, and a run whose keeper is killed goes on.
bool has_other_children;

void become_keeper() {
  prctl(PR_SET_NAME, "keeper");
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  // Wakes the keeper, which then asks for its parent.
  prctl(PR_SET_PDEATHSIG, SIGUSR1);
}

// Kills the children of a process, theirs first. How many children it has that can be killed.
int kill_children(pid_t process) {
  FixedText<64> path;
  append_text(path, "/proc/");
  append_decimal(path, process);
  append_text(path, "/task/");
  append_decimal(path, process);
  append_text(path, "/children");
  FILE *file = fopen(path.c_str(), "re");
  if (file == nullptr)
    return 0;
  int count = 0;
  int child;
  while (fscanf(file, "%d", &child) == 1) {
    // Stopped first, so that it makes no more of them meanwhile.
    kill(child, SIGSTOP);
    kill_children(child);
    count += kill(child, SIGKILL) == 0 ? 1 : 0;
  }
  fclose(file);
  return count;
}

}  // namespace

sigset_t attended_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGCHLD, SIGUSR1, SIGTERM, SIGHUP})
    sigaddset(&signals, number);
  return signals;
}

pid_t start_keeper() {
  const sigset_t signals = attended_signals();
  sigprocmask(SIG_BLOCK, &signals, &mask_before);
  // What a terminal sends reaches the command as well; the launcher waits for what it makes of it.
  struct sigaction ignore = {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGINT, &ignore, &interrupt_before);
  sigaction(SIGQUIT, &ignore, &quit_before);
  siginfo_t child;
  has_other_children = waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) == 0;
  if (!has_other_children)
    prctl(PR_SET_CHILD_SUBREAPER, 1);
  launcher = getpid();
  const pid_t keeper = fork();
  if (keeper == 0)
    become_keeper();
  return keeper;
}

bool wait_for_keeper(pid_t keeper, int &status) {
  const sigset_t signals = attended_signals();
  for (;;) {
    int ended_with;
    pid_t ended;
    while ((ended = waitpid(-1, &ended_with, WNOHANG)) > 0) {
      if (ended != keeper)
        continue;
      if (WIFEXITED(ended_with)) {
        status = WEXITSTATUS(ended_with);
        return true;
      }
      if (!has_other_children)
        end_processes(0);
      status = fail("the keeper of the run was killed by signal %d", WTERMSIG(ended_with));
      return false;
    }
    const int received = sigwaitinfo(&signals, nullptr);
    if (received == SIGTERM || received == SIGHUP)
      kill(keeper, received);
  }
}

bool is_launcher_gone() {
  return getppid() != launcher;
}

void leave_session() {
  setsid();
}

void restore_signals() {
  sigaction(SIGINT, &interrupt_before, nullptr);
  sigaction(SIGQUIT, &quit_before, nullptr);
  sigprocmask(SIG_SETMASK, &mask_before, nullptr);
}

int end_processes(pid_t command) {
  // A process that the kernel does not let go, or of another user, is not waited for any longer.
  const std::int64_t last = pc_monotonic() + kGrace;
  constexpr timespec kLookAgain = {0, 20'000'000};
  sigset_t child_ended;
  sigemptyset(&child_ended);
  sigaddset(&child_ended, SIGCHLD);
  int command_status = SIGKILL;
  // Who is killed leaves its children to this process: one round more finds what the last one
  // missed.
  for (;;) {
    int status;
    pid_t ended;
    while ((ended = waitpid(-1, &status, WNOHANG)) > 0) {
      if (ended != command)
        continue;
      command_status = status;
      command = 0;
    }
    const bool none = ended < 0;
    if (none || (kill_children(getpid()) == 0 && command == 0) || pc_monotonic() >= last)
      return command_status;
    // The list of children is missing where /proc is.
    if (command != 0)
      kill(command, SIGKILL);
    sigtimedwait(&child_ended, nullptr, &kLookAgain);
  }
}

}  // namespace vboard
