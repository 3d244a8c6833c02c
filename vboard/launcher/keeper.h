// The two processes of vboard run, so that no process of a run outlives it.
//
//   launcher      the one that was started: waits for the keeper and returns its status
//     keeper      attends the run and ends whatever is left of it, also when the launcher was
//     killed
//       command
//
// An orphan of the run becomes the keeper's child, whatever session it made for itself: the
// processes of the run are those below the keeper. A keeper that was killed leaves them to the
// launcher. It has a session and a name of its own, so that "kill -9 -GROUP" and "killall -9
// vboard" miss it.

#ifndef VBOARD_LAUNCHER_KEEPER_H
#define VBOARD_LAUNCHER_KEEPER_H
#include <signal.h>
#include <sys/types.h>

#include <cstdint>

namespace vboard {

// How long a command may take to end after SIGTERM, in nanoseconds of the PC.
inline constexpr std::int64_t kGrace = 5'000'000'000;

// The signals that launcher and keeper wait for.
sigset_t attended_signals();

// Makes the keeper: 0 in it, its process in the launcher, -1 (and errno) without one. Both have
// attended_signals() blocked afterwards, and ignore what a terminal sends.
pid_t start_keeper();

// In the launcher: waits for the keeper's end and returns the status that it gave. SIGTERM and
// SIGHUP are passed on to it. False when it was killed instead; its run is ended then.
bool wait_for_keeper(pid_t keeper, int &status);

// In the keeper: whether there is no launcher any more. SIGUSR1 comes when it dies.
bool is_launcher_gone();

// In the keeper, once the command is started: leaves the session of the launcher and the command.
void leave_session();

// In the child that becomes the command: signals are again as the launcher found them.
void restore_signals();

// Ends every process below this one. `command` is a child that was not waited for yet, 0 without
// one; the result is its status of wait().
int end_processes(pid_t command);

}  // namespace vboard

#endif
