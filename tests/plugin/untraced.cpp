// Tells on standard error of calls that the virtual board neither needs to change nor traces: the
// end of a mapping, what is brought to the disk, whose path's limits are asked for, and the close
// of a number that is no descriptor. Put in front of the C library with LD_PRELOAD.
// FSYNC_ERRNO=NUMBER makes fsync() fail with that reason, READDIR_ERRNO=NUMBER
// each listing of a directory at its end.

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

namespace {

// One write, which a story keeps in its place.
template <typename... Values>
void tell(const char *format, Values... values) {
  char line[256];
  const int length = snprintf(line, sizeof line, format, values...);
  const auto size = std::min(static_cast<std::size_t>(length), sizeof line - 1);
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line, size);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int munmap(void *addr, std::size_t len) noexcept {
  const int result = static_cast<int>(syscall(SYS_munmap, addr, len));
  tell("munmap %zu = %d\n", len, result);
  return result;
}

extern "C" __attribute__((visibility("default"))) int fsync(int fd) {
  int result = static_cast<int>(syscall(SYS_fsync, fd));
  if (const char *number = getenv("FSYNC_ERRNO")) {
    errno = atoi(number);
    result = -1;
  }
  const int reason = errno;
  tell("fsync %d = %d\n", fd, result);
  errno = reason;
  return result;
}

extern "C" __attribute__((visibility("default"))) int close(int fd) {
  const int result = static_cast<int>(syscall(SYS_close, fd));
  if (result != 0 && errno == EBADF) {
    tell("close %d = EBADF\n", fd);
    errno = EBADF;
  }
  return result;
}

extern "C" __attribute__((visibility("default"))) dirent64 *readdir64(DIR *dirp) {
  const auto real = reinterpret_cast<decltype(&readdir64)>(dlsym(RTLD_NEXT, "readdir64"));
  dirent64 *entry = real(dirp);
  const char *number = getenv("READDIR_ERRNO");
  if (entry == nullptr && number != nullptr)
    errno = atoi(number);
  return entry;
}

extern "C" __attribute__((visibility("default"))) long pathconf(const char *path,
                                                                int name) noexcept {
  tell("pathconf %s\n", path);
  const auto real = reinterpret_cast<decltype(&pathconf)>(dlsym(RTLD_NEXT, "pathconf"));
  return real(path, name);
}
