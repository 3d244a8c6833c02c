// The board check on tables of its own: what each test is given, and what is reported.

#include "app/autotest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct Call {
  int argc;
  std::vector<std::string> arguments;
};

std::vector<Call> calls;

void record(int argc, char **argv) {
  Call call = {argc, {}};
  for (int i = 0; argv[i] != nullptr; ++i)
    call.arguments.push_back(argv[i]);
  calls.push_back(call);
}

int pass(int argc, char **argv) {
  record(argc, argv);
  return 0;
}

int fail(int argc, char **argv) {
  record(argc, argv);
  return -1;
}

int fail_with_positive_status(int argc, char **argv) {
  record(argc, argv);
  return 1024;
}

std::string run(const AppletEntry *tests, int argc, char **argv) {
  calls.clear();
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  run_tests(tests, argc, argv);
  fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  return testing::internal::GetCapturedStderr();
}

TEST(BoardCheck, reports_every_status_but_0_as_error) {
  const AppletEntry tests[] = {
      {"good", pass, 0, ""},
      {"bad", fail, 0, ""},
      {"odd", fail_with_positive_status, 0, ""},
      {"none", nullptr, 0, ""},
      {nullptr, nullptr, 0, nullptr},
  };
  char name[] = "autotest";
  char *argv[] = {name, nullptr};
  EXPECT_EQ(run(tests, 1, argv),
            "\n\n[AUTOTEST] good is operating...\n"
            "\n\n[AUTOTEST] bad is operating...\n"
            "\n\n[AUTOTEST] odd is operating...\n"
            "\n\n[AUTOTEST] none is operating...\n"
            "\n\n\nRESULT:\n"
            "[RESULT] good test is OK!\n"
            "[RESULT] bad test is ERROR!\n"
            "[RESULT] odd test is ERROR!\n"
            "[RESULT] none test is OK!\n");
}

TEST(BoardCheck, gives_each_test_its_own_name_and_the_runners_arguments) {
  const AppletEntry tests[] = {
      {"first", pass, 0, ""},
      {"second", fail, 0, ""},
      {nullptr, nullptr, 0, nullptr},
  };
  char name[] = "autotest";
  char word[] = "autotest";
  char extra[] = "8";
  char *argv[] = {name, word, extra, nullptr};
  run(tests, 3, argv);

  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0].argc, 3);
  EXPECT_EQ(calls[0].arguments, (std::vector<std::string>{"first", "autotest", "8"}));
  EXPECT_EQ(calls[1].argc, 3);
  EXPECT_EQ(calls[1].arguments, (std::vector<std::string>{"second", "autotest", "8"}));
  EXPECT_STREQ(argv[0], "second") << "element 0 keeps the last test's name";
  EXPECT_STREQ(name, "autotest") << "the element is replaced, the word is not written to";
}

TEST(BoardCheck, stops_at_the_tests_that_it_can_keep_results_of) {
  std::vector<AppletEntry> tests(kMaxTests + 2, AppletEntry{"same", pass, 0, ""});
  tests.push_back(AppletEntry{nullptr, nullptr, 0, nullptr});
  char name[] = "autotest";
  char *argv[] = {name, nullptr};
  const std::string report = run(tests.data(), 1, argv);
  EXPECT_EQ(calls.size(), 12u);

  std::size_t verdicts = 0;
  for (std::size_t at = report.find("[RESULT]"); at != std::string::npos;
       at = report.find("[RESULT]", at + 1))
    ++verdicts;
  EXPECT_EQ(verdicts, 12u);
}

}  // namespace
