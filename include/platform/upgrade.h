/* The upgrade engine: writes firmware into the board's flash and runs maintenance actions. */

#ifndef PLATFORM_UPGRADE_H
#define PLATFORM_UPGRADE_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "platform/api.h"
#include "platform/verbose.h"

#ifdef __cplusplus
extern "C" {
#endif

/* UpgradeRequest.item: what to write, or which action to run. */
enum {
  UPGRADE_ITEM_FACTORY = 1,
  UPGRADE_ITEM_FWBUNDLE = 2,
  UPGRADE_ITEM_BOOTLOADER = 3,
  UPGRADE_ITEM_KERNEL = 4,
  UPGRADE_ITEM_MCU = 5,
  UPGRADE_ITEM_BACKUP = 6, /* action */
  UPGRADE_ITEM_RESTORE = 7,
  UPGRADE_ITEM_SYNC = 8,
  UPGRADE_ITEM_MAINT = 9, /* action */
  UPGRADE_ITEM_SECBOOT = 10,
  UPGRADE_ITEM_SYSPART = 11, /* the partition of UpgradeRequest.partition */
};

/* Added to UPGRADE_ITEM_FACTORY for the image that lies on the factory volume. */
#define UPGRADE_ITEM_FACTORY_VOLUME_FLAG 0x10000u

/* UpgradeRequest.source: where the data comes from. */
enum {
  UPGRADE_SOURCE_NONE = 0, /* an action, or a secure-boot image that lies in flash */
  UPGRADE_SOURCE_FILE = 1, /* a local file */
  UPGRADE_SOURCE_TFTP = 2, /* a URL that begins with "tftp://" */
};

/* UpgradeRequest.partition: the target of UPGRADE_ITEM_SYSPART. */
enum {
  UPGRADE_PARTITION_BOOT0 = 1,
  UPGRADE_PARTITION_BOOT1 = 2,
  UPGRADE_PARTITION_BOOT2 = 3,
  UPGRADE_PARTITION_UBOOT = 4,
  UPGRADE_PARTITION_FDT = 7,
  UPGRADE_PARTITION_KERNEL0 = 10,
  UPGRADE_PARTITION_KERNEL1 = 11,
  UPGRADE_PARTITION_LOG = 12,
  UPGRADE_PARTITION_SYS0 = 80,
  UPGRADE_PARTITION_SYS1 = 81,
  UPGRADE_PARTITION_MODEL = 82,
  UPGRADE_PARTITION_CFG = 83,
  UPGRADE_PARTITION_FACTORY = 84,
  UPGRADE_PARTITION_CFG1 = 86,
};

/* The cookie that every request of this system carries. */
#define UPGRADE_COOKIE 0x12345678u

/* The most that a CPLD image may hold. */
#define RIG_CPLD_IMAGE_MAX 262144

/* What the engine tells while it works. */
typedef struct UpgradeProgress {
  int32_t error_code; /*  0: 0, or the engine's own code of what failed */
  uint32_t progress;  /*  4: per cent */
  int32_t item;       /*  8: the request's item */
  char status[];      /* 12: NUL-terminated text; its room is the engine's business */
} UpgradeProgress;

static_assert(offsetof(UpgradeProgress, progress) == 4, "second word");
static_assert(offsetof(UpgradeProgress, item) == 8, "third word");
static_assert(offsetof(UpgradeProgress, status) == 12, "directly after the three words");

/* Called by the engine in the caller's thread. `cookie` is the request's. The result is ignored by
 * this library; return 0. */
typedef int (*UpgradeCallback)(uint32_t cookie, const UpgradeProgress *progress);

/* One upgrade. Zero it before setting fields: reserved bytes must be 0. Offsets are the board's,
 * whose pointers have four bytes. */
typedef struct UpgradeRequest {
  uint32_t item;              /*  0: UPGRADE_ITEM_... */
  uint32_t source;            /*  4: UPGRADE_SOURCE_... */
  uint32_t partition;         /*  8: UPGRADE_PARTITION_... for UPGRADE_ITEM_SYSPART, else 0 */
  uint8_t reserved[20];       /* 12 */
  UpgradeCallback callback;   /* 32: null for none */
  uint32_t cookie;            /* 36: handed to the callback */
  const char *path;           /* 40: file name or URL, null for actions */
  uint8_t reserved_tail[252]; /* 44 */
} UpgradeRequest;

static_assert(offsetof(UpgradeRequest, callback) == 32,
              "the words before it are the same everywhere");
static_assert(sizeof(void *) != 4 || sizeof(UpgradeRequest) == 296, "size on the board");
static_assert(sizeof(void *) != 4 || offsetof(UpgradeRequest, cookie) == 36, "offset on the board");
static_assert(sizeof(void *) != 4 || offsetof(UpgradeRequest, path) == 40, "offset on the board");
static_assert(sizeof(void *) != 4 || offsetof(UpgradeRequest, reserved_tail) == 44,
              "offset on the board");

/* Runs one upgrade or action to its end in the calling thread, telling the callback how far it is.
 * Returns 0, else one of the engine's own error codes, which the last progress also carries.
 *
 * The source is checked (it exists, can be read, is not empty, fits the target) before anything is
 * written. The target is the MTD partition that the map names for the item or the partition; bad
 * blocks are skipped; what was written is read back and compared. "tftp://" sources are fetched
 * through libcurl. */
RIG_API int rig_upgrade(UpgradeRequest *request);

/* Ends every running upgrade between two blocks, those of other processes too. Returns 0, also when
 * none is running. May be called from another thread. */
RIG_API int rig_upgrade_stop_all(void);

/* Programs CPLD `index` (0 is the only one) with `size` bytes of `image`, 1 to RIG_CPLD_IMAGE_MAX.
 *
 * Goes through the kernel's firmware upload class, map key `cpld`: EBUSY while another one runs,
 * EFBIG for an image that is too long, EBADMSG for one that the driver does not take, ETIMEDOUT
 * when it does not come to an end, ECANCELED when someone cancelled it, EIO when programming
 * failed. A failure that may leave the CPLD half programmed is also told on standard error. */
RIG_API int rig_upgrade_burn_cpld(int index, const void *image, int size);

#ifdef __cplusplus
}
#endif

#endif
