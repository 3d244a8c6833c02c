// Node files: the readable state of one device of a board directory.
//
//   # comment
//   model = watchdog
//   timeout_s = 60
//
// A node file is small (64 settings at most) and is held whole in a fixed record: reading one
// allocates nothing, so the interposer may do it inside any call of the program under test.

#ifndef VBOARD_BOARD_NODE_H
#define VBOARD_BOARD_NODE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vboard {

struct Node {
  char text[4096];  // the file as it stands, comments included
  std::size_t length;
};

// Reads the file under a shared lock. 0, or a negated errno (E2BIG for a file over 4095 bytes);
// `out` is untouched on failure.
int load_node(const char *file, Node &out);

// The value of a setting, without surrounding blanks; empty when it is missing.
std::string_view node_text(const Node &node, std::string_view key);
// The same as a number (decimal, 0x hexadecimal, sign allowed); `fallback` when missing or no
// number.
std::int64_t node_number(const Node &node, std::string_view key, std::int64_t fallback);

// Replaces or appends one setting in memory; comments and order stay. False when it does not fit.
bool set_node_text(Node &node, std::string_view key, std::string_view value);
bool set_node_number(Node &node, std::string_view key, std::int64_t value);

// Changes settings of the file under its exclusive lock: reads it, calls `change`, and replaces it
// when that changed anything. 0, or a negated errno; the file stays as it was on failure.
int update_node(const char *file, void (*change)(Node &node, void *context), void *context);

}  // namespace vboard

#endif
