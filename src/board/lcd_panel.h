// The display's controller, one command or data byte at a time through the driver's requests.
//
// The controller addresses a byte (8 pixels below each other) by page and column: three command
// bytes, then the data byte.

#ifndef BENCHRIG_BOARD_LCD_PANEL_H
#define BENCHRIG_BOARD_LCD_PANEL_H

#include <array>
#include <cstdint>

// The open display, -1 when there is none; whoever opens the node stores it here and takes it back
// before closing.
extern int lcd_device;

// Sent in this order by lcd_init().
extern const std::array<std::uint8_t, 22> kLcdInitCommands;

// The commands that address a byte: column low nibble, column high nibble, page.
std::array<std::uint8_t, 3> lcd_address_commands(std::uint8_t page, std::uint8_t column);

// Send one byte. -1 without an open display, else the driver's result; a negative one is reported
// on standard output.
int lcd_write_cmd(std::uint8_t command);
int lcd_write_data(std::uint8_t data);

// Shows 8 pixels of a page, whatever the driver says.
void lcd_set_byte(std::uint8_t page, std::uint8_t column, std::uint8_t value);

// The same value for every byte of the display.
void lcd_fill(std::uint8_t value);

// Sends the initialisation, up to the first command that fails; the result of the last one sent.
int lcd_init();

// Draws the half-black picture 128 times, 300 ms apart.
void lcd_toggle_test();

#endif
