// The system calls that the virtual board makes past the wrapped C library.

#include "vboard/base/kernel.h"

#include <errno.h>
#include <sys/mman.h>

#include <gtest/gtest.h>

#include <cstdint>

namespace {

constexpr std::size_t kPage = 4096;

TEST(Kernel, a_mapping_may_lie_in_the_upper_half_of_the_memory) {
  if (sizeof(void *) != 4)
    GTEST_SKIP() << "a 64-bit machine has no negative addresses";
  // Below the stack, above what a signed number of 32 bits holds. An address is only a wish.
  void *const wish = reinterpret_cast<void *>(std::uintptr_t{0x9000'0000});
  int error = 1;
  errno = 0;
  void *const memory =
      vboard::sys_mmap(wish, kPage, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0, error);
  ASSERT_EQ(memory, wish);
  EXPECT_EQ(error, 0);
  EXPECT_EQ(errno, 0);
  *static_cast<volatile char *>(memory) = 1;
  EXPECT_EQ(vboard::sys_munmap(memory, kPage), 0);
}

TEST(Kernel, a_failure_is_the_negative_errno_and_leaves_errno_alone) {
  errno = 7;
  int error = 0;
  EXPECT_EQ(vboard::sys_mmap(nullptr, 0, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0, error),
            nullptr);
  EXPECT_EQ(error, -EINVAL);
  EXPECT_EQ(vboard::sys_close(-1), -EBADF);
  EXPECT_EQ(vboard::sys_lseek(-1, 0, 0), -EBADF);
  EXPECT_EQ(errno, 7);
}

}  // namespace
