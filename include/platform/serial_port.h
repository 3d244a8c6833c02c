/* RS485 direction and the roles of the board's UARTs.
 *
 * Port `index` is the terminal of map key `uart.INDEX`, RS485 channel `index` that of
 * `rs485.INDEX`. */

#ifndef PLATFORM_SERIAL_PORT_H
#define PLATFORM_SERIAL_PORT_H

#include <stdint.h>

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

enum { RIG_UART_PARITY_NONE = 0, RIG_UART_PARITY_ODD = 1, RIG_UART_PARITY_EVEN = 2 };
enum { RIG_UART_FLOW_NONE = 0, RIG_UART_FLOW_HARDWARE = 1, RIG_UART_FLOW_SOFTWARE = 2 };
enum { RIG_UART_MODE_CONSOLE = 0, RIG_UART_MODE_COMM = 1 };

/* Switches the driver (tx) or the receiver (rx) of an RS485 channel on (any number but 0) or off
 * (0).
 *
 * TIOCSRS485: tx sets SER_RS485_RTS_ON_SEND, rx sets SER_RS485_RX_DURING_TX. */
RIG_API int rig_rs485_tx_en(uint32_t index, int enable);
RIG_API int rig_rs485_rx_en(uint32_t index, int enable);

/* Sets the line parameters and the role of a UART.
 *   index      0 to 3
 *   baudrate   bit/s, one of the rates that termios names
 *   databits   5 to 8
 *   stopbits   1 or 2; 0 counts as 1
 *   parity     RIG_UART_PARITY_...
 *   flowctrl   RIG_UART_FLOW_...
 *   mode       RIG_UART_MODE_...
 * 0, or -1 with errno: EINVAL for a value outside these, nothing being changed then.
 *
 * termios for the line; the `console` attribute of the port's tty-class device for the role. */
RIG_API int rig_uart_mode_set(uint32_t index, uint32_t baudrate, uint8_t databits, uint8_t stopbits,
                              uint8_t parity, uint8_t flowctrl, uint32_t mode);

/* RIG_UART_MODE_CONSOLE or RIG_UART_MODE_COMM, -1 with errno for failure. The name is spelled so.
 */
RIG_API int rig_uart_mode_getype(uint32_t index); /* sic */

#ifdef __cplusplus
}
#endif

#endif
