// Changes of attributes, for programs that wait for one with POLLPRI, as the kernel announces them
// (sysfs_notify).
//
// Each open attribute remembers what it said when it was looked at last, and whether a change has
// come since it was read. The processes of a run look at all of them after every write. A change
// from outside the run is found when somebody who waits looks.

#ifndef VBOARD_INTERPOSER_CORE_ATTRIBUTE_CHANGES_H
#define VBOARD_INTERPOSER_CORE_ATTRIBUTE_CHANGES_H

#include "vboard/interposer/core/descriptors.h"

namespace vboard {

// Whether the attribute has not been read since it changed, or not at all.
bool has_changed(const Description &description);
// The program reads the attribute. Under the device lock.
void note_attribute_read(const Description &description);
// Something was written to an attribute of the board: wakes those who wait for what it changed.
// Under the device lock.
void note_attribute_changes();

}  // namespace vboard

#endif
