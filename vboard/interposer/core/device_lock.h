// The lock that a device is worked on under: one for all devices and all processes of a run.

#ifndef VBOARD_INTERPOSER_CORE_DEVICE_LOCK_H
#define VBOARD_INTERPOSER_CORE_DEVICE_LOCK_H

namespace vboard {

// Takes the board's lock of this process as well. May be nested. A process that dies with the lock
// gives it up.
void lock_devices();
void unlock_devices();
// In the child of a fork.
void renew_device_lock();

struct DeviceLock {
  DeviceLock() {
    lock_devices();
  }
  ~DeviceLock() {
    unlock_devices();
  }
  DeviceLock(const DeviceLock &) = delete;
  DeviceLock &operator=(const DeviceLock &) = delete;
};

}  // namespace vboard

#endif
