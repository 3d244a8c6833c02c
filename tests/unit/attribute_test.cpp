// Small kernel attributes, on ordinary files and on the devices that fail in a known way.

#include "platform/attribute.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

namespace {

class Attribute : public testing::Test {
 protected:
  void SetUp() override {
    snprintf(path_, sizeof path_, "%sattribute_XXXXXX", testing::TempDir().c_str());
    const int fd = mkstemp(path_);
    ASSERT_GE(fd, 0);
    close(fd);
  }
  void TearDown() override {
    unlink(path_);
  }
  void fill(const std::string &text) {
    FILE *file = fopen(path_, "w");
    ASSERT_NE(file, nullptr);
    fwrite(text.data(), 1, text.size(), file);
    fclose(file);
  }
  std::string content() {
    char text[64];
    FILE *file = fopen(path_, "r");
    const std::size_t size = fread(text, 1, sizeof text, file);
    fclose(file);
    return std::string(text, size);
  }
  std::string read(std::size_t size = 16) {
    char text[64] = "";
    EXPECT_GE(rigcore::attribute_read(path_, text, size), 0);
    return text;
  }
  char path_[256];
};

TEST_F(Attribute, text_loses_its_line_end_and_trailing_blanks) {
  fill("connected \t\r\n");
  EXPECT_EQ(read(), "connected");
  fill("two words\n\n");
  EXPECT_EQ(read(), "two words");
  fill("");
  EXPECT_EQ(read(), "");
}

TEST_F(Attribute, text_keeps_high_characters_at_its_end) {
  fill("caf\xC3\xA9 \n");
  EXPECT_EQ(read(), "caf\xC3\xA9");
  fill("\x80\x85\xA0\xFF\n");
  EXPECT_EQ(read(), "\x80\x85\xA0\xFF");
}

TEST_F(Attribute, device_tree_text_loses_its_terminator) {
  fill(std::string("U-Boot\0", 7));
  char text[16];
  EXPECT_EQ(rigcore::attribute_read(path_, text, sizeof text), 6);
  EXPECT_STREQ(text, "U-Boot");
}

TEST_F(Attribute, reading_stays_within_its_room) {
  fill("0123456789");
  EXPECT_EQ(read(5), "0123");
}

TEST_F(Attribute, number_is_the_whole_attribute) {
  long number = 77;
  for (const char *text : {"", "\n", "x", "1x", "1 2", "99999999999999999999"}) {
    fill(text);
    EXPECT_EQ(rigcore::attribute_read_number(path_, &number), -1) << text;
    EXPECT_EQ(errno, EBADMSG) << text;
  }
  EXPECT_EQ(number, 77);
  fill("010\n");
  EXPECT_EQ(rigcore::attribute_read_number(path_, &number), 0);
  EXPECT_EQ(number, 10) << "decimal, also with a leading 0";
}

TEST_F(Attribute, written_value_replaces_a_longer_one) {
  fill("255\n");
  EXPECT_EQ(rigcore::attribute_write(path_, "0"), 0);
  EXPECT_EQ(content(), "0");
}

TEST(AttributeFailure, missing_attribute_is_not_created) {
  const char path[] = "/nonexistent/attribute";
  char text[8];
  EXPECT_EQ(rigcore::attribute_read(path, text, sizeof text), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(rigcore::attribute_write(path, "1"), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(AttributeFailure, refused_write_keeps_the_drivers_errno) {
  EXPECT_EQ(rigcore::attribute_write("/dev/full", "1"), -1);
  EXPECT_EQ(errno, ENOSPC);
}

TEST(AttributeFailure, refused_read_keeps_its_errno) {
  char text[8];
  EXPECT_EQ(rigcore::attribute_read("/", text, sizeof text), -1);
  EXPECT_EQ(errno, EISDIR);
}

}  // namespace
