// Wraps kill killpg tgkill sigqueue pthread_kill pthread_sigqueue sched_yield.
//
// A signal ends waits of the process that gets it: in a jumping run that one must have a turn.

#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/jumping.h"
#include "vboard/interposer/core/seats.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

using namespace vboard;

namespace {

// The result of a call that has sent a signal to a process, or to several of them (0).
int sent_to(pid_t process, int result) {
  if (on_board() && jumping())
    note_signal(process);
  return result;
}

}  // namespace

WRAP(int, kill, pid_t process, int number) {
  on_board();
  return sent_to(process, REAL(kill)(process, number));
}

WRAP(int, killpg, pid_t group, int number) {
  on_board();
  return sent_to(0, REAL(killpg)(group, number));
}

WRAP(int, tgkill, pid_t process, pid_t thread, int number) {
  on_board();
  return sent_to(process, REAL(tgkill)(process, thread, number));
}

WRAP(int, sigqueue, pid_t process, int number, const sigval value) {
  on_board();
  return sent_to(process, REAL(sigqueue)(process, number, value));
}

WRAP(int, pthread_kill, pthread_t thread, int number) {
  on_board();
  return sent_to(getpid(), REAL(pthread_kill)(thread, number));
}

WRAP(int, pthread_sigqueue, pthread_t thread, int number, const sigval value) {
  on_board();
  return sent_to(getpid(), REAL(pthread_sigqueue)(thread, number, value));
}

WRAP(int, sched_yield, void) {
  if (!on_board() || !jumping())
    return REAL(sched_yield)();
  spend_poll();
  yield_baton();
  return 0;
}
