// One small attribute of the kernel: a sysfs, procfs or device-tree file that is read or written as
// a whole. All of these set errno for failure and leave no descriptor behind. Those with a number
// as their result return -1 then.

#ifndef PLATFORM_ATTRIBUTE_H
#define PLATFORM_ATTRIBUTE_H

#include <sys/types.h>

#include <cstddef>

namespace rigcore {

// Reads `size` bytes at most from a descriptor, as many as there are; the count, or -1.
ssize_t read_whole(int fd, void *buffer, std::size_t size);

// Writes `size` bytes; false for failure. A write that stops before the end is EIO.
bool write_whole(int fd, const void *buffer, std::size_t size);

// close() whose failure counts: some file systems tell only here that a write was lost.
int close_checked(int fd);

// Stores the file's text in `text`, cut to `size` - 1 characters and terminated, without the line
// end and blanks that follow it. The text's length, or -1.
ssize_t attribute_read(const char *path, char *text, std::size_t size);

// Reads an attribute that is one decimal number. EBADMSG when it is none.
int attribute_read_number(const char *path, long *number);

// Hands `value` to the attribute in a single write: a driver takes each write for a whole value. A
// driver that takes only a part of it is EIO.
int attribute_write(const char *path, const char *value);

}  // namespace rigcore

#endif
