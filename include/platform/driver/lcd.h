/* The monochrome display's driver, /dev/lcd: 128 columns by 64 rows in 8 pages of 8 rows, one byte
 * for each column of a page, low bit on top.
 *
 * Whole frames, or the first bytes of one, go through write(). Every request points to one byte,
 * although its number encodes four: use the numbers as they stand. */

#ifndef PLATFORM_DRIVER_LCD_H
#define PLATFORM_DRIVER_LCD_H

#define LCD_DEVICE "/dev/lcd"
#define LCD_COLUMNS 128
#define LCD_PAGES 8
#define LCD_FRAME_SIZE 1024 /* 0x00 is eight white pixels, 0xFF eight black ones */

#define LCD_SET_CMD_WRITE 0x40044C80u  /* sends a command byte to the controller */
#define LCD_SET_DATA_WRITE 0x40044C81u /* sends a data byte */
#define LCD_SET_BACKLIGHT 0x40044C82u  /* LCD_BACKLIGHT_ON or LCD_BACKLIGHT_OFF */

#define LCD_BACKLIGHT_ON 0
#define LCD_BACKLIGHT_OFF 1

#endif
