// What writes to the virtual board's attributes do.

#include "model_harness.h"
#include "vboard/board/attributes.h"

#include <errno.h>
#include <string.h>

#include <gtest/gtest.h>

using namespace vboard;

namespace {

ssize_t write(const ModelHarness &board, const char *path, std::string_view bytes,
              std::int64_t offset = 0) {
  return write_attribute(board.directory.c_str(), path, bytes.data(), bytes.size(), offset);
}

void add_cpld(const ModelHarness &board, const char *settings) {
  board.write_file("firmware/cpld", settings);
  for (const char *name : {"loading", "remaining_size", "cancel"})
    board.write_file((std::string("sys/class/firmware/cpld/") + name).c_str(), "0\n");
  board.write_file("sys/class/firmware/cpld/status", "idle\n");
  board.write_file("sys/class/firmware/cpld/error", "");
  board.write_file("sys/class/firmware/cpld/data", "");
}

}  // namespace

TEST(AttributeHooks, text_replaces_the_old_one_and_keeps_one_line_end) {
  const ModelHarness board("");
  board.write_file("sys/a", "a longer value\n");
  EXPECT_EQ(write(board, "/sys/a", "x"), 1);
  EXPECT_EQ(board.file("sys/a"), "x\n");
  EXPECT_EQ(write(board, "/sys/a", "yes\n"), 4);
  EXPECT_EQ(board.file("sys/a"), "yes\n");
  EXPECT_EQ(write(board, "/sys/none", "x"), -ENOENT);
}

TEST(AttributeHooks, text_ends_at_its_nul) {
  using namespace std::literals;
  const ModelHarness board("");
  board.write_file("sys/a", "old\n");
  EXPECT_EQ(write(board, "/sys/a", "yes\n\0"sv), 5);
  EXPECT_EQ(board.file("sys/a"), "yes\n");
  EXPECT_EQ(write(board, "/sys/a", "no\0yes"sv), 6);
  EXPECT_EQ(board.file("sys/a"), "no\n");

  board.write_file("sys/class/gpio/gpio48/value", "1\n");
  EXPECT_EQ(write(board, "/sys/class/gpio/gpio48/value", "0\0"sv), 2);
  EXPECT_EQ(board.file("sys/class/gpio/gpio48/value"), "0\n");
  EXPECT_EQ(write(board, "/sys/class/gpio/gpio48/value", "\0001"sv), -EINVAL);

  board.write_file("sys/class/leds/x/brightness", "0\n");
  EXPECT_EQ(write(board, "/sys/class/leds/x/brightness", "7\0"sv), 2);
  EXPECT_EQ(board.file("sys/class/leds/x/brightness"), "7\n");
}

TEST(AttributeHooks, brightness_is_a_number_up_to_its_most) {
  const ModelHarness board("");
  board.write_file("sys/class/leds/x/brightness", "0\n");
  board.write_file("sys/class/leds/x/max_brightness", "255\n");
  EXPECT_EQ(write(board, "/sys/class/leds/x/brightness", "7"), 1);
  EXPECT_EQ(board.file("sys/class/leds/x/brightness"), "7\n");
  EXPECT_EQ(write(board, "/sys/class/leds/x/brightness", "300"), 3);
  EXPECT_EQ(board.file("sys/class/leds/x/brightness"), "255\n");
  EXPECT_EQ(write(board, "/sys/class/leds/x/brightness", "on"), -EINVAL);
  EXPECT_EQ(write(board, "/sys/class/leds/x/brightness", "-1"), -EINVAL);
}

TEST(AttributeHooks, wires_carry_a_pin_to_others) {
  const ModelHarness board("");
  for (const char *pin : {"sys/class/gpio/gpio40/value", "sys/class/gpio/gpio41/value",
                          "sys/class/gpio/gpio48/value"})
    board.write_file(pin, "0\n");
  board.write_file("sys.wires",
                   "# plug\n"
                   "/sys/class/gpio/gpio48/value -> /sys/class/gpio/gpio40/value\n"
                   "/sys/class/gpio/gpio48/value -> /sys/class/gpio/gpio41/value\n"
                   "/sys/class/gpio/gpio48/value -> /sys/class/gpio/gone/value\n"
                   "/sys/class/gpio/gpio40/value -> /sys/class/gpio/gpio48/value\n");
  EXPECT_EQ(write(board, "/sys/class/gpio/gpio48/value", "2"), 1);
  EXPECT_EQ(board.file("sys/class/gpio/gpio48/value"), "1\n");
  EXPECT_EQ(board.file("sys/class/gpio/gpio40/value"), "1\n");
  EXPECT_EQ(board.file("sys/class/gpio/gpio41/value"), "1\n");
  EXPECT_EQ(write(board, "/sys/class/gpio/gpio48/value", "0\n"), 2);
  EXPECT_EQ(board.file("sys/class/gpio/gpio41/value"), "0\n");
}

TEST(AttributeHooks, blocks_are_written_in_place_and_keep_their_size) {
  const ModelHarness board("");
  constexpr char kBlock[] = "/sys/bus/nvmem/devices/x/nvmem";
  board.write_file(kBlock + 1, std::string(256, '\0'));
  EXPECT_EQ(write(board, kBlock, "\x07", 250), 1);
  EXPECT_EQ(board.file(kBlock + 1), std::string(250, '\0') + "\x07" + std::string(5, '\0'));
  EXPECT_EQ(write(board, kBlock, "abcd", 254), 2);
  EXPECT_EQ(write(board, kBlock, "a", 256), -ENOSPC);
  EXPECT_EQ(board.file(kBlock + 1).size(), 256u);
}

TEST(AttributeHooks, eeproms_keep_their_size_by_either_name) {
  for (const char *path : {"/sys/bus/i2c/devices/0-0050/eeprom", "/sys/devices/i2c-0/0-0050/eeprom",
                           "/sys/devices/soc/fuses0/nvmem"}) {
    const ModelHarness board("");
    board.write_file(path + 1, "0123456789");
    EXPECT_EQ(write(board, path, "A"), 1) << path;
    EXPECT_EQ(board.file(path + 1), "A123456789");
    EXPECT_EQ(write(board, path, std::string_view("\0B", 2), 8), 2);
    EXPECT_EQ(board.file(path + 1), std::string("A1234567\0B", 10));
    EXPECT_EQ(write(board, path, "C", 10), -ENOSPC);
    EXPECT_EQ(write(board, path, "CDE", 9), 1);
    EXPECT_EQ(board.file(path + 1), std::string("A1234567\0C", 10));
  }
}

TEST(AttributeHooks, firmware_image_goes_to_the_medium) {
  const ModelHarness board("");
  add_cpld(board, "medium = cpld.bin\nsize = 16\nfails =\n");
  EXPECT_EQ(write(board, "/sys/class/firmware/cpld/data", "early"), -ENODEV);
  EXPECT_EQ(write(board, "/sys/class/firmware/cpld/loading", "1"), 1);
  EXPECT_EQ(board.file("sys/class/firmware/cpld/status"), "receiving\n");
  EXPECT_EQ(write(board, "/sys/class/firmware/cpld/data", "0123"), 4);
  EXPECT_EQ(write(board, "/sys/class/firmware/cpld/data", "4567", 4), 4);
  EXPECT_EQ(write(board, "/sys/class/firmware/cpld/loading", "0"), 1);
  EXPECT_EQ(board.file("media/cpld.bin"), "01234567");
  EXPECT_EQ(board.file("sys/class/firmware/cpld/status"), "idle\n");
  EXPECT_EQ(board.file("sys/class/firmware/cpld/error"), "");
  EXPECT_EQ(board.file("sys/class/firmware/cpld/data"), "");
}

TEST(AttributeHooks, dropped_image_changes_nothing) {
  const ModelHarness board("");
  add_cpld(board, "medium = cpld.bin\n");
  board.write_file("media/cpld.bin", "old");
  write(board, "/sys/class/firmware/cpld/loading", "1");
  write(board, "/sys/class/firmware/cpld/data", "new");
  EXPECT_EQ(write(board, "/sys/class/firmware/cpld/loading", "-1"), 2);
  EXPECT_EQ(write(board, "/sys/class/firmware/cpld/loading", "0"), 1);
  EXPECT_EQ(board.file("media/cpld.bin"), "old");
  EXPECT_EQ(board.file("sys/class/firmware/cpld/status"), "idle\n");
}

TEST(AttributeHooks, failing_parts_say_why) {
  struct Row {
    const char *settings;
    const char *error;
    const char *medium;  // a part that fails while it is programmed has taken the first half
  };
  for (const Row &row :
       {Row{"medium = m\nsize = 3\n", "preparing:invalid-file-size\n", "old"},
        Row{"medium = m\nfails = transferring:hw-error\n", "transferring:hw-error\n", "old"},
        Row{"medium = m\nfails = programming:timeout\n", "programming:timeout\n", "ned"}}) {
    const ModelHarness board("");
    add_cpld(board, row.settings);
    board.write_file("media/m", "old");
    write(board, "/sys/class/firmware/cpld/loading", "1");
    write(board, "/sys/class/firmware/cpld/data", "news");
    EXPECT_EQ(write(board, "/sys/class/firmware/cpld/loading", "0"), 1);
    EXPECT_EQ(board.file("sys/class/firmware/cpld/error"), row.error);
    EXPECT_EQ(board.file("media/m"), row.medium) << row.settings;
  }
}

TEST(AttributeHooks, next_image_clears_the_error) {
  const ModelHarness board("");
  add_cpld(board, "medium = m\nfails = transferring:hw-error\n");
  write(board, "/sys/class/firmware/cpld/loading", "1");
  write(board, "/sys/class/firmware/cpld/loading", "0");
  EXPECT_EQ(board.file("sys/class/firmware/cpld/error"), "transferring:hw-error\n");
  write(board, "/sys/class/firmware/cpld/loading", "1");
  EXPECT_EQ(board.file("sys/class/firmware/cpld/error"), "");
}
