// What hdstatus, blktrace and stor say without arguments, and without their driver.

#include "storage/storage.h"

#include <stdlib.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

Outcome run(int (*applet)(int, char **), std::vector<std::string> words) {
  std::vector<char *> argv;
  for (std::string &word : words)
    argv.push_back(word.data());
  const int argc = static_cast<int>(argv.size());
  argv.push_back(nullptr);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const int status = applet(argc, argv.data());
  return {status, testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

TEST(Hdstatus, no_argument_prints_the_usage) {
  const Outcome result = run(hdstatus_applet, {"hdstatus"});
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "\n hdstatus v1.0\nUsage:\n\n    hdstatus  index         ---sata "
            "index(0~n)\n\n\nexample:\n\n    hdstatus  0             ---get sata0 status\n\n\n");
  EXPECT_EQ(result.err.size(), 133u);
}

TEST(Hdstatus, missing_driver) {
  if (access("/dev/korstorage", F_OK) == 0)
    GTEST_SKIP() << "this machine has the driver";
  const Outcome result = run(hdstatus_applet, {"hdstatus", "0"});
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.out, "Open /dev/korstorage failed!\n");
  EXPECT_EQ(result.err, "");
}

TEST(Blktrace, no_argument_prints_the_usage) {
  const Outcome result = run(blktrace_applet, {"blktrace"});
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "\n blktrace v1.0\nUsage:\n\n    blktrace  dev  path      ---dev "
            "name\n\n\nexample:\n\n    blktrace  mmcblk0  /var/log/mmcblk0_blktrace.log  \n\n\n");
  EXPECT_EQ(result.err.size(), 134u);
}

TEST(Blktrace, log_that_does_not_open) {
  const Outcome result = run(blktrace_applet, {"blktrace", "mmcblk0", "/nonexistent/log"});
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.out, "/nonexistent/log open error! \n");
  EXPECT_EQ(result.err, "");
}

TEST(Blktrace, missing_driver_leaves_an_empty_log) {
  if (access("/dev/korstorage", F_OK) == 0)
    GTEST_SKIP() << "this machine has the driver";
  std::string directory = testing::TempDir() + "blktrace-XXXXXX";
  ASSERT_NE(mkdtemp(directory.data()), nullptr);
  const std::string log = directory + "/log";
  const Outcome result = run(blktrace_applet, {"blktrace", "mmcblk0", log});
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.out, "Open /dev/korstorage failed!\n");
  EXPECT_EQ(unlink(log.c_str()), 0);
  rmdir(directory.c_str());
}

}  // namespace
