// Binding threads to processors.

#include "platform/thread.h"

#include <errno.h>
#include <sched.h>

#include <gtest/gtest.h>

#include <cstddef>

namespace {

TEST(ThreadCpu, binds_the_calling_thread) {
  cpu_set_t before;
  ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
  int cpu = 0;
  while (!CPU_ISSET(static_cast<std::size_t>(cpu), &before))
    ++cpu;
  EXPECT_EQ(rig_thread_set_cpu(pthread_self(), cpu), 0);
  cpu_set_t after;
  ASSERT_EQ(sched_getaffinity(0, sizeof after, &after), 0);
  EXPECT_EQ(CPU_COUNT(&after), 1);
  EXPECT_TRUE(CPU_ISSET(static_cast<std::size_t>(cpu), &after));
  EXPECT_EQ(sched_setaffinity(0, sizeof before, &before), 0);
}

TEST(ThreadCpu, refuses_a_processor_that_is_not_there) {
  for (const int cpu : {-1, CPU_SETSIZE - 1, CPU_SETSIZE, 1 << 30}) {
    errno = 0;
    EXPECT_EQ(rig_thread_set_cpu(pthread_self(), cpu), -1) << cpu;
    EXPECT_EQ(errno, EINVAL) << cpu;
  }
}

}  // namespace
