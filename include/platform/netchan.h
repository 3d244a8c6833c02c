/* The board's switched Ethernet channels and their power sourcing.
 *
 * Channel `n` is the network interface of map key `netchan.N`, counted from 0. */

#ifndef PLATFORM_NETCHAN_H
#define PLATFORM_NETCHAN_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

#define NETCHAN_LINK_WORDS 8
#define NETCHAN_STATUS_LINK_UP 0x1u /* NetChanStatus.status */

/* Mode masks (supported, advertising, setting) have the bits of SUPPORTED_... and ADVERTISED_... in
 * linux/ethtool.h. */

typedef struct NetChanAllInfo {
  uint32_t chan_num;     /*  0: number of channels */
  uint32_t link_changed; /*  4: not 0 when a link changed since the last call */
  uint32_t
      link_status[NETCHAN_LINK_WORDS]; /*  8: bit n % 32 of word n / 32 is channel n, 1 for up */
  uint8_t reserved[88];                /* 40 */
} NetChanAllInfo;

static_assert(sizeof(NetChanAllInfo) == 128, "record size");
static_assert(offsetof(NetChanAllInfo, link_changed) == 4, "record offset");
static_assert(offsetof(NetChanAllInfo, link_status) == 8, "record offset");
static_assert(offsetof(NetChanAllInfo, reserved) == 40, "record offset");

typedef struct NetChanStatus {
  uint32_t channel;     /*  0 */
  char ifname[16];      /*  4: NUL-terminated */
  uint32_t supported;   /* 20: mode mask */
  uint32_t advertising; /* 24: mode mask */
  uint32_t speed;       /* 28: Mbit/s */
  uint32_t duplex;      /* 32: 0 half, 1 full, 255 unknown */
  uint32_t setting;     /* 36: mode mask */
  uint32_t status;      /* 40: NETCHAN_STATUS_LINK_UP */
} NetChanStatus;

static_assert(sizeof(NetChanStatus) == 44, "record size");
static_assert(offsetof(NetChanStatus, ifname) == 4, "record offset");
static_assert(offsetof(NetChanStatus, supported) == 20, "record offset");
static_assert(offsetof(NetChanStatus, advertising) == 24, "record offset");
static_assert(offsetof(NetChanStatus, speed) == 28, "record offset");
static_assert(offsetof(NetChanStatus, duplex) == 32, "record offset");
static_assert(offsetof(NetChanStatus, setting) == 36, "record offset");
static_assert(offsetof(NetChanStatus, status) == 40, "record offset");

typedef struct NetChanSetting {
  uint32_t speed;   /* 0: Mbit/s */
  uint32_t duplex;  /* 4: 0 half, 1 full, 255 unknown */
  uint32_t setting; /* 8: mode mask */
} NetChanSetting;

static_assert(sizeof(NetChanSetting) == 12, "record size");
static_assert(offsetof(NetChanSetting, duplex) == 4, "record offset");
static_assert(offsetof(NetChanSetting, setting) == 8, "record offset");

/* NetChanPseStatus.opermode */
enum {
  NETCHAN_PSE_OFF = 0,
  NETCHAN_PSE_AUTO = 1,
  NETCHAN_PSE_SEMIAUTO = 2,
  NETCHAN_PSE_MANUAL = 3,
  NETCHAN_PSE_DIAGNOSTIC = 4,
  NETCHAN_PSE_SCAN = 5,
};

typedef struct NetChanPseStatus {
  uint32_t reserved;      /*  0 */
  uint8_t opermode;       /*  4: NETCHAN_PSE_... */
  uint8_t detect_enable;  /*  5: 1 when powered devices are looked for */
  uint8_t detection;      /*  6: result code of the detection */
  uint8_t class_enable;   /*  7: 1 when powered devices are classified */
  uint8_t classification; /*  8: class of the powered device, 0 to 4 */
  uint8_t is_power_onoff; /*  9: 1 while the port is powered */
  uint8_t is_icut;        /* 10: 1 after a cut for too much current */
  uint8_t alignment;      /* 11 */
  uint32_t voltage;       /* 12: microvolts */
  uint32_t icurrent;      /* 16: microamperes */
} NetChanPseStatus;

static_assert(sizeof(NetChanPseStatus) == 20, "record size");
static_assert(offsetof(NetChanPseStatus, opermode) == 4, "record offset");
static_assert(offsetof(NetChanPseStatus, detect_enable) == 5, "record offset");
static_assert(offsetof(NetChanPseStatus, detection) == 6, "record offset");
static_assert(offsetof(NetChanPseStatus, class_enable) == 7, "record offset");
static_assert(offsetof(NetChanPseStatus, classification) == 8, "record offset");
static_assert(offsetof(NetChanPseStatus, is_power_onoff) == 9, "record offset");
static_assert(offsetof(NetChanPseStatus, is_icut) == 10, "record offset");
static_assert(offsetof(NetChanPseStatus, voltage) == 12, "record offset");
static_assert(offsetof(NetChanPseStatus, icurrent) == 16, "record offset");

/* Number of channels and the links that are up. The caller has zeroed the record. 0 or more for
 * success, -1 with errno.
 *
 * IFF_RUNNING of every channel's interface. */
RIG_API int rig_netchan_allinfo(NetChanAllInfo *info);

/* What one channel can do, advertises, has negotiated and is set to. 0 or more for success, -1 with
 * errno: ENODEV when there is no such channel.
 *
 * ETHTOOL_GLINKSETTINGS and IFF_RUNNING of the interface. */
RIG_API int rig_netchan_get_status(uint32_t channel, NetChanStatus *status);

/* What one channel is set to. 0 or more for success, -1 with errno.
 *
 * ETHTOOL_GLINKSETTINGS. */
RIG_API int rig_netchan_get_setting(uint32_t channel, NetChanSetting *setting);

/* The power sourcing of one channel. 0 or more for success, -1 with errno: EOPNOTSUPP for a channel
 * that feeds nothing.
 *
 * The PSE commands of ethtool's netlink family. */
RIG_API int rig_netchan_get_psestatus(uint32_t channel, NetChanPseStatus *status);

#ifdef __cplusplus
}
#endif

#endif
