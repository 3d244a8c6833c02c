#include "vboard/base/kernel.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/stat.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <initializer_list>

namespace vboard {

namespace {

// syscall() reports through errno, which belongs to the program under test. Only -1 is a failure:
// an address in the upper half of a 32-bit machine's memory is negative as well.
template <typename... Arguments>
long call(long number, Arguments... arguments) {
  const int kept = errno;
  long result = syscall(number, arguments...);
  if (result == -1)
    result = -errno;
  errno = kept;
  return result;
}

// The 64-bit arguments of a 32-bit machine are two registers, the first of an even number.
#if __SIZEOF_POINTER__ == 4
#define OFFSET_WORDS(offset) static_cast<long>(offset), static_cast<long>((offset) >> 32)
constexpr long kFcntl = SYS_fcntl64;
#else
constexpr long kFcntl = SYS_fcntl;
#endif

constexpr unsigned int kStatus = STATX_TYPE | STATX_MODE | STATX_SIZE | STATX_INO | STATX_MTIME;

void fill(const struct statx &from, FileStatus &out) {
  out.mode = from.stx_mode;
  out.size = from.stx_size;
  out.device_major = from.stx_rdev_major;
  out.device_minor = from.stx_rdev_minor;
  out.inode = from.stx_ino;
  out.changed = from.stx_mtime.tv_sec * 1'000'000'000 + from.stx_mtime.tv_nsec;
  out.filesystem = std::uint64_t{from.stx_dev_major} << 32 | from.stx_dev_minor;
}

int status_of(int directory, const char *path, int flags, FileStatus &out) {
  struct statx status;
  const long result = call(SYS_statx, directory, path, flags, kStatus, &status);
  if (result < 0)
    return static_cast<int>(result);
  fill(status, out);
  return 0;
}

std::int64_t clock_now(clockid_t clock) {
  timespec now;
#if __SIZEOF_POINTER__ == 4
  long words[2];
  call(SYS_clock_gettime, clock, words);
  now.tv_sec = words[0];
  now.tv_nsec = words[1];
#else
  call(SYS_clock_gettime, clock, &now);
#endif
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

}  // namespace

int sys_open(const char *path, int flags, unsigned int mode) {
  return sys_openat(AT_FDCWD, path, flags, mode);
}

int sys_openat(int directory, const char *path, int flags, unsigned int mode) {
#if __SIZEOF_POINTER__ == 4
  flags |= 0400000;  // O_LARGEFILE, which the header hides behind 64-bit offsets
#endif
  return static_cast<int>(call(SYS_openat, directory, path, flags, mode));
}

int sys_close(int fd) {
  return static_cast<int>(call(SYS_close, fd));
}

ssize_t sys_read(int fd, void *buffer, std::size_t size) {
  return call(SYS_read, fd, buffer, size);
}

ssize_t sys_write(int fd, const void *buffer, std::size_t size) {
  return call(SYS_write, fd, buffer, size);
}

ssize_t sys_pread(int fd, void *buffer, std::size_t size, std::int64_t offset) {
#if __SIZEOF_POINTER__ == 4
  return call(SYS_pread64, fd, buffer, size, 0, OFFSET_WORDS(offset));
#else
  return call(SYS_pread64, fd, buffer, size, offset);
#endif
}

ssize_t sys_pwrite(int fd, const void *buffer, std::size_t size, std::int64_t offset) {
#if __SIZEOF_POINTER__ == 4
  return call(SYS_pwrite64, fd, buffer, size, 0, OFFSET_WORDS(offset));
#else
  return call(SYS_pwrite64, fd, buffer, size, offset);
#endif
}

std::int64_t sys_lseek(int fd, std::int64_t offset, int whence) {
#if __SIZEOF_POINTER__ == 4
  std::int64_t position = 0;
  long result = call(SYS__llseek, fd, static_cast<long>(offset >> 32), static_cast<long>(offset),
                     &position, whence);
  return result < 0 ? result : position;
#else
  return call(SYS_lseek, fd, offset, whence);
#endif
}

int sys_ftruncate(int fd, std::int64_t size) {
#if __SIZEOF_POINTER__ == 4
  return static_cast<int>(call(SYS_ftruncate64, fd, 0, OFFSET_WORDS(size)));
#else
  return static_cast<int>(call(SYS_ftruncate, fd, size));
#endif
}

int sys_fchmod(int fd, unsigned int mode) {
  return static_cast<int>(call(SYS_fchmod, fd, mode));
}

int sys_flock(int fd, int operation) {
  long result;
  do {
    result = call(SYS_flock, fd, operation);
  } while (result == -EINTR);
  return static_cast<int>(result);
}

int sys_lock_byte(int fd, std::int64_t offset) {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = static_cast<off_t>(offset);
  lock.l_len = 1;
  return static_cast<int>(call(kFcntl, fd, F_OFD_SETLK, &lock));
}

int sys_flags(int fd) {
  return static_cast<int>(call(kFcntl, fd, F_GETFL));
}

void *sys_mmap(void *address, std::size_t size, int protection, int flags, int fd,
               std::int64_t offset, int &error) {
  error = 0;
#if __SIZEOF_POINTER__ == 4
  if (offset & 4095) {
    error = -EINVAL;
    return nullptr;
  }
  long result =
      call(SYS_mmap2, address, size, protection, flags, fd, static_cast<long>(offset >> 12));
#else
  const long result = call(SYS_mmap, address, size, protection, flags, fd, offset);
#endif
  if (result < 0 && result > -4096) {
    error = static_cast<int>(result);
    return nullptr;
  }
  return reinterpret_cast<void *>(result);
}

int sys_munmap(void *address, std::size_t size) {
  return static_cast<int>(call(SYS_munmap, address, size));
}

int sys_stat(const char *path, FileStatus &out, bool follow) {
  return status_of(AT_FDCWD, path, follow ? 0 : AT_SYMLINK_NOFOLLOW, out);
}

int sys_fstat(int fd, FileStatus &out) {
  return status_of(fd, "", AT_EMPTY_PATH, out);
}

std::int64_t sys_size(int fd) {
  FileStatus status;
  const int result = sys_fstat(fd, status);
  return result < 0 ? result : static_cast<std::int64_t>(status.size);
}

int sys_access(const char *path, int mode) {
  return static_cast<int>(call(SYS_faccessat, AT_FDCWD, path, mode));
}

ssize_t sys_readlink(const char *path, char *buffer, std::size_t size) {
  return call(SYS_readlinkat, AT_FDCWD, path, buffer, size);
}

int sys_mkdir(const char *path, unsigned int mode) {
  return static_cast<int>(call(SYS_mkdirat, AT_FDCWD, path, mode));
}

int sys_unlink(const char *path) {
  return static_cast<int>(call(SYS_unlinkat, AT_FDCWD, path, 0));
}

int sys_rmdir(const char *path) {
  return static_cast<int>(call(SYS_unlinkat, AT_FDCWD, path, AT_REMOVEDIR));
}

int sys_rename(const char *from, const char *to) {
  return static_cast<int>(call(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

int sys_link(const char *from, const char *to) {
  return static_cast<int>(call(SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0));
}

ssize_t sys_getcwd(char *buffer, std::size_t size) {
  return call(SYS_getcwd, buffer, size);
}

int sys_memfd(const char *name, unsigned int flags) {
  return static_cast<int>(call(SYS_memfd_create, name, flags));
}

ssize_t sys_getdents(int fd, void *buffer, std::size_t size) {
  return call(SYS_getdents64, fd, buffer, size);
}

int sys_move_high(int fd, int lowest, bool closed_by_exec) {
  // A small limit of open files leaves no room up there; half of what is usual must do then.
  for (int from = lowest; from >= 16; from /= 2) {
    const long moved = call(kFcntl, fd, closed_by_exec ? F_DUPFD_CLOEXEC : F_DUPFD, from);
    if (moved >= 0) {
      sys_close(fd);
      return static_cast<int>(moved);
    }
  }
  return fd;
}

namespace {

// Copies by way of a pipe, for emulators that know no better way: the kernel's side of a transfer
// fails where a plain access would end the process. The sizes of records fit in a pipe.
int copy_through_pipe(void *to, const void *from, std::size_t size) {
  int ends[2];
  long result = call(SYS_pipe2, ends, O_CLOEXEC);
  if (result < 0)
    return static_cast<int>(result);
  for (std::size_t done = 0; done < size && result >= 0;) {
    const std::size_t piece = size - done < 4096 ? size - done : 4096;
    result = sys_write(ends[1], static_cast<const char *>(from) + done, piece);
    if (result > 0)
      result = sys_read(ends[0], static_cast<char *>(to) + done, static_cast<std::size_t>(result));
    done += result > 0 ? static_cast<std::size_t>(result) : 0;
  }
  sys_close(ends[0]);
  sys_close(ends[1]);
  return result < 0 ? -EFAULT : 0;
}

// process_vm_readv() and its twin on the own process fail where a plain access would end it.
int copy_user(long number, void *to, const void *from, void *own, const void *user,
              std::size_t size) {
  if (size == 0)
    return 0;
  iovec local = {own, size};
  iovec remote = {const_cast<void *>(user), size};
  const long result = call(number, static_cast<long>(getpid()), &local, 1L, &remote, 1L, 0L);
  if (result == static_cast<long>(size))
    return 0;
  return result == -ENOSYS || result == -EPERM ? copy_through_pipe(to, from, size) : -EFAULT;
}

#if defined(MADV_POPULATE_READ) && defined(MADV_POPULATE_WRITE)
// Emulators take every advice, even for the page at address zero that nobody has.
bool is_advice_checked() {
  static std::atomic<int> known;
  int answer = known.load(std::memory_order_relaxed);
  if (answer == 0) {
    answer = call(SYS_madvise, 0L, 4096L, MADV_POPULATE_READ) == 0 ? 1 : 2;
    known.store(answer, std::memory_order_relaxed);
  }
  return answer == 2;
}
#endif

}  // namespace

int read_user(void *out, const void *user, std::size_t size) {
  return copy_user(SYS_process_vm_readv, out, user, out, user, size);
}

int write_user(void *user, const void *in, std::size_t size) {
  return copy_user(SYS_process_vm_writev, user, in, const_cast<void *>(in), user, size);
}

int check_user(const void *user, std::size_t size, bool writing) {
  if (size == 0)
    return 0;
  const std::uintptr_t first = reinterpret_cast<std::uintptr_t>(user);
  const std::uintptr_t last = first + size - 1;
  if (last < first)
    return -EFAULT;
#if defined(MADV_POPULATE_READ) && defined(MADV_POPULATE_WRITE)
  // One cheap call that settles nearly every case. Its errors do not tell enough (an older kernel
  // does not know it, mappings of devices refuse it).
  const std::uintptr_t page = first & ~std::uintptr_t{4095};
  const int advice = writing ? MADV_POPULATE_WRITE : MADV_POPULATE_READ;
  if (is_advice_checked() && call(SYS_madvise, page, last + 1 - page, advice) == 0)
    return 0;
#endif
  // The pages between the ends are taken for granted: a program's buffer is one mapping.
  for (const std::uintptr_t end : {first, last}) {
    unsigned char byte;
    void *place = reinterpret_cast<void *>(end);
    int result = read_user(&byte, place, 1);
    if (result == 0 && writing)
      result = write_user(place, &byte, 1);
    if (result < 0)
      return result;
  }
  return 0;
}

std::int64_t pc_monotonic() {
  return clock_now(CLOCK_MONOTONIC);
}

std::int64_t pc_calendar() {
  return clock_now(CLOCK_REALTIME);
}

}  // namespace vboard
