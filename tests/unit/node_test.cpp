#include "vboard/board/node.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace vboard {
namespace {

Node node_of(const std::string &text) {
  Node node;
  memcpy(node.text, text.c_str(), text.size() + 1);
  node.length = text.size();
  return node;
}

std::string text_of(const Node &node) {
  return std::string(node.text, node.length);
}

// A node file in a directory of its own.
class NodeFile : public testing::Test {
 protected:
  void SetUp() override {
    directory = testing::TempDir() + "node_test.XXXXXX";
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    file = directory + "/node";
  }

  void TearDown() override {
    unlink(file.c_str());
    rmdir(directory.c_str());
  }

  void write(const std::string &text) {
    FILE *out = fopen(file.c_str(), "w");
    ASSERT_NE(out, nullptr);
    fwrite(text.data(), 1, text.size(), out);
    fclose(out);
  }

  std::string read() {
    std::string text(8192, '\0');
    FILE *in = fopen(file.c_str(), "r");
    text.resize(fread(text.data(), 1, text.size(), in));
    fclose(in);
    return text;
  }

  std::string directory, file;
};

TEST(NodeSettings, ValuesComeWithoutSurroundingBlanks) {
  const Node node = node_of("model = watchdog\nidentity=  Virtual Watchdog \t\n\tport =x\n");
  EXPECT_EQ(node_text(node, "model"), "watchdog");
  EXPECT_EQ(node_text(node, "identity"), "Virtual Watchdog");
  EXPECT_EQ(node_text(node, "port"), "x");
}

TEST(NodeSettings, MissingSettingsAreEmpty) {
  const Node node = node_of("model = lcd\n");
  EXPECT_EQ(node_text(node, "mode"), "");
  EXPECT_EQ(node_text(node, "models"), "");
  EXPECT_EQ(node_text(node_of(""), "model"), "");
}

TEST(NodeSettings, CommentsAreNoSettings) {
  const Node node = node_of("# model = rtc\n  # model = gyro\nmodel = lcd\n");
  EXPECT_EQ(node_text(node, "model"), "lcd");
}

TEST(NodeSettings, FirstOfTwoEqualKeysCounts) {
  EXPECT_EQ(node_text(node_of("a = 1\na = 2\n"), "a"), "1");
}

TEST(NodeSettings, ValueMayHoldAnEqualsSign) {
  EXPECT_EQ(node_text(node_of("args = console=ttyS0\n"), "args"), "console=ttyS0");
}

TEST(NodeSettings, LastLineNeedsNoEnd) {
  EXPECT_EQ(node_text(node_of("a = 1\nb = 2"), "b"), "2");
}

TEST(NodeSettings, NumbersAreDecimalOrHexadecimalWithSign) {
  const Node node = node_of("a = 42\nb = 0x8180\nc = -7\nd = +3\ne = 0xFFFFFFFFFFFFFFFF\n");
  EXPECT_EQ(node_number(node, "a", 1), 42);
  EXPECT_EQ(node_number(node, "b", 1), 0x8180);
  EXPECT_EQ(node_number(node, "c", 1), -7);
  EXPECT_EQ(node_number(node, "d", 1), 3);
  EXPECT_EQ(node_number(node, "e", 1), -1);
}

TEST(NodeSettings, WhatIsNoNumberGivesTheFallback) {
  const Node node = node_of("a = 12 apples\nb = 0x\nc =\nd = -\ne = 99999999999999999999999\n");
  for (const char *key : {"a", "b", "c", "d", "e", "missing"})
    EXPECT_EQ(node_number(node, key, 77), 77) << key;
}

TEST(NodeSettings, ReplacingKeepsOrderAndComments) {
  Node node = node_of("# the clock\nmodel = rtc\nrate = 1\nlast = 3\n");
  EXPECT_TRUE(set_node_text(node, "rate", "0.5"));
  EXPECT_EQ(text_of(node), "# the clock\nmodel = rtc\nrate = 0.5\nlast = 3\n");
}

TEST(NodeSettings, NewSettingsAreAppended) {
  Node node = node_of("model = rtc\n");
  EXPECT_TRUE(set_node_number(node, "offset", -5));
  EXPECT_EQ(text_of(node), "model = rtc\noffset = -5\n");
  EXPECT_TRUE(set_node_number(node, "least", INT64_MIN));
  EXPECT_EQ(node_number(node, "least", 0), INT64_MIN);
}

TEST(NodeSettings, LineWithoutItsEndIsEndedFirst) {
  Node node = node_of("model = rtc");
  EXPECT_TRUE(set_node_text(node, "rate", "1"));
  EXPECT_EQ(text_of(node), "model = rtc\nrate = 1\n");
}

TEST(NodeSettings, WhatDoesNotFitChangesNothing) {
  Node node = node_of("model = rtc\n");
  const std::string before = text_of(node);
  EXPECT_FALSE(set_node_text(node, "long", std::string(sizeof node.text, 'x')));
  EXPECT_FALSE(set_node_text(node, "long", std::string(sizeof node.text - 20, 'x')));
  EXPECT_EQ(text_of(node), before);
  EXPECT_TRUE(set_node_text(node, "long", std::string(sizeof node.text - 21, 'x')));
  EXPECT_EQ(node.length, sizeof node.text - 1);
}

TEST(NodeSettings, TextsThatWouldBecomeLinesOfTheirOwnAreRefused) {
  Node node = node_of("model = rtc\n");
  EXPECT_FALSE(set_node_text(node, "a", "1\nmodel = lcd"));
  EXPECT_FALSE(set_node_text(node, "a=b", "1"));
  EXPECT_FALSE(set_node_text(node, "#a", "1"));
  EXPECT_FALSE(set_node_text(node, "", "1"));
  EXPECT_EQ(text_of(node), "model = rtc\n");
}

TEST_F(NodeFile, LoadsTheFileAsItStands) {
  write("# c\nmodel = lcd\n");
  Node node;
  ASSERT_EQ(load_node(file.c_str(), node), 0);
  EXPECT_EQ(text_of(node), "# c\nmodel = lcd\n");
}

TEST_F(NodeFile, LoadingTellsWhatIsWrongAndLeavesTheRecord) {
  Node node = node_of("before");
  EXPECT_EQ(load_node(file.c_str(), node), -ENOENT);
  write(std::string(4096, 'x'));
  EXPECT_EQ(load_node(file.c_str(), node), -E2BIG);
  EXPECT_EQ(load_node(directory.c_str(), node), -EISDIR);
  EXPECT_EQ(text_of(node), "before");
  write(std::string(4095, 'x'));
  EXPECT_EQ(load_node(file.c_str(), node), 0);
}

TEST_F(NodeFile, UpdatingMayShortenTheFile) {
  write("model = lcd\ntext = a long value that goes away\n");
  auto change = [](Node &node, void *) { set_node_text(node, "text", "x"); };
  EXPECT_EQ(update_node(file.c_str(), change, nullptr), 0);
  EXPECT_EQ(read(), "model = lcd\ntext = x\n");
}

TEST_F(NodeFile, UpdatingAMissingFileMakesNone) {
  auto change = [](Node &node, void *) { set_node_text(node, "a", "1"); };
  EXPECT_EQ(update_node(file.c_str(), change, nullptr), -ENOENT);
  EXPECT_NE(access(file.c_str(), F_OK), 0);
}

TEST_F(NodeFile, UpdatesOfManyThreadsAreAllKept) {
  write("count = 0\n");
  auto change = [](Node &node, void *) {
    set_node_number(node, "count", node_number(node, "count", -1000) + 1);
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      for (int times = 0; times < 50; ++times)
        EXPECT_EQ(update_node(file.c_str(), change, nullptr), 0);
    });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(read(), "count = 200\n");
}

}  // namespace
}  // namespace vboard
