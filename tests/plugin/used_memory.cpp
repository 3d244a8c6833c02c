// A C library whose memory has all been used before, put in front of the real one with LD_PRELOAD:
// a fresh block of malloc() for a drive's tag block holds what a drive answered earlier, as it does
// in a program that updates one drive after the other.

#include <string.h>

#include <cstddef>

extern "C" void *__libc_malloc(std::size_t size);

extern "C" __attribute__((visibility("default"))) void *malloc(std::size_t size) {
  constexpr std::size_t kTagBlock = 4096;
  constexpr std::size_t kSignature = 720;
  void *const block = __libc_malloc(size);
  if (block != nullptr && size == kTagBlock) {
    memset(block, 0, size);
    memcpy(static_cast<char *>(block) + kSignature, "PLSSD", 5);
  }
  return block;
}
