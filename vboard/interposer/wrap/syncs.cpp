// Wraps sync.
//
// The board's files are the PC's: writing all of its caches back would make every run wait for
// whatever else the PC is doing.

#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/core/wrap.h"

#include <unistd.h>

using namespace vboard;

WRAP(void, sync, void) {
  if (!on_board()) {
    REAL(sync)();
    return;
  }
  if (tracing()) {
    TraceLine line;
    trace_begin(line, "sync", {});
    trace_end(line, 0, 0);
  }
  spend_call();
}
