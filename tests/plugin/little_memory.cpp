// A C library with little memory, put in front of the real one with LD_PRELOAD: blocks of malloc()
// from 16 MiB on are not to be had, nor cleared blocks of calloc() from 256 KiB on. No limit of the
// process says this, since an emulator takes more than its program.

#include <errno.h>
#include <cstddef>

extern "C" void *__libc_malloc(std::size_t size);
extern "C" void *__libc_calloc(std::size_t count, std::size_t size);

extern "C" __attribute__((visibility("default"))) void *malloc(std::size_t size) {
  constexpr std::size_t kMost = std::size_t{16} << 20;
  if (size < kMost)
    return __libc_malloc(size);
  errno = ENOMEM;
  return nullptr;
}

extern "C" __attribute__((visibility("default"))) void *calloc(std::size_t count,
                                                               std::size_t size) {
  constexpr std::size_t kMost = std::size_t{256} << 10;
  std::size_t total = 0;
  if (!__builtin_mul_overflow(count, size, &total) && total < kMost)
    return __libc_calloc(count, size);
  errno = ENOMEM;
  return nullptr;
}
