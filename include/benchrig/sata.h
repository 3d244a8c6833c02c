/* Single ATA commands to a SATA disk, as functions of the running benchrig program.
 *
 * A plug-in that is loaded into the program finds them by name (dlsym) or is linked against the
 * headers alone and resolved when it is loaded. Names are unmangled and results are signed 32-bit
 * integers. Failures are reported on standard output as well. */

#ifndef BENCHRIG_SATA_H
#define BENCHRIG_SATA_H

#include <stdint.h>

#if defined(__GNUC__)
#define BENCHRIG_EXPORT __attribute__((visibility("default")))
#else
#define BENCHRIG_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define SATA_SECTOR_SIZE 512

/* Command codes: the ATA command, or the sub-command of SMART. In brackets who knows the code:
 * H sata_command_execute(), S sata_command_execute_esata(). */
enum {
  SATA_RAW_TASKFILE = 0,              /* H */
  SATA_VENDOR_DMA_READ = 134,         /* S */
  SATA_VENDOR_DMA_WRITE = 136,        /* S */
  SATA_DOWNLOAD_MICROCODE = 146,      /* S */
  SATA_SMART_READ_VALUES = 208,       /* H S */
  SATA_SMART_READ_THRESHOLDS = 209,   /* H S */
  SATA_SMART_AUTOSAVE = 210,          /* H S */
  SATA_SMART_OFFLINE_IMMEDIATE = 212, /* H S */
  SATA_SMART_READ_LOG = 213,          /* H */
  SATA_SMART_WRITE_LOG = 214,         /* H */
  SATA_SMART_ENABLE = 216,            /* H S */
  SATA_SMART_DISABLE = 217,           /* H S */
  SATA_SMART_RETURN_STATUS = 218,     /* H S */
  SATA_SMART_AUTO_OFFLINE = 219,      /* H */
  SATA_STANDBY_IMMEDIATE = 224,       /* H S */
  SATA_FLUSH_CACHE = 231,             /* H S */
  SATA_IDENTIFY_DEVICE = 236,         /* H S */
  SATA_SET_FEATURES = 239,            /* S: enables the vendor commands, feature DAh */
};

/* Sends `command` to the disk behind `fd` through the kernel's HDIO requests.
 *
 * `data` is a sector of SATA_SECTOR_SIZE bytes: it receives what codes 208, 209, 213 and 236 read
 * and supplies what 214 writes. For code 0 it supplies 36 bytes that go into the request's data
 * area. Other codes ignore it.
 *
 * 0 for success, -1 for failure (errno ENOSYS for an unknown code). Codes 210, 218 and 219 answer 0
 * for passed and 1 for threshold exceeded. */
BENCHRIG_EXPORT int sata_command_execute(int fd, int command, void *data);

/* Sends `command` to the disk behind `fd` as an ATA PASS-THROUGH through SG_IO.
 *
 *   code           argument                                 further arguments
 *   134, 136       const unsigned char *: sector count      unsigned int: LBA bits 0 to 7;
 *                                                           void *: count * 512 bytes
 *   146            the data                                 unsigned int: bytes, a multiple of 512;
 *                                                           unsigned int: offset in 512-byte blocks
 *   208, 209, 236  sector of 512 bytes to fill
 *   210            const unsigned char *: not 0 enables
 *   212            const unsigned char *: off-line sub-command
 *   others         ignored
 *
 * What a read with 134 did not get from the disk is zeros in its buffer.
 *
 * 0 for success, -1 for failure; 4, 5, 14 or 15 when the host adapter reported that status (the
 * command did not reach the disk). A result of the request above 0 is handed on as it is. Code 218
 * answers the first status byte as 1, 2 or 3 (3 for any other). A null argument of 136, 208, 209,
 * 210, 212 or 236 is a mistake of the caller and aborts the program, in every build. */
BENCHRIG_EXPORT int sata_command_execute_esata(int fd, int command, void *argument, ...);

/* Value of a hexadecimal digit. Any other character is not refused: it gives (c - '0') & FFh. */
BENCHRIG_EXPORT uint8_t ctoi(uint8_t c);

/* Upper-case hexadecimal digit of a value from 0 to 15; no range check. */
BENCHRIG_EXPORT int hex_to_ascii(int n);

#ifdef __cplusplus
}
#endif

#endif
