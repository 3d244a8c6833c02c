// Device-tree overlays as the flattened trees that the kernel takes.

#ifndef PLATFORM_OVERLAY_BLOB_H
#define PLATFORM_OVERLAY_BLOB_H

#include "platform/device_tree.h"

#include <cstddef>

namespace rigcore {

// True for properties that an overlay can carry: an absolute node path, a name, a known type, a
// value of whole cells where the type says so.
bool is_overlay_property(const DtbOverlayProp &prop);

// Builds an overlay with one fragment for each of `count` properties, for which
// is_overlay_property() holds, in `blob`. A text gets its NUL; cells become big-endian, as
// everywhere in a device tree. The blob's size, or -1 with errno: ELIBACC when libfdt is not
// installed, ENOSPC when it does not fit.
int build_overlay(const DtbOverlayProp *props, int count, void *blob, std::size_t size);

}  // namespace rigcore

#endif
