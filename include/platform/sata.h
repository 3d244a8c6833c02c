/* IDENTIFY DEVICE and SMART data of a SATA disk.
 *
 * `path` is a disk node such as "/dev/sda". Commands go through the ATA pass-through of SG_IO; a
 * disk without it answers ENOTTY or EIO. */

#ifndef PLATFORM_SATA_H
#define PLATFORM_SATA_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

#define RIG_ATA_SECTOR_SIZE 512

/* IdentifyInfo.trim_flags */
#define RIG_ATA_TRIM_ZERO 0x1u          /* trimmed sectors read as zeros */
#define RIG_ATA_TRIM_DETERMINISTIC 0x2u /* trimmed sectors always read the same */
#define RIG_ATA_TRIM_SUPPORTED 0x4u

/* What rig_store_get_factory() answers: SSD families with attribute names of their own. */
#define RIG_STORE_FAMILY_B 1
#define RIG_STORE_FAMILY_A 2

/* Decoded IDENTIFY DEVICE data. */
typedef struct IdentifyInfo {
  uint64_t sectors;              /*  0: of the logical size */
  uint64_t bytes;                /*  8: user capacity */
  uint32_t logical_sector_size;  /* 16: bytes */
  uint32_t physical_sector_size; /* 20: bytes */
  const char *sata_version;      /* 24: such as "SATA 3.1"; a constant of the library */
  uint32_t max_speed;            /* 28 on the board: 1 is 1.5 Gb/s, 2 is 3.0, 3 is 6.0, 0 unknown */
  uint32_t current_speed;        /* 32: the same codes */
  uint32_t trim_flags;           /* 36: RIG_ATA_TRIM_... */
  uint32_t trim_count;           /* 40: 512-byte blocks of ranges that one command takes */
} IdentifyInfo;

static_assert(offsetof(IdentifyInfo, logical_sector_size) == 16, "record offset");
static_assert(offsetof(IdentifyInfo, physical_sector_size) == 20, "record offset");
static_assert(offsetof(IdentifyInfo, sata_version) == 24, "record offset");
static_assert(sizeof(void *) != 4 || offsetof(IdentifyInfo, trim_count) == 40,
              "offset on the board");

/* Reads IDENTIFY DEVICE into `buffer` of RIG_ATA_SECTOR_SIZE bytes, in the device's word order but
 * for serial number (bytes 20 to 39), firmware revision (46 to 53) and model (54 to 93), which are
 * swapped into reading order. -1 with errno for failure. */
RIG_API int rig_sata_read_identify_info(const char *path, void *buffer);

/* Decodes IDENTIFY DEVICE data of RIG_ATA_SECTOR_SIZE bytes; what they do not tell is 0, the
 * version text then empty. Returns 0. Needs nothing of the kernel. */
RIG_API int rig_ata_get_identify_info(const void *identify, IdentifyInfo *out);

/* SMART ENABLE OPERATIONS and attribute autosave. -1 with errno for failure. */
RIG_API int rig_sata_enable_smart(const char *path);

/* SMART READ DATA and SMART READ THRESHOLDS into `buffer` of RIG_ATA_SECTOR_SIZE bytes. 0, or -1
 * with errno. */
RIG_API int rig_sata_read_smart_values(const char *path, void *buffer);
RIG_API int rig_sata_read_smart_thresholds(const char *path, void *buffer);

/* The drive's family from its IDENTIFY and SMART data: RIG_STORE_FAMILY_A, RIG_STORE_FAMILY_B or 0
 * for any other drive. */
RIG_API int rig_store_get_factory(const void *identify, const void *smart_values);

#ifdef __cplusplus
}
#endif

#endif
