// Descriptors of the board: which numbers of the program stand for a node, an attribute or a
// directory of the board, and the open file behind each.

#ifndef VBOARD_INTERPOSER_CORE_DESCRIPTORS_H
#define VBOARD_INTERPOSER_CORE_DESCRIPTORS_H
#include "vboard/base/text.h"
#include "vboard/board/run_page.h"
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
  bool faulty;    // some fault names it, as of `faults_seen`
  bool has_left;  // this process has given it up: close() has run, or is somebody else's
  // What other processes see of it; null of files, directories and the kernel's sockets, which are
  // the kernel's own descriptors.
  SharedFile *shared;
  int claim;         // the descriptor that keeps others away from the device, 0 without
  bool is_borrowed;  // an attribute whose medium is the template's file, as far as is known
  int descriptors;
  int users;  // descriptors and calls under way
  char asked[256];
  char real[256];
  std::uint32_t faults_seen;
  // When the node file was looked at last, and as what it stood there.
  std::uint32_t seen_changes;
  std::int64_t looked_at;
  std::uint64_t inode;
  std::int64_t changed;
  // What a directory's listing goes on with after the board's own names: those of the template and
  // of the PC.
  DIR *layers[kMostLayers];
  std::size_t layer_count;
};

// The description behind a descriptor, held until release(); null when it is not the board's.
Description *acquire(int fd);
void release(Description *description);
// The same without holding; for tests of the kind only.
bool is_board_descriptor(int fd);

// A zeroed description with the names filled, shared with processes to come where its kind is; null
// without memory.
Description *new_description(Kind kind, std::string_view asked, std::string_view real, int flags);
// Closes what the host has of it. The model's close() is not called.
void free_description(Description *description);
// Puts it behind a kernel's descriptor. -EMFILE beyond the table; the caller closes then.
int attach(Description *description, int fd);
// A further descriptor for the same open file (dup).
void attach_duplicate(int from, int to);
// Takes the descriptor out of the table without closing it; the last one runs the model's close().
void detach(int fd);
// Changes the flags of open() in every process.
void set_flags(Description &description, int flags);

inline NodeNames names_of(const Description &description) {
  return {description.asked, description.real};
}

// Whether some fault names the descriptor's node.
bool is_faulty(Description &description);
// Whether the node behind an open descriptor is missing now.
bool is_gone(Description &description);
// Counts the call; the fault that is due, or null.
const Fault *meet_fault(Description &description, const char *call, const char *request = nullptr,
                        std::uint32_t number = 0);

// Whether the board, and not the kernel's descriptor, says which of these poll() events hold. An
// attribute is always ready for reading and writing: only whether it has changed is the board's to
// say.
inline bool is_watched(const Description &description, int events) {
  return description.kind == Kind::kModel ||
         (description.kind == Kind::kAttribute && (events & (POLLPRI | POLLERR)) != 0);
}
// Which of poll()'s events hold for the descriptor, and when that may change by itself.
Readiness readiness_of(Description &description, short events, BoardTime now);

// Finds the descriptors of the board that this program was started with. For programs that begin
// after another one has opened something. `open` is what the program before this one in the same
// process had open (kOpenVariable): what exec() has closed of it is closed here.
void take_inherited_descriptors(std::string_view open);
// Around fork(): the child has them all as well.
void share_with_child();
// Runs the close() of every model that no other process has open, as the kernel does when a process
// ends.
void close_all();
// What the program that takes this one's place needs to know, for kOpenVariable. False when it does
// not fit.
bool list_open(TextBuffer &out);

}  // namespace vboard

#endif
