/* Blinking LEDs and PWM outputs.
 *
 * LED `id` is the LED-class device of map key `led.ID` (0 to 15), PWM `id` the PWM-class channel of
 * map key `pwm.ID` (0 to 11). Duties are per cent. */

#ifndef PLATFORM_LED_H
#define PLATFORM_LED_H

#include <stdint.h>

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Lets an LED blink: lit for `duty` per cent (0 to 100) of every `cycle_ms` milliseconds (1 and
 * more). 0 is off and 100 is on, whatever the cycle. Mind the order: the cycle comes first.
 *
 * The timer trigger with delay_on and delay_off; brightness alone for 0 and 100. */
RIG_API int rig_led_ctrl(int id, int cycle_ms, uint8_t duty);

/* What rig_led_ctrl() or anybody else set last, read back from the trigger; -1 with errno. The
 * cycle of an LED that does not blink is 0. */
RIG_API int rig_led_duty(int id);
RIG_API int rig_led_cyclems(int id);

/* Sets a PWM output: high for `duty` per cent (0 to 100) of every `period_ns` nanoseconds (1 and
 * more). It does not switch the output on.
 *
 * period and duty_cycle of the channel, which is exported when it is not. */
RIG_API int rig_pwm_ctrl(int id, int period_ns, uint8_t duty);

/* Read back from the channel; -1 with errno. The duty of a channel without a period is 0. */
RIG_API int rig_pwm_duty(int id);
RIG_API int rig_pwm_periodns(int id);

/* Switches a PWM output on or off. EINVAL from the kernel for one without a period. */
RIG_API int rig_pwm_enable(int id);
RIG_API int rig_pwm_disable(int id);

#ifdef __cplusplus
}
#endif

#endif
