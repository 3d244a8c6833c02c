// malloc: allocates and touches memory, and holds it until it is killed.

#include "debug/debug_tools.h"

#include "common/numbers.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace {

constexpr char kUsage[] =
    "\nUsage: malloc [size] [count]\n"
    "\n size      size by per malloc\n"
    " count     malloc count\n"
    "\nexample:\n"
    "  malloc 0x100000 100\n\n";

// Blocks that are not to be had are skipped; none is freed.
void take_memory(std::uint32_t size, std::uint32_t count) {
  for (std::uint32_t i = 0; i < count; ++i) {
    void *block = malloc(size);
    if (block == nullptr)
      continue;
    memset(block, static_cast<int>(i & 0xFF), size);
    asm volatile("" : : "r"(block) : "memory");  // else both calls are optimised away
  }
}

}  // namespace

int malloc_main(int argc, char **argv) {
  if (argc != 3) {
    fwrite(kUsage, 1, sizeof kUsage - 1, stderr);
    return -1;
  }
  const std::uint32_t size = parse_u32(argv[1], 0);
  const std::uint32_t count = parse_u32(argv[2], 0);
  if (size == 0 || count == 0) {
    printf("malloc size[0x%x], count[%u] fail.\n", size, count);
    return -1;
  }
  printf("mallc size[0x%x], count[%u] =>\n", size, count);  // sic, here and below
  take_memory(size, count);
  printf("mallc success[0x%x]\n", count * size);  // 32 bits, which may wrap
  for (;;)
    sleep(5);
}
