// How a libc function is wrapped.
//
// The wrappers carry C++ names of their own and libc's names as assembler labels: libc's headers
// declare the same names with redirections for large files, 64-bit time and fortified variants,
// which a definition under the plain name would run into.

#ifndef VBOARD_INTERPOSER_CORE_WRAP_H
#define VBOARD_INTERPOSER_CORE_WRAP_H

#include <dlfcn.h>

#include <atomic>

// WRAP(int, close, int fd) { ... } defines the public symbol "close".
#define WRAP(result, name, ...)                     \
  extern "C" __attribute__((visibility("default"))) \
  result vboard_##name(__VA_ARGS__) __asm__(#name); \
  result vboard_##name(__VA_ARGS__)

// WRAP_ALIAS(open64, open): a second public name of a wrapper of the same file.
#define WRAP_ALIAS(name, target)            \
  extern "C"                                \
      __attribute__((visibility("default"), \
                     alias(#target))) decltype(vboard_##target) vboard_##name __asm__(#name)

// The function behind the wrapper: libc's, or that of a sanitizer which stands in between.
#define REAL(name)                                              \
  (reinterpret_cast<decltype(&vboard_##name)>([]() -> void * {  \
    static std::atomic<void *> found;                           \
    void *real_address = found.load(std::memory_order_relaxed); \
    if (real_address == nullptr) {                              \
      real_address = dlsym(RTLD_NEXT, #name);                   \
      found.store(real_address, std::memory_order_relaxed);     \
    }                                                           \
    return real_address;                                        \
  }()))

// Declares a wrapper of another file, for its REAL().
#define DECLARE_WRAPPED(result, name, ...) \
  extern "C" result vboard_##name(__VA_ARGS__) __asm__(#name)

#endif
