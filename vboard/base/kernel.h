// The kernel's calls for code that lives inside the interposer, where libc's own names are wrapped.
//
// Every function returns the kernel's result (zero or positive) or a negated errno, and leaves
// errno alone. Offsets are 64-bit on every machine.

#ifndef VBOARD_BASE_KERNEL_H
#define VBOARD_BASE_KERNEL_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace vboard {

int sys_open(const char *path, int flags, unsigned int mode = 0);
int sys_openat(int directory, const char *path, int flags, unsigned int mode = 0);
int sys_close(int fd);
ssize_t sys_read(int fd, void *buffer, std::size_t size);
ssize_t sys_write(int fd, const void *buffer, std::size_t size);
ssize_t sys_pread(int fd, void *buffer, std::size_t size, std::int64_t offset);
ssize_t sys_pwrite(int fd, const void *buffer, std::size_t size, std::int64_t offset);
std::int64_t sys_lseek(int fd, std::int64_t offset, int whence);
int sys_ftruncate(int fd, std::int64_t size);
int sys_fchmod(int fd, unsigned int mode);
int sys_flock(int fd, int operation);
// Locks one byte for the open file description: 0, or -EAGAIN while another one has it.
int sys_lock_byte(int fd, std::int64_t offset);
// The flags of open() that the descriptor has now.
int sys_flags(int fd);

// The mapping's address, or null with the negated errno in `error`.
void *sys_mmap(void *address, std::size_t size, int protection, int flags, int fd,
               std::int64_t offset, int &error);
int sys_munmap(void *address, std::size_t size);

// What stat() tells, as far as a board needs it.
struct FileStatus {
  std::uint32_t mode;
  std::uint64_t size;
  std::uint32_t device_major, device_minor;  // of a device node
  std::uint64_t filesystem, inode;           // which file it is
  std::int64_t changed;                      // nanoseconds since 1970
};
int sys_stat(const char *path, FileStatus &out, bool follow = true);
int sys_fstat(int fd, FileStatus &out);
std::int64_t sys_size(int fd);

int sys_access(const char *path, int mode);
ssize_t sys_readlink(const char *path, char *buffer, std::size_t size);
int sys_mkdir(const char *path, unsigned int mode);
int sys_unlink(const char *path);
int sys_rmdir(const char *path);
int sys_rename(const char *from, const char *to);
int sys_link(const char *from, const char *to);
ssize_t sys_getcwd(char *buffer, std::size_t size);
int sys_memfd(const char *name, unsigned int flags);
ssize_t sys_getdents(int fd, void *buffer, std::size_t size);
// Moves a descriptor to the lowest free number from `lowest` on, to be closed by exec() or not. The
// new number; the old one is closed. On failure the descriptor stays where it is and its number is
// returned.
int sys_move_high(int fd, int lowest, bool closed_by_exec = true);

// Copies from and to memory that the program under test named: 0, or -EFAULT.
int read_user(void *out, const void *user, std::size_t size);
int write_user(void *user, const void *in, std::size_t size);
// Whether memory of the program can be read, or also written, without touching it: 0 or -EFAULT.
int check_user(const void *user, std::size_t size, bool writing);

// The PC's clock in nanoseconds (CLOCK_MONOTONIC, CLOCK_REALTIME).
std::int64_t pc_monotonic();
std::int64_t pc_calendar();

}  // namespace vboard

#endif
