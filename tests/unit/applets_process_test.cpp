// The dispatcher: which row it runs, with what, and the listing when there is nothing to run.

#include "platform/applets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

struct Call {
  std::string row;
  std::vector<std::string> arguments;
  bool ends_with_null;
};

std::vector<Call> calls;

int record(const char *row, int argc, char **argv) {
  Call call{row, {}, argv[argc] == nullptr};
  for (int i = 0; i < argc; ++i)
    call.arguments.emplace_back(argv[i]);
  calls.push_back(call);
  return static_cast<int>(call.arguments.size()) - 10;
}

int first_main(int argc, char **argv) {
  return record("first", argc, argv);
}

int second_main(int argc, char **argv) {
  return record("second", argc, argv);
}

AppletEntry inner_table[] = {
    {"version", second_main, 0, "inner version"},
    {},
};

int group_main(int argc, char **argv) {
  return rig_applets_process("group", inner_table, argc, argv);
}

AppletEntry table[] = {
    {"version", first_main, 0, "outer version"},
    {"group", group_main, 1, "group tools"},
    {"all", nullptr, 0, "ALL test"},
    {"plain", second_main, 0, nullptr},
    {"version", second_main, 0, "never reached"},
    {},
};

struct Outcome {
  int status;
  std::string output;
};

Outcome run(std::vector<std::string> words) {
  calls.clear();
  std::vector<char *> argv;
  for (std::string &word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);
  testing::internal::CaptureStdout();
  const int status =
      rig_applets_process("level", table, static_cast<int>(words.size()), argv.data());
  return {status, testing::internal::GetCapturedStdout()};
}

// The level's name, then every name and description, in table order.
void expect_listing(const Outcome &result) {
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(calls.empty());
  std::size_t from = 0;
  for (const char *text : {"level", "version", "outer version", "group", "group tools", "all",
                           "ALL test", "plain", "version", "never reached"}) {
    const std::size_t found = result.output.find(text, from);
    ASSERT_NE(found, std::string::npos) << text << " in\n" << result.output;
    from = found + std::string(text).size();
  }
  EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 6);
  EXPECT_EQ(result.output.back(), '\n');
}

TEST(AppletsProcess, shifts_the_words_by_one_and_returns_the_status) {
  const Outcome result = run({"level", "plain", "input", "8"});
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].row, "second");
  EXPECT_EQ(calls[0].arguments, (std::vector<std::string>{"plain", "input", "8"}));
  EXPECT_TRUE(calls[0].ends_with_null);
  EXPECT_EQ(result.status, -7);
  EXPECT_EQ(result.output, "");
}

TEST(AppletsProcess, first_of_two_equal_names_is_run) {
  run({"level", "version"});
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].row, "first");
}

TEST(AppletsProcess, group_searches_its_own_table) {
  const Outcome result = run({"level", "group", "version", "-h"});
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].row, "second");
  EXPECT_EQ(calls[0].arguments, (std::vector<std::string>{"version", "-h"}));
  EXPECT_EQ(result.status, -8);
}

TEST(AppletsProcess, lists_the_rows_without_an_applet_word) {
  expect_listing(run({"level"}));
}

TEST(AppletsProcess, lists_the_rows_for_a_word_that_no_row_has) {
  expect_listing(run({"level", "nothing"}));
  expect_listing(run({"level", "plai"}));
  expect_listing(run({"level", "plainer"}));
  expect_listing(run({"level", "PLAIN"}));
  expect_listing(run({"level", ""}));
}

TEST(AppletsProcess, lists_the_rows_for_a_row_without_a_handler) {
  expect_listing(run({"level", "all", "now"}));
}

TEST(AppletsProcess, listing_marks_the_rows_that_open_a_group) {
  const std::string output = run({"level"}).output;
  const std::size_t group = output.find("group");
  const std::size_t line_end = output.find('\n', group);
  EXPECT_NE(output.substr(group, line_end - group).find('>'), std::string::npos);
  EXPECT_EQ(std::count(output.begin(), output.end(), '>'), 1);
}

}  // namespace
