/* The parts of the SSD firmware update, as functions of the running benchrig program; see
 * benchrig/sata.h for how they are found and what they have in common.
 *
 * An image is a firmware file as it stands. Its offsets:
 *
 *   4096   firmware tag block, as the drive holds it at address 0 of its controller's RAM
 *   4192   512 bytes: the IDENTIFY DEVICE data that the new firmware will report
 *   N - 1  checksum byte over bytes 0 to N - 3 (N is the length); byte N - 2 is never verified
 *
 * The buffer of an image is the caller's, and its size is the caller's duty: N rounded up to the
 * next multiple of 512, since whole blocks are sent, and SSD_IMAGE_BUFFER_MIN bytes at least, since
 * the offsets above are used whatever N is. What follows the image in it is used as it is: clear
 * it. */

#ifndef BENCHRIG_SSD_UPDATE_H
#define BENCHRIG_SSD_UPDATE_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "benchrig/sata.h"

#ifdef __cplusplus
extern "C" {
#endif

#define SSD_TAG_BLOCK_SIZE 4096   /* what is read from the controller's RAM */
#define SSD_IMAGE_BUFFER_MIN 8192 /* the least size of an image's buffer */

/* FirmwareTag.kind: where the block's variant value stands. */
enum {
  SSD_TAG_UNKNOWN = 0, /* nowhere: the variant value is 0 */
  SSD_TAG_KIND_1 = 1,  /* controllers "ZEP", "QT6027", "QT6024" */
  SSD_TAG_KIND_2 = 2,  /* controller "RB7730" */
};

/* What a firmware tag block says about the hardware that the firmware is for. */
typedef struct FirmwareTag {
  uint32_t kind;           /*  0: SSD_TAG_... */
  uint32_t variant;        /*  4: for kind 1 with equivalent variants made equal */
  uint8_t identifier[8];   /*  8: parts 1 and 2 */
  uint8_t hardware_byte;   /* 16 */
  uint8_t unused;          /* 17 */
  uint16_t hardware_word1; /* 18 */
  uint16_t hardware_word2; /* 20 */
  uint16_t unused_tail;    /* 22 */
} FirmwareTag;

static_assert(sizeof(FirmwareTag) == 24, "record size");
static_assert(offsetof(FirmwareTag, identifier) == 8, "record offset");
static_assert(offsetof(FirmwareTag, hardware_byte) == 16, "record offset");
static_assert(offsetof(FirmwareTag, hardware_word1) == 18, "record offset");
static_assert(offsetof(FirmwareTag, hardware_word2) == 20, "record offset");

/* Reads `length` bytes (a multiple of 512, below 128 KiB) of the controller's RAM from `address` on
 * through the vendor command pair. What did not come from the drive is zeros in `destination`. 0,
 * or the failing command's negative result; a status of the host adapter is positive and gives 0.
 */
BENCHRIG_EXPORT int korsata_read_ram(const char *path, uint32_t address, void *destination,
                                     uint32_t length);

/* Stamps the drive's identity into the image's IDENTIFY data: serial number (20 characters at
 * most), world wide name (16 hexadecimal digits, or null to leave it), revision (8), model (40);
 * shorter texts are padded with blanks. 0, or -1 when anything but the name is null. */
BENCHRIG_EXPORT int korsata_modify_fw_identify(void *image, const char *serial, const char *wwn,
                                               const char *revision, const char *model);

/* Sends the image with DOWNLOAD MICROCODE in chunks of 8 blocks, out of the caller's buffer: behind
 * an image that does not fill its last block, the rest of that block in the buffer is sent too. 0,
 * -1 when the node does not open or the image is beyond the command's reach (32 MiB), or the first
 * failing command's result: the descriptor then stays open. */
BENCHRIG_EXPORT int korsata_download_microcode_cmd(const char *path, const void *image,
                                                   uint32_t length);

/* The firmware revision of the image's IDENTIFY data as 8 characters and a NUL; returns the address
 * of the model field in the image (40 bytes, in the device's byte order). */
BENCHRIG_EXPORT char *korsata_get_bin_fwver(void *image, char *out_revision);

/* The guarded update: checksum, revision rule and hardware tag first, then the stamp, the checksum
 * again, and the download. `update_revision` has 8 characters; `identify` is the drive's IDENTIFY
 * DEVICE data with its texts in reading order. 0; -1 (checksum, allocation, null argument); -2
 * (revision, RAM, tag); or the download's result. Nothing of the image is sent before every check
 * has passed. */
BENCHRIG_EXPORT int korsata_download_microcode(const char *path, void *image, uint32_t length,
                                               const char *update_revision, const void *identify);

/* The drive's world wide name (words 108 to 111) as 16 upper-case hexadecimal digits and a NUL.
 * Returns 0. */
BENCHRIG_EXPORT int korstore_analyse_identify_ssdwwn(const void *identify, char *out_text);

/* Reads a tag block: at the buffer's start when `which` is 1 (a RAM copy), at offset 4096 otherwise
 * (an image's buffer). Returns 0. */
BENCHRIG_EXPORT int korstore_get_fw_tag(const void *buffer, int which, FirmwareTag *out_tag);

/* Compares an image with a RAM copy of SSD_TAG_BLOCK_SIZE bytes: 0 when the
 * tags match, -23 when the copy's signature is unknown, -25 when the tags differ. */
BENCHRIG_EXPORT int korstore_compare_binfile(const void *image, const void *ram);

#ifdef __cplusplus
}
#endif

#endif
