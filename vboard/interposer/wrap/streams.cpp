// Wraps fopen fopen64 fdopen freopen freopen64 fileno fileno_unlocked.
//
// libc's streams read, write and close without passing read(), write() and close(). One on a file
// of the board gets its bytes through functions of its own instead (fopencookie).

#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/opening.h"
#include "vboard/interposer/core/paths.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

using namespace vboard;

DECLARE_WRAPPED(ssize_t, read, int, void *, std::size_t);
DECLARE_WRAPPED(ssize_t, write, int, const void *, std::size_t);
DECLARE_WRAPPED(off64_t, lseek64, int, off64_t, int);
DECLARE_WRAPPED(int, close, int);
DECLARE_WRAPPED(FILE *, fopen64, const char *, const char *);
DECLARE_WRAPPED(FILE *, fdopen, int, const char *);

namespace {

// The streams of the board: libc gives a cookie stream no descriptor, fileno() is answered from
// here.
struct Stream {
  std::atomic<FILE *> file;
  int fd;
};

constexpr std::size_t kMostStreams = 64;

Stream streams[kMostStreams];
std::atomic<int> stream_count;

int fd_of(void *cookie) {
  return static_cast<Stream *>(cookie)->fd;
}

ssize_t read_stream(void *cookie, char *buffer, std::size_t size) {
  return vboard_read(fd_of(cookie), buffer, size);
}

// A cookie's write tells of an error by 0; libc sets the stream's error flag then.
ssize_t write_stream(void *cookie, const char *buffer, std::size_t size) {
  const ssize_t written = vboard_write(fd_of(cookie), buffer, size);
  return written < 0 ? 0 : written;
}

int seek_stream(void *cookie, off64_t *position, int whence) {
  const off64_t result = vboard_lseek64(fd_of(cookie), *position, whence);
  if (result < 0)
    return -1;
  *position = result;
  return 0;
}

int close_stream(void *cookie) {
  Stream &stream = *static_cast<Stream *>(cookie);
  const int fd = stream.fd;
  stream.file.store(nullptr, std::memory_order_release);
  stream_count.fetch_sub(1);
  return vboard_close(fd);
}

// A stream on a descriptor of the board; null with errno.
FILE *open_stream(int fd, const char *mode) {
  lock_board();
  Stream *free_stream = nullptr;
  static FILE *const taken = static_cast<FILE *>(static_cast<void *>(streams));
  for (Stream &one : streams) {
    if (one.file.load(std::memory_order_relaxed) != nullptr)
      continue;
    free_stream = &one;
    one.fd = fd;
    one.file.store(taken, std::memory_order_relaxed);
    break;
  }
  unlock_board();
  if (free_stream == nullptr) {
    errno = EMFILE;
    return nullptr;
  }
  const cookie_io_functions_t functions = {read_stream, write_stream, seek_stream, close_stream};
  FILE *file = fopencookie(free_stream, mode, functions);
  free_stream->file.store(file, std::memory_order_release);
  if (file != nullptr)
    stream_count.fetch_add(1);
  return file;
}

// open()'s flags for a mode such as "r+" or "wbe"; -1 for a wrong one.
int flags_of(const char *mode) {
  int flags;
  switch (mode[0]) {
    case 'r':
      flags = O_RDONLY;
      break;
    case 'w':
      flags = O_WRONLY | O_CREAT | O_TRUNC;
      break;
    case 'a':
      flags = O_WRONLY | O_CREAT | O_APPEND;
      break;
    default:
      return -1;
  }
  for (const char *one = mode + 1; *one != '\0' && *one != ','; ++one) {
    if (*one == '+')
      flags = (flags & ~O_ACCMODE) | O_RDWR;
    if (*one == 'x')
      flags |= O_EXCL;
    if (*one == 'e')
      flags |= O_CLOEXEC;
  }
  return flags;
}

// libc's standard streams write to their descriptors past write(). Where one of these is the
// board's, the program gets a stream of the board in its place.
__attribute__((constructor)) void take_standard_streams() {
  if (!on_board())
    return;
  struct {
    int fd;
    FILE **stream;
    const char *mode;
  } const kStandard[] = {{0, &stdin, "r"}, {1, &stdout, "w"}, {2, &stderr, "w"}};
  for (const auto &one : kStandard) {
    FILE *const ours = is_board_descriptor(one.fd) ? open_stream(one.fd, one.mode) : nullptr;
    if (ours == nullptr)
      continue;
    if (one.fd == 2)
      setvbuf(ours, nullptr, _IONBF, 0);
    *one.stream = ours;
  }
}

}  // namespace

WRAP(FILE *, fopen64, const char *path, const char *mode) {
  if (!on_board() || is_plainly_pc(path))
    return path != nullptr && on_board() && is_foreign_device(path) ? (errno = ENOENT, nullptr)
                                                                    : REAL(fopen64)(path, mode);
  Resolved resolved;
  resolve(AT_FDCWD, path, true, resolved);
  if (resolved.place == Place::kPc || resolved.place == Place::kPcByName) {
    const char *name = host_path(resolved, path);
    if (is_foreign_device(name)) {
      errno = ENOENT;
      return nullptr;
    }
    return REAL(fopen64)(name, mode);
  }
  const int flags = flags_of(mode);
  const int fd = flags < 0 ? -EINVAL : open_on_board(resolved, flags, 0666);
  if (fd < 0) {
    errno = -fd;
    return nullptr;
  }
  FILE *file = vboard_fdopen(fd, mode);
  if (file == nullptr) {
    const int error = errno;
    vboard_close(fd);
    errno = error;
  }
  return file;
}

// The layouts of the two differ in nothing on a 32-bit machine either.
WRAP_ALIAS(fopen, fopen64);

WRAP(FILE *, fdopen, int fd, const char *mode) {
  if (on_board() && is_board_descriptor(fd))
    return open_stream(fd, mode);
  return REAL(fdopen)(fd, mode);
}

WRAP(FILE *, freopen64, const char *path, const char *mode, FILE *file) {
  if (!on_board() || path == nullptr)
    return REAL(freopen64)(path, mode, file);
  Resolved resolved;
  resolve(AT_FDCWD, path, true, resolved);
  if (resolved.place == Place::kPc)
    return is_foreign_device(path) ? (fclose(file), errno = ENOENT, nullptr)
                                   : REAL(freopen64)(path, mode, file);
  if (resolved.place == Place::kMissing) {
    fclose(file);
    errno = resolved.error;
    return nullptr;
  }
  // libc cannot turn a stream into another kind: on a device it reads and writes the medium as
  // such.
  const int flags = flags_of(mode);
  if (resolved.place == Place::kFallback && (flags & O_ACCMODE) != O_RDONLY) {
    const int result = copy_up(resolved, (flags & O_TRUNC) == 0);
    if (result < 0) {
      fclose(file);
      errno = -result;
      return nullptr;
    }
    return REAL(freopen64)(resolved.host, mode, file);
  }
  if ((flags & O_ACCMODE) != O_RDONLY) {
    if (const int owned = take_over(resolved); owned < 0) {
      fclose(file);
      errno = -owned;
      return nullptr;
    }
  }
  return REAL(freopen64)(host_path(resolved, path), mode, file);
}
WRAP_ALIAS(freopen, freopen64);

WRAP(int, fileno, FILE *file) {
  if (stream_count.load(std::memory_order_relaxed) > 0) {
    for (const Stream &one : streams) {
      if (one.file.load(std::memory_order_acquire) == file)
        return one.fd;
    }
  }
  return REAL(fileno)(file);
}
WRAP_ALIAS(fileno_unlocked, fileno);
