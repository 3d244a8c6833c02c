// Descriptors of the board: which numbers of the program stand for a node, an attribute or a
// directory of the board, and the open file behind each.

#ifndef VBOARD_INTERPOSER_CORE_DESCRIPTORS_H
#define VBOARD_INTERPOSER_CORE_DESCRIPTORS_H

#include "vboard/interposer/core/fault_table.h"
#include "vboard/interposer/models/model.h"

#include <dirent.h>

#include <cstddef>
#include <cstdint>

namespace vboard {

inline constexpr int kMostDescriptors = 4096;

inline constexpr std::size_t kMostLayers = 2;

enum class Kind : std::uint8_t {
  kModel,
  kAttribute,  // a file under /sys
  kFile,       // another file of the board directory
  kDirectory,
  kKernelSocket,  // a socket of the PC's kernel whose interface requests are the board's
};

struct Description {
  OpenFile file;
  Kind kind;
  bool faulty;      // some fault names it
  bool has_medium;  // the descriptor is a medium, not a stand-in
  bool inherited;   // open since before a fork: the parent's close is the one that counts
  int descriptors;
  int users;  // descriptors and calls under way
  char asked[256];
  char real[256];
  // What a directory's listing goes on with after the board's own names: those of the template and
  // of the PC. `layer` is the one that is being read, 0 for the board's own.
  DIR *layers[kMostLayers];
  std::size_t layer_count, layer;
};

// The description behind a descriptor, held until release(); null when it is not the board's.
Description *acquire(int fd);
void release(Description *description);
// The same without holding; for tests of the kind only.
bool is_board_descriptor(int fd);

// A zeroed description with the names filled; null without memory.
Description *new_description(Kind kind, std::string_view asked, std::string_view real, int flags);
void free_description(Description *description);
// Puts it behind a kernel's descriptor. -EMFILE beyond the table; the caller closes then.
int attach(Description *description, int fd);
// A further descriptor for the same open file (dup).
void attach_duplicate(int from, int to);
// Takes the descriptor out of the table without closing it; the last one runs the model's close().
void detach(int fd);

inline NodeNames names_of(const Description &description) {
  return {description.asked, description.real};
}

// Whether the node behind an open descriptor is missing now.
bool is_gone(const Description &description);
// Counts the call; the fault that is due, or null.
const Fault *meet_fault(const Description &description, const char *call,
                        const char *request = nullptr, std::uint32_t number = 0);

// When the model's descriptor is ready for reading; not later than `now` is now.
BoardTime ready_at(Description &description, BoardTime now);

// Runs every model's close(), as the kernel does when a process ends.
void close_all();
// In the child of a fork.
void mark_inherited();

// Opens what stands in for a device without a medium, at the lowest free number. A program that
// gets it by exec finds it empty.
int stand_in(int flags);

}  // namespace vboard

#endif
