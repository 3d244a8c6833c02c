// Memory blocks in 32 bits.

#include "debug/memory_blocks.h"

#include <gtest/gtest.h>

namespace {

constexpr std::uint32_t kBlock = 0x8000000;

TEST(MemoryBlocks, aligned_are_ranges_of_whole_blocks) {
  EXPECT_TRUE(is_block_aligned(0, 0, kBlock));
  EXPECT_TRUE(is_block_aligned(0x80000000, 0x18000000, kBlock));
  EXPECT_FALSE(is_block_aligned(0x1000, 0x8000000, kBlock));
  EXPECT_FALSE(is_block_aligned(0x8000000, 0x1000, kBlock));
  EXPECT_TRUE(is_block_aligned(0x3, 0x6, 3)) << "a size of any kind";
}

TEST(MemoryBlocks, are_counted_from_address_0) {
  EXPECT_EQ(block_index(0, kBlock), 0u);
  EXPECT_EQ(block_index(0x8000000, kBlock), 1u);
  EXPECT_EQ(block_index(0xFFFFFFFF, kBlock), 31u);
}

}  // namespace
