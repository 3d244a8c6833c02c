/* Buzzer, alarm inputs and outputs, VGA detection and the board's features. */

#ifndef PLATFORM_BOARD_IO_H
#define PLATFORM_BOARD_IO_H

#include <stdint.h>

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A board with this feature takes the image of the factory volume too when it upgrades itself. */
#define RIG_FEATURE_FACTORY_VOLUME 200

/* Switches the buzzer on (any number but 0) or off (0).
 *
 * Writes the attribute of map key `buzzer`, the brightness of an LED-class device. */
RIG_API int rig_beep(int on);

/* Reads the levels of the alarm inputs into *levels: bit i is input i, 1 for high. The inputs are
 * active-low, so a 0 is an alarm. Bits of inputs that the board lacks are 0.
 *
 * Reads the GPIO attributes of map keys `alarm.input.0` to `alarm.input.31`. ENODEV when the board
 * has no input at all; *levels is untouched on failure. */
RIG_API int rig_alarm_input(uint32_t *levels);

/* Sets the alarm outputs: output i to bit i of *levels. A board with one output looks at bit 0
 * only.
 *
 * Unlike its sibling it returns the number of outputs that were set, and 0 with errno for failure:
 * its callers take every non-zero result for success.
 *
 * Writes the GPIO attributes of map keys `alarm.output.0` to `alarm.output.31`. ENODEV when the
 * board has none. */
RIG_API int rig_alarm_output(uint32_t *levels);

/* 1 when a monitor is connected to the VGA connector, 0 when none is, -1 with errno.
 *
 * Reads the DRM connector's status attribute, map key `vga.status`. */
RIG_API int rig_detect_vga(void);

/* 1 when the board has the numbered feature, else 0; a feature that the map does not mention is
 * absent.
 *
 * Reads map key `feature.NUMBER`. */
RIG_API int rig_detect(int feature);

#ifdef __cplusplus
}
#endif

#endif
