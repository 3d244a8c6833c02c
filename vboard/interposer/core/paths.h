// Where a path of the program leads: to the PC, or into the board directory.

#ifndef VBOARD_INTERPOSER_CORE_PATHS_H
#define VBOARD_INTERPOSER_CORE_PATHS_H
#include "vboard/base/kernel.h"
#include "vboard/board/board_paths.h"

#include <cstdint>
#include <string_view>

namespace vboard {

enum class Place : std::uint8_t {
  kPc,        // the path as the program gave it
  kPcByName,  // the PC's too, but by its absolute name: the program named it from inside the board
  kNode,      // a device node
  kAttribute,
  kFile,  // another file of the board directory (a link too, when it was not followed)
  kDirectory,
  kMissing,   // `error` tells why
  kFallback,  // the board lacks it: read from the PC, written to the board
};

struct Resolved {
  Place place;
  int error;              // of kMissing: an errno
  bool traced;            // calls on it are calls on the board
  bool from_template;     // `host` is the template's: take_over() comes before any change
  FileStatus status;      // of what exists on the board
  char asked[kPathSize];  // the absolute name
  char real[kPathSize];   // the same with the board's links resolved
  char host[kPathSize];   // its file below the board directory, or in the template
};

// `follow` resolves a link in the last place. `directory` is openat()'s.
void resolve(int directory, const char *path, bool follow, Resolved &out);
// Nearly every path is the PC's: true when this one certainly is, without any call to the kernel.
bool is_plainly_pc(const char *path);

// The file to use for reading: the board's, the PC's by name, or `path` itself.
const char *host_path(const Resolved &resolved, const char *path);

// Names the board's own file in `host`, whether it is there or not.
void name_own(Resolved &resolved);
// Makes the board's own copy of what a fresh board has from its template. 0 or a negated errno.
int take_over(Resolved &resolved);
// Makes the board's own copy of a file, with the directories that the PC has above it, before it is
// written: 0 or a negated errno. A file that the PC lacks too is only prepared for.
int copy_up(Resolved &resolved, bool with_content);

// Follows chdir(): the board's directory that is the working directory, empty for one of the PC.
void set_board_directory(std::string_view name);
// The same for a program that is started in one.
void take_working_directory();
std::string_view working_directory(char *buffer, std::size_t size);
bool is_in_board();

}  // namespace vboard

#endif
