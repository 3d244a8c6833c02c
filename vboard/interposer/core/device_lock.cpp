#include "vboard/interposer/core/device_lock.h"

#include "vboard/base/shared_lock.h"
#include "vboard/interposer/core/state.h"

namespace vboard {

namespace {

int depth;  // under the board's lock of the process

}  // namespace

void lock_devices() {
  lock_board();
  if (depth++ == 0)
    take_lock(run_page().device_lock);
}

void unlock_devices() {
  if (--depth == 0)
    give_up_lock(run_page().device_lock);
  unlock_board();
}

void renew_device_lock() {
  depth = 0;
}

}  // namespace vboard
