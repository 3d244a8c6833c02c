// Arithmetic of memory blocks, the units in which the kernel takes memory in. Addresses and sizes
// have 32 bits and wrap.

#ifndef BENCHRIG_DEBUG_MEMORY_BLOCKS_H
#define BENCHRIG_DEBUG_MEMORY_BLOCKS_H

#include <cstdint>

constexpr bool is_block_aligned(std::uint32_t address, std::uint32_t size, std::uint32_t block) {
  return address % block == 0 && size % block == 0;
}

constexpr std::uint32_t block_index(std::uint32_t address, std::uint32_t block) {
  return address / block;
}

#endif
