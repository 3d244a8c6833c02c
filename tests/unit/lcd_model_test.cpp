// The virtual board's display: its controller and its driver.

#include "model_harness.h"
#include "platform/driver/lcd.h"
#include "vboard/board/lcd_controller.h"

#include <errno.h>
#include <string.h>

#include <gtest/gtest.h>

using namespace vboard;

namespace {

constexpr char kNode[] = "model = lcd\nmedium = frame\nreturns = zero\nbacklight = 1\n";

struct Panel {
  LcdRegisters registers = {};
  unsigned char frame[kLcdFrameSize] = {};
};

void send(Panel &panel, std::initializer_list<int> commands) {
  for (const int command : commands)
    lcd_command(panel.registers, static_cast<std::uint8_t>(command));
}

int command(ModelHarness &board, int value) {
  std::uint8_t byte = static_cast<std::uint8_t>(value);
  return board.request(LCD_SET_CMD_WRITE, byte);
}

int data(ModelHarness &board, int value) {
  std::uint8_t byte = static_cast<std::uint8_t>(value);
  return board.request(LCD_SET_DATA_WRITE, byte);
}

ssize_t write_bytes(ModelHarness &board, const std::string &bytes) {
  return board.write(bytes.data(), bytes.size());
}

}  // namespace

TEST(LcdController, data_goes_to_page_and_column_and_the_column_moves_on) {
  Panel panel;
  send(panel, {0x05, 0x14, 0xB3});
  lcd_data(panel.registers, panel.frame, 0xAA);
  lcd_data(panel.registers, panel.frame, 0xBB);
  EXPECT_EQ(panel.frame[3 * 128 + 0x45], 0xAA);
  EXPECT_EQ(panel.frame[3 * 128 + 0x46], 0xBB);
  EXPECT_EQ(panel.registers.column, 0x47);
  EXPECT_EQ(panel.registers.page, 3);
}

TEST(LcdController, the_last_column_does_not_go_on_with_the_next_page) {
  Panel panel;
  send(panel, {0x0F, 0x17, 0xB0});
  for (int i = 0; i < 10; ++i)
    lcd_data(panel.registers, panel.frame, 0x11);
  EXPECT_EQ(panel.frame[127], 0x11);
  EXPECT_EQ(panel.frame[128], 0);
  EXPECT_EQ(panel.registers.column, 132);
}

TEST(LcdController, pages_beyond_the_panel_swallow_their_data) {
  Panel panel;
  send(panel, {0xB8});
  lcd_data(panel.registers, panel.frame, 0xFF);
  for (const unsigned char byte : panel.frame)
    EXPECT_EQ(byte, 0);
}

TEST(LcdController, initialisation_leaves_an_upright_picture_that_is_on) {
  Panel panel;
  send(panel, {0xE2, 0xAE, 0xEE, 0x40, 0xA2, 0xA0, 0xC8, 0xA6, 0x24, 0x81, 0x3F,
               0x2F, 0xF8, 0x01, 0xFF, 0x72, 0xFE, 0xD4, 0x90, 0x9E, 0xA4, 0xAF});
  EXPECT_EQ(panel.registers.start_line, 0);
  EXPECT_EQ(panel.registers.bias, 0);
  EXPECT_EQ(panel.registers.contrast, 0x3F);
  EXPECT_EQ(panel.registers.resistor_ratio, 4);
  EXPECT_EQ(panel.registers.power, 7);
  EXPECT_EQ(panel.registers.booster, 1);
  EXPECT_EQ(panel.registers.display_on, 1);
  EXPECT_EQ(panel.registers.all_points, 0);
  EXPECT_EQ(panel.registers.inverse, 0);
  EXPECT_EQ(panel.registers.pending, 0);
  panel.frame[0] = 0x01;
  EXPECT_TRUE(lcd_is_dark(panel.registers, panel.frame, 0, 0));
  EXPECT_FALSE(lcd_is_dark(panel.registers, panel.frame, 0, 1));
  EXPECT_FALSE(lcd_is_dark(panel.registers, panel.frame, 0, 63));
}

TEST(LcdController, second_bytes_are_no_commands) {
  Panel panel;
  send(panel, {0xAF, 0x81, 0xAE});
  EXPECT_EQ(panel.registers.display_on, 1);
  EXPECT_EQ(panel.registers.contrast, 0xAE & 0x3F);
}

TEST(LcdController, what_the_eye_sees) {
  Panel panel;
  send(panel, {0xC8});
  panel.frame[0] = 0x80;  // column 0, row 7
  EXPECT_FALSE(lcd_is_dark(panel.registers, panel.frame, 0, 7)) << "display off";
  send(panel, {0xAF});
  EXPECT_TRUE(lcd_is_dark(panel.registers, panel.frame, 0, 7));
  send(panel, {0xA7});
  EXPECT_FALSE(lcd_is_dark(panel.registers, panel.frame, 0, 7)) << "inverse";
  EXPECT_TRUE(lcd_is_dark(panel.registers, panel.frame, 0, 8)) << "inverse";
  send(panel, {0xA6, 0x47});
  EXPECT_TRUE(lcd_is_dark(panel.registers, panel.frame, 0, 0)) << "scrolled by seven rows";
  send(panel, {0x40, 0xA1});
  EXPECT_TRUE(lcd_is_dark(panel.registers, panel.frame, 127, 7)) << "columns reversed";
  send(panel, {0xA0, 0xC0});
  EXPECT_TRUE(lcd_is_dark(panel.registers, panel.frame, 0, 56)) << "rows reversed";
  send(panel, {0xA5});
  EXPECT_TRUE(lcd_is_dark(panel.registers, panel.frame, 33, 33)) << "all points";
}

TEST(LcdController, registers_survive_the_node_file) {
  Panel panel;
  send(panel, {0xC8, 0xAF, 0x81, 0x15, 0x52, 0xB4, 0x13, 0x02, 0x26, 0xA3, 0x2C, 0xF8, 0x03});
  Node node = {};
  ASSERT_TRUE(lcd_store(panel.registers, node));
  LcdRegisters loaded;
  lcd_load(node, loaded);
  EXPECT_EQ(memcmp(&loaded, &panel.registers, sizeof loaded), 0);
}

TEST(LcdController, impossible_settings_are_power_on_values) {
  Node node = {};
  set_node_text(node, "contrast", "64");
  set_node_text(node, "display_on", "yes");
  set_node_text(node, "start_line", "-1");
  LcdRegisters loaded;
  lcd_load(node, loaded);
  EXPECT_EQ(loaded.contrast, 32);
  EXPECT_EQ(loaded.display_on, 0);
  EXPECT_EQ(loaded.start_line, 0);
}

TEST(LcdModel, whole_and_partial_frames_begin_at_the_top) {
  ModelHarness board(kNode);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(write_bytes(board, std::string(1024, '\x55')), 0);
  EXPECT_EQ(write_bytes(board, std::string(512, '\xff')), 0);
  EXPECT_EQ(board.file("media/frame"), std::string(512, '\xff') + std::string(512, '\x55'));
}

TEST(LcdModel, returns_count_is_the_bytes_taken) {
  ModelHarness board("model = lcd\nmedium = frame\nreturns = count\n");
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(write_bytes(board, std::string(1024, '\1')), 1024);
  EXPECT_EQ(write_bytes(board, std::string(512, '\2')), 512);
  EXPECT_EQ(write_bytes(board, std::string(3000, '\3')), 1024);
}

TEST(LcdModel, bytes_reach_the_frame_and_addresses_are_kept_at_the_close) {
  ModelHarness board(kNode);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(command(board, 0x0A), 0);
  EXPECT_EQ(command(board, 0x10), 0);
  EXPECT_EQ(command(board, 0xB7), 0);
  EXPECT_EQ(data(board, 0x77), 0);
  EXPECT_EQ(board.file("media/frame")[7 * 128 + 10], '\x77');
  board.shut();
  EXPECT_NE(board.node().find("\npage = 7\n"), std::string::npos);
  EXPECT_NE(board.node().find("\ncolumn = 11\n"), std::string::npos);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(data(board, 0x66), 0);
  EXPECT_EQ(board.file("media/frame")[7 * 128 + 11], '\x66');
}

TEST(LcdModel, modes_are_stored_at_once) {
  ModelHarness board(kNode);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(command(board, 0xAF), 0);
  EXPECT_NE(board.node().find("\ndisplay_on = 1\n"), std::string::npos);
  EXPECT_EQ(command(board, 0xAE), 0);
  EXPECT_NE(board.node().find("\ndisplay_on = 0\n"), std::string::npos);
}

TEST(LcdModel, backlight_request_counts_the_other_way_round) {
  ModelHarness board(kNode);
  ASSERT_EQ(board.open(), 0);
  std::uint8_t value = LCD_BACKLIGHT_OFF;
  EXPECT_EQ(board.request(LCD_SET_BACKLIGHT, value), 0);
  EXPECT_NE(board.node().find("\nbacklight = 0\n"), std::string::npos);
  value = LCD_BACKLIGHT_ON;
  EXPECT_EQ(board.request(LCD_SET_BACKLIGHT, value), 0);
  EXPECT_NE(board.node().find("\nbacklight = 1\n"), std::string::npos);
  value = 2;
  EXPECT_EQ(board.request(LCD_SET_BACKLIGHT, value), -EINVAL);
}
