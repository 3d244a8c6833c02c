// Board time that a device needs for its own work: for erasing and programming, or for bytes on a
// slow line. The calling thread waits as in a driver that nothing interrupts: signals are blocked
// from the first wait of a call until its end. Nothing of it shows in traces.

#ifndef VBOARD_INTERPOSER_CORE_DEVICE_TIME_H
#define VBOARD_INTERPOSER_CORE_DEVICE_TIME_H
#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/device_lock.h"
#include "vboard/interposer/models/host.h"

#include <cstddef>

namespace vboard {

// What a medium takes or does not take as a whole.
inline constexpr std::size_t kSector = 512;

// Under the device lock, which is given up meanwhile: other devices go on.
void take_device_time(const Description &description, BoardTime duration, Progress progress);
// Waits until the device has finished the work of somebody else. Under the device lock, given up
// likewise.
void wait_for_turn(const Description &description);

// The device lock, once the device is idle.
struct DeviceTurn {
  explicit DeviceTurn(const Description &description) {
    wait_for_turn(description);
  }
  DeviceLock lock;
};

// The time that so many bytes of a read or a write take ("byte_us").
BoardTime line_time(const Description &description, std::size_t bytes);
// Waits for its end. Without the device lock.
void pass_line_time(const Description &description, std::size_t bytes);

// The call is over, or a part of it that another one may follow: signals come through again.
void end_device_work();

}  // namespace vboard

#endif
