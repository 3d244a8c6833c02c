// The display controller's bytes, and what the helpers say of a driver that refuses them.

#include "board/lcd_panel.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

namespace {

// Opens a node that answers every request with an error (no display takes part in these tests).
class Lcd : public testing::Test {
 protected:
  void use_refusing_device() {
    lcd_device = open("/dev/null", O_RDWR);
    ASSERT_GE(lcd_device, 0);
  }
  void TearDown() override {
    if (lcd_device >= 0)
      close(lcd_device);
    lcd_device = -1;
  }
};

using Bytes = std::array<std::uint8_t, 3>;

// Taken before main: the other tests open displays.
const int device_at_start = lcd_device;

TEST_F(Lcd, no_display_is_open_at_the_start) {
  EXPECT_EQ(device_at_start, -1);
}

TEST_F(Lcd, initialises_the_controller_with_22_commands) {
  const std::array<std::uint8_t, 22> expected = {0xE2, 0xAE, 0xEE, 0x40, 0xA2, 0xA0, 0xC8, 0xA6,
                                                 0x24, 0x81, 0x3F, 0x2F, 0xF8, 0x01, 0xFF, 0x72,
                                                 0xFE, 0xD4, 0x90, 0x9E, 0xA4, 0xAF};
  EXPECT_EQ(kLcdInitCommands, expected);
}

TEST_F(Lcd, addresses_a_byte_by_column_nibbles_and_page) {
  EXPECT_EQ(lcd_address_commands(0, 0), (Bytes{0x00, 0x10, 0xB0}));
  EXPECT_EQ(lcd_address_commands(7, 127), (Bytes{0x0F, 0x17, 0xB7}));
  EXPECT_EQ(lcd_address_commands(3, 0x5A), (Bytes{0x0A, 0x15, 0xB3}));
  EXPECT_EQ(lcd_address_commands(4, 15), (Bytes{0x0F, 0x10, 0xB4}));
  EXPECT_EQ(lcd_address_commands(4, 16), (Bytes{0x00, 0x11, 0xB4}));
}

TEST_F(Lcd, sends_nothing_and_is_silent_without_an_open_display) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(lcd_write_cmd(0xAF), -1);
  EXPECT_EQ(lcd_write_data(0), -1);
  lcd_set_byte(0, 0, 0xFF);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(Lcd, initialisation_without_an_open_display_reports_once) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(lcd_init(), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[vrq]lcd_init:254 lcd_write_cmd err, ret=-1\n");
}

TEST_F(Lcd, reports_a_refused_command) {
  use_refusing_device();
  testing::internal::CaptureStdout();
  EXPECT_EQ(lcd_write_cmd(0xAF), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[vrq]lcd_write_cmd:122 LCD_SET_CMD_WRITE err, ret=-1\n");
}

TEST_F(Lcd, reports_a_refused_data_byte) {
  use_refusing_device();
  testing::internal::CaptureStdout();
  EXPECT_EQ(lcd_write_data(0xFF), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[vrq]lcd_write_data:138 LCD_SET_DATA_WRITE err, ret=-1\n");
}

TEST_F(Lcd, initialisation_stops_at_the_first_refused_command) {
  use_refusing_device();
  testing::internal::CaptureStdout();
  EXPECT_EQ(lcd_init(), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[vrq]lcd_write_cmd:122 LCD_SET_CMD_WRITE err, ret=-1\n"
            "[vrq]lcd_init:254 lcd_write_cmd err, ret=-1\n");
}

TEST_F(Lcd, setting_a_byte_goes_on_after_every_refusal) {
  use_refusing_device();
  testing::internal::CaptureStdout();
  lcd_set_byte(2, 64, 0xFF);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[vrq]lcd_write_cmd:122 LCD_SET_CMD_WRITE err, ret=-1\n"
            "[vrq]lcd_write_cmd:122 LCD_SET_CMD_WRITE err, ret=-1\n"
            "[vrq]lcd_write_cmd:122 LCD_SET_CMD_WRITE err, ret=-1\n"
            "[vrq]lcd_write_data:138 LCD_SET_DATA_WRITE err, ret=-1\n");
}

}  // namespace
