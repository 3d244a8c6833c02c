/* Switchable power rails and reset lines, by function code. */

#ifndef PLATFORM_POWER_H
#define PLATFORM_POWER_H

#include <stdint.h>

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What a rail feeds or a reset line resets. Not every code has both. */
enum {
  RIG_FUNCTION_GPU = 3,
  RIG_FUNCTION_VINSENSOR0 = 30,
  RIG_FUNCTION_VINSENSOR1 = 31,
  RIG_FUNCTION_LCD0 = 40,
  RIG_FUNCTION_LCD1 = 41,
  RIG_FUNCTION_LCD2 = 42,
  RIG_FUNCTION_LCD3 = 43,
  RIG_FUNCTION_TV = 44,
  RIG_FUNCTION_USB0 = 50,
  RIG_FUNCTION_USB1 = 51,
  RIG_FUNCTION_USB2 = 52,
  RIG_FUNCTION_USB3 = 53,
  RIG_FUNCTION_SD0 = 60,
  RIG_FUNCTION_SD1 = 61,
  RIG_FUNCTION_HD0 = 70,
  RIG_FUNCTION_HD1 = 71,
  RIG_FUNCTION_MSA = 100, /* power only, as msb to msd and the modems */
  RIG_FUNCTION_MSB = 101,
  RIG_FUNCTION_MSC = 102,
  RIG_FUNCTION_MSD = 103,
  RIG_FUNCTION_USBHUB0 = 120,
  RIG_FUNCTION_USBHUB1 = 121,
  RIG_FUNCTION_USBHUB2 = 122,
  RIG_FUNCTION_USBHUB3 = 123,
  RIG_FUNCTION_MODEM0 = 140,
  RIG_FUNCTION_MODEM9 = 149,
  RIG_FUNCTION_FRONTCAMERA = 200,
  RIG_FUNCTION_REARCAMERA = 201,
  RIG_FUNCTION_LEFTCAMERA = 202,
  RIG_FUNCTION_RIGHTCAMERA = 203,
  RIG_FUNCTION_BT0 = 210, /* reset only */
  RIG_FUNCTION_BT1 = 211, /* reset only */
  RIG_FUNCTION_SLAVE0 = 300,
  RIG_FUNCTION_SLAVE1 = 301,
  RIG_FUNCTION_GSENSOR = 500,   /* power only */
  RIG_FUNCTION_GPIOBASE = 1000, /* 1000 + n is GPIO line n, up to 2999 */
};

/* Not 0 when the rail is on; 0 when it is off, and with errno when that cannot be told.
 *
 * Reads the regulator or GPIO attribute of map key `power.CODE`. */
RIG_API int rig_power_is_enable(uint32_t function);

/* Switches a rail on (any value but 0) or off (0). -1 with errno for failure.
 *
 * Writes the attribute of map key `power.CODE`. */
RIG_API int rig_power_ctrl(uint32_t function, uint8_t value);

/* Pulses a reset line: asserts it, waits 100 ms, releases it. -1 with errno for failure, the line
 * being released all the same when it can.
 *
 * Writes the attribute of map key `reset.CODE`. */
RIG_API int rig_reset_ctrl(uint32_t function);

#ifdef __cplusplus
}
#endif

#endif
