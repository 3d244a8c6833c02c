// The faults of this run, and how often each of them has been met by this process.

#ifndef VBOARD_INTERPOSER_CORE_FAULT_TABLE_H
#define VBOARD_INTERPOSER_CORE_FAULT_TABLE_H
#include "vboard/board/faults.h"

#include <cstdint>
#include <string_view>

namespace vboard {

// Two names stand for one node when the program came by a link.
struct NodeNames {
  std::string_view asked, real;
};

// Changes whenever the faults do.
std::uint32_t fault_generation();

// Whether any fault at all names the node: most have none, and then nothing is searched per call.
bool has_faults(NodeNames names);

// Whether the node is missing now.
bool is_absent(NodeNames names);

// The board time after `now` at which the node goes missing next; kNoTime when it never does.
std::int64_t next_absence(NodeNames names, std::int64_t now);

// Counts the call against every fault that names it; the first one that is due, or null.
const Fault *meet_fault(NodeNames names, const char *call, const char *request = nullptr,
                        std::uint32_t number = 0);

}  // namespace vboard

#endif
