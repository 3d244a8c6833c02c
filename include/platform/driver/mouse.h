/* The mouse, the first input-event device.
 *
 * The board's kernel delivers 16 bytes an event, with two 32-bit words of time. struct input_event
 * of linux/input.h has 24 bytes on a 64-bit PC, so the record is spelled out here; types and codes
 * are those of linux/input-event-codes.h. */

#ifndef PLATFORM_DRIVER_MOUSE_H
#define PLATFORM_DRIVER_MOUSE_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#define MOUSE_DEVICE "/dev/input/event0"

/* What one read() delivers. */
typedef struct MouseEvent {
  uint32_t seconds;      /*  0: time of the event */
  uint32_t microseconds; /*  4 */
  uint16_t type;         /*  8: EV_KEY, EV_REL, ... */
  uint16_t code;         /* 10: BTN_LEFT, REL_X, ... */
  int32_t value;         /* 12 */
} MouseEvent;

static_assert(sizeof(MouseEvent) == 16, "record size");
static_assert(offsetof(MouseEvent, microseconds) == 4, "record offset");
static_assert(offsetof(MouseEvent, type) == 8, "record offset");
static_assert(offsetof(MouseEvent, code) == 10, "record offset");
static_assert(offsetof(MouseEvent, value) == 12, "record offset");

#endif
