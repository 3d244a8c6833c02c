// Opening on the board, in terms of the kernel: results are zero or positive, or a negated errno.
// The wrappers turn them into libc's.

#ifndef VBOARD_INTERPOSER_CORE_OPENING_H
#define VBOARD_INTERPOSER_CORE_OPENING_H
#include "vboard/board/run_page.h"
#include "vboard/interposer/core/paths.h"
#include "vboard/interposer/core/report.h"

#include <cstdint>

namespace vboard {

// Opens what a description that was inherited needs in this process: its node, its model, its
// medium. Zero, or a negated errno.
int reopen(struct Description &description);
// A socket of a family that the board has.
// An attribute opened for reading may be the template's file until somebody writes to it: from then
// on it is the board's own.
void follow_attribute(struct Description &description);
int open_socket(const SocketKind &kind);
// A descriptor of the board's own file, for locks; a negated errno when it cannot be written.
int open_board_mark();

// Opens what resolve() found, faults and trace included. kPc is left to the caller.
int open_on_board(Resolved &resolved, int flags, unsigned int mode);

// Whether a path of the PC is a device that the board must not reach.
bool is_foreign_device(const char *path);

// Tells the person, once, when a call failed because there is no room for the board's files: a
// board has no such error of its own.
void notice_full(std::int64_t result);

// Ends a call by name: its trace line, its cost, libc's form of the result.
int end_by_name(const char *call, const Resolved &resolved, int result);

// "RDWR|CREAT" and the like, for traces.
void append_flags(struct TextBuffer &text, int flags);

}  // namespace vboard

#endif
