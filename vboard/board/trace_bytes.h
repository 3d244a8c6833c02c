// The bytes of a trace line: two hexadecimal digits each; a run of four or more equal bytes is one
// piece "ff*1024", set off by a point from what stands beside it: "00*250.07.00*5".

#ifndef VBOARD_BOARD_TRACE_BYTES_H
#define VBOARD_BOARD_TRACE_BYTES_H
#include "vboard/base/text.h"

#include <cstddef>
#include <span>

namespace vboard {

inline constexpr std::size_t kShortestRun = 4;

// The most characters that `count` bytes can take.
constexpr std::size_t trace_bytes_limit(std::size_t count) {
  return 2 * count + 2 * (count / kShortestRun) + 24;
}

void append_bytes(TextBuffer &buffer, std::span<const unsigned char> bytes);

}  // namespace vboard

#endif
