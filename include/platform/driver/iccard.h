/* The IC card reader's driver, /dev/iccard. The node is there while a card is in the slot.
 *
 * Both requests point to the card's 256 bytes. Their numbers encode "four bytes, write" for either:
 * use them as they stand. */

#ifndef PLATFORM_DRIVER_ICCARD_H
#define PLATFORM_DRIVER_ICCARD_H

#define ICCARD_DEVICE "/dev/iccard"
#define ICCARD_SIZE 256

#define HAL_ICCARD_READ 0x40044901u  /* fills the caller's ICCARD_SIZE bytes */
#define HAL_ICCARD_WRITE 0x40044902u /* takes ICCARD_SIZE bytes */

#endif
