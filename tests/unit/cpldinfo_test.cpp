// cpldinfo burn: what a run leaves to the process, in which other applets follow.

#include "upgrade/upgrade.h"

#include <malloc.h>

#include <gtest/gtest.h>

#include <cstddef>

namespace {

// Of the C library's allocator; 0 where a sanitizer has its own.
std::size_t used_memory() {
  const struct mallinfo2 used = mallinfo2();
  return used.uordblks + used.hblkhd;
}

int burn_missing_image() {
  char name[] = "cpldinfo";
  char burn[] = "burn";
  char image[] = "/nonexistent/image";
  char *argv[] = {name, burn, image, nullptr};
  return cpldinfo_main(3, argv);
}

TEST(CpldBurn, a_missing_image_takes_no_memory_for_good) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(burn_missing_image(), 0);  // the streams take their buffers
  const std::size_t before = used_memory();
  EXPECT_EQ(burn_missing_image(), 0);
  const std::size_t after = used_memory();
  testing::internal::GetCapturedStdout();
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(after, before);
}

}  // namespace
