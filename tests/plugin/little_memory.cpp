// A C library with little memory, put in front of the real one with LD_PRELOAD: blocks from 16 MiB
// on are not to be had. No limit of the process says this, since an emulator takes more than its
// program.

#include <errno.h>
#include <cstddef>

extern "C" void *__libc_malloc(std::size_t size);

extern "C" __attribute__((visibility("default"))) void *malloc(std::size_t size) {
  constexpr std::size_t kMost = std::size_t{16} << 20;
  if (size < kMost)
    return __libc_malloc(size);
  errno = ENOMEM;
  return nullptr;
}
