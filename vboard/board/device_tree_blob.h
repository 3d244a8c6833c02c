// Flattened device trees, as far as a board takes them: overlays with target paths.

#ifndef VBOARD_BOARD_DEVICE_TREE_BLOB_H
#define VBOARD_BOARD_DEVICE_TREE_BLOB_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vboard {

struct OverlayProperty {
  std::string_view node;  // "/chosen"
  std::string_view name;
  std::string_view value;
};

// The size that the blob's header tells, 0 while `blob` is too short for one or is none.
std::size_t blob_size(std::span<const unsigned char> blob);

// Hands every property below the fragments' __overlay__ nodes to `take`, in order, until that
// returns a negated errno. 0, that errno, or -EINVAL for a blob that is damaged or that has a
// fragment without target-path.
int read_overlay(std::span<const unsigned char> blob,
                 int (*take)(const OverlayProperty &property, void *context), void *context);

}  // namespace vboard

#endif
