// A C library with little memory, put in front of the real one with LD_PRELOAD: blocks of malloc()
// from 16 MiB on are not to be had, nor cleared blocks of calloc() from 256 KiB on. No limit of the
// process says this, since an emulator takes more than its program.
//
// NO_BLOCKS_OF=SIZE: the program itself (not its libraries) gets no block of malloc() of that size
// either. NO_BLOCKS_FOR=FILE: it is this library (or program) that gets none.

#include <dlfcn.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <cstddef>

extern "C" void *__libc_malloc(std::size_t size);
extern "C" void *__libc_calloc(std::size_t count, std::size_t size);

namespace {

bool is_short_of_it(const void *code) {
  Dl_info info;
  if (dladdr(code, &info) == 0)
    return false;
  const char *chosen = getenv("NO_BLOCKS_FOR");
  const char *slash = strrchr(info.dli_fname, '/');
  return strcmp(slash != nullptr ? slash + 1 : info.dli_fname,
                chosen != nullptr ? chosen : "benchrig") == 0;
}

bool is_refused(std::size_t size, const void *caller) {
  const char *refused = getenv("NO_BLOCKS_OF");
  return refused != nullptr && strtoul(refused, nullptr, 10) == size && is_short_of_it(caller);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void *malloc(std::size_t size) {
  constexpr std::size_t kMost = std::size_t{16} << 20;
  if (size < kMost && !is_refused(size, __builtin_return_address(0)))
    return __libc_malloc(size);
  errno = ENOMEM;
  return nullptr;
}

extern "C" __attribute__((visibility("default"))) void *calloc(std::size_t nmemb,
                                                               std::size_t size) {
  constexpr std::size_t kMost = std::size_t{256} << 10;
  std::size_t total = 0;
  if (!__builtin_mul_overflow(nmemb, size, &total) && total < kMost)
    return __libc_calloc(nmemb, size);
  errno = ENOMEM;
  return nullptr;
}
