// How many processors a board's cpuinfo lists.

#include "debug/processor_count.h"

#include <gtest/gtest.h>

#include <string>

namespace {

int count_in_text(std::string text) {
  FILE *file = fmemopen(text.data(), text.size(), "r");
  const int count = count_processors(file);
  fclose(file);
  return count;
}

int count_in_recording(const char *name) {
  const std::string path = std::string(TEST_DATA_DIR) + "/proc/cpuinfo/" + name;
  FILE *file = fopen(path.c_str(), "rb");
  EXPECT_NE(file, nullptr) << path;
  if (file == nullptr)
    return -1;
  const int count = count_processors(file);
  fclose(file);
  return count;
}

TEST(Processors, of_recorded_boards) {
  EXPECT_EQ(count_in_recording("beagleboard-xm.txt"), 1);
  EXPECT_EQ(count_in_recording("raspberrypi2.txt"), 4);
  EXPECT_EQ(count_in_recording("nexus4.txt"), 4);
  EXPECT_EQ(count_in_recording("odroid-u2.txt"), 4) << "its line \"Processor\" is none";
}

TEST(Processors, are_lines_that_begin_with_the_word) {
  EXPECT_EQ(count_in_text("processor\t: 0\nprocessor : 1\nprocessors\n"), 3);
  EXPECT_EQ(count_in_text(" processor\t: 0\nProcessor: 0\nmy processor\nprocess\n\n"), 0);
}

TEST(Processors, last_line_may_lack_its_end) {
  EXPECT_EQ(count_in_text("model name\nprocessor"), 1);
}

TEST(Processors, a_long_line_is_read_in_pieces_of_127) {
  EXPECT_EQ(count_in_text("flags" + std::string(122, ' ') + "processor\n"), 1);
  EXPECT_EQ(count_in_text("flags" + std::string(121, ' ') + "processor\n"), 0);
}

}  // namespace
