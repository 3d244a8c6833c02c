// Small kernel attributes, read and written as a whole.

#include "platform/attribute.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace rigcore {

namespace {

// For the path of a failure: what close() says must not hide why we got here.
int close_failed(int fd) {
  const int reason = errno;
  close(fd);
  errno = reason;
  return -1;
}

}  // namespace

ssize_t read_whole(int fd, void *buffer, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = read(fd, static_cast<char *>(buffer) + done, size - done);
    if (count < 0 && errno == EINTR)
      continue;
    if (count < 0)
      return -1;
    if (count == 0)
      break;
    done += static_cast<std::size_t>(count);
  }
  return static_cast<ssize_t>(done);
}

bool write_whole(int fd, const void *buffer, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = write(fd, static_cast<const char *>(buffer) + done, size - done);
    if (count < 0 && errno == EINTR)
      continue;
    if (count < 0)
      return false;
    if (count == 0) {
      errno = EIO;
      return false;
    }
    done += static_cast<std::size_t>(count);
  }
  return true;
}

int close_checked(int fd) {
  // Linux has closed the descriptor even when it answers EINTR.
  return close(fd) == 0 || errno == EINTR ? 0 : -1;
}

ssize_t attribute_read(const char *path, char *text, std::size_t size) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return -1;
  ssize_t length = read_whole(fd, text, size - 1);
  if (length < 0)
    return close_failed(fd);
  close(fd);
  while (length > 0 && strchr(" \t\r\n", text[length - 1]) != nullptr)
    --length;  // strchr() finds the NUL that ends a device-tree text too
  text[length] = '\0';
  return length;
}

int attribute_read_number(const char *path, long *number) {
  char text[32];
  if (attribute_read(path, text, sizeof text) < 0)
    return -1;
  char *end = text;
  errno = 0;
  const long value = strtol(text, &end, 10);
  if (end == text || *end != '\0' || errno != 0) {
    errno = EBADMSG;
    return -1;
  }
  *number = value;
  return 0;
}

int attribute_write(const char *path, const char *value) {
  // O_TRUNC means nothing to sysfs; it lets an ordinary file stand in for an attribute.
  const int fd = open(path, O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (fd < 0)
    return -1;
  const std::size_t size = strlen(value);
  ssize_t count;
  do {
    count = write(fd, value, size);
  } while (count < 0 && errno == EINTR);
  if (count >= 0 && static_cast<std::size_t>(count) != size) {
    count = -1;
    errno = EIO;
  }
  if (count < 0)
    return close_failed(fd);
  return close_checked(fd);
}

}  // namespace rigcore
