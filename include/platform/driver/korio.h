/* The board I/O driver, /dev/korio: GPIO lines, pin multiplexing and pulls.
 *
 * Every request points to a KorioRecord of eight bytes, although its number encodes four: use the
 * numbers as they stand, never _IOR() and the like. */

#ifndef PLATFORM_DRIVER_KORIO_H
#define PLATFORM_DRIVER_KORIO_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#define KORIO_DEVICE "/dev/korio"

#define HAL_GPIO_DIR_INPUT 0x40044701u  /* line: makes it an input */
#define HAL_GPIO_DIR_OUTPUT 0x40044702u /* line, level: makes it an output with that level */
#define HAL_GPIO_GET_VALUE 0x80044703u  /* line; fills the level */
#define HAT_PIN_SET_PINMUX 0x40044705u  /* register, mode */
#define HAT_PIN_GET_PINMUX 0x80044706u  /* register; fills the mode, 0 to 15 */
#define HAT_PIN_SET_PULL 0x40044707u    /* register, pull */
#define HAT_PIN_GET_PULL 0x80044708u    /* register; fills the pull bits */

#define HAT_PIN_PULL_UP 0x1u
#define HAT_PIN_PULL_DOWN 0x2u

typedef struct KorioRecord {
  uint32_t number; /* 0: GPIO line, or the pin's register */
  uint32_t value;  /* 4: level, direction, mode or pull */
} KorioRecord;

static_assert(sizeof(KorioRecord) == 8, "record size");
static_assert(offsetof(KorioRecord, value) == 4, "record offset");

#endif
