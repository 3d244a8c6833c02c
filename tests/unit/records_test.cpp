// The records and request numbers that the toolbox exchanges with drivers, with the kernel and with
// librigcore: every size, offset and number as the interface lists them, typed here a second time.

#include "platform/applets.h"
#include "platform/board_io.h"
#include "platform/boot_blocks.h"
#include "platform/device_tree.h"
#include "platform/driver/gyro.h"
#include "platform/driver/iccard.h"
#include "platform/driver/korcmem.h"
#include "platform/driver/korio.h"
#include "platform/driver/korstorage.h"
#include "platform/driver/lcd.h"
#include "platform/driver/mouse.h"
#include "platform/mdio.h"
#include "platform/netchan.h"
#include "platform/power.h"
#include "platform/sata.h"
#include "platform/serial_port.h"
#include "platform/storage.h"
#include "platform/uenv.h"
#include "platform/upgrade.h"
#include "platform/versions.h"

#include <linux/cn_proc.h>
#include <linux/connector.h>
#include <linux/ethtool.h>
#include <linux/hdreg.h>
#include <linux/mii.h>
#include <linux/netlink.h>
#include <linux/rtc.h>
#include <linux/sockios.h>
#include <linux/watchdog.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

namespace {

struct Fact {
  const char *what;
  std::uint64_t actual;
  std::uint64_t expected;
};

void expect_all(const Fact *facts, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    EXPECT_EQ(facts[i].actual, facts[i].expected) << facts[i].what;
  }
}

template <std::size_t kCount>
void expect_all(const Fact (&facts)[kCount]) {
  expect_all(facts, kCount);
}

// clang-format off

// Request numbers are compared in 32 bits: on a 64-bit PC the kernel's macros are wider.
#define NUMBER(request, expected) {#request, static_cast<std::uint32_t>(request), expected}
#define SIZE(record, expected) {"size of " #record, sizeof(record), expected}
#define AT(record, field, expected) {#record "." #field, offsetof(record, field), expected}
#define VALUE(constant, expected) {#constant, static_cast<std::uint64_t>(constant), expected}

// The board's drivers.

TEST(Records, GyroRequestsAndRecords) {
  const Fact facts[] = {
      NUMBER(HAT_GYRO_INIT, 0x80045901),
      NUMBER(HAT_GYRO_TMR_SET, 0x40045902),
      NUMBER(HAT_GYRO_READ_CONFIG, 0x80045905),
      NUMBER(HAT_GYRO_SET_RNG, 0x40045906),
      NUMBER(HAT_GYRO_WOM_SET, 0x40045907),
      SIZE(GyroIdentity, 36),
      AT(GyroIdentity, name, 0),
      AT(GyroIdentity, type, 32),
      SIZE(GyroConfig, 5 * 4),
      AT(GyroConfig, poll_ms, 0),
      AT(GyroConfig, accel_g, 4),
      AT(GyroConfig, gyro_dps, 8),
      AT(GyroConfig, wake_on_motion, 12),
      AT(GyroConfig, reserved, 16),
      SIZE(GyroSample, 28),
      AT(GyroSample, accel, 0),
      AT(GyroSample, gyro, 6),
      AT(GyroSample, unused, 12),
      AT(GyroSample, seconds, 20),
      AT(GyroSample, microseconds, 24),
  };
  expect_all(facts);
  EXPECT_STREQ(GYRO_DEVICE, "/dev/gyro");
}

TEST(Records, IccardRequestsBothEncodeWrite) {
  const Fact facts[] = {
      NUMBER(HAL_ICCARD_READ, 0x40044901),
      NUMBER(HAL_ICCARD_WRITE, 0x40044902),
      VALUE(ICCARD_SIZE, 256),
  };
  expect_all(facts);
  EXPECT_STREQ(ICCARD_DEVICE, "/dev/iccard");
}

TEST(Records, LcdRequestsAndGeometry) {
  const Fact facts[] = {
      NUMBER(LCD_SET_CMD_WRITE, 0x40044C80),
      NUMBER(LCD_SET_DATA_WRITE, 0x40044C81),
      NUMBER(LCD_SET_BACKLIGHT, 0x40044C82),
      VALUE(LCD_COLUMNS, 128),
      VALUE(LCD_PAGES, 8),
      VALUE(LCD_FRAME_SIZE, 1024),
      VALUE(LCD_BACKLIGHT_ON, 0),
      VALUE(LCD_BACKLIGHT_OFF, 1),
  };
  expect_all(facts);
  EXPECT_STREQ(LCD_DEVICE, "/dev/lcd");
}

TEST(Records, KorioRequestsAndRecord) {
  const Fact facts[] = {
      NUMBER(HAL_GPIO_DIR_INPUT, 0x40044701),
      NUMBER(HAL_GPIO_DIR_OUTPUT, 0x40044702),
      NUMBER(HAL_GPIO_GET_VALUE, 0x80044703),
      NUMBER(HAT_PIN_SET_PINMUX, 0x40044705),
      NUMBER(HAT_PIN_GET_PINMUX, 0x80044706),
      NUMBER(HAT_PIN_SET_PULL, 0x40044707),
      NUMBER(HAT_PIN_GET_PULL, 0x80044708),
      VALUE(HAT_PIN_PULL_UP, 1),
      VALUE(HAT_PIN_PULL_DOWN, 2),
      SIZE(KorioRecord, 8),
      AT(KorioRecord, number, 0),
      AT(KorioRecord, value, 4),
  };
  expect_all(facts);
  EXPECT_STREQ(KORIO_DEVICE, "/dev/korio");
}

TEST(Records, KorstorageRequests) {
  const Fact facts[] = {
      NUMBER(STOR_CMD_GET, 0x80045301),
      NUMBER(STOR_CMD_SCAN_DONE, 0x80045303),
      NUMBER(STOR_CMD_HD_RESET_STATUS, 0x80045305),
      NUMBER(STOR_CMD_ERR_REQ, 0x80045306),
      NUMBER(STOR_CMD_TRIM_SUPPORT, 0x80045307),
      NUMBER(STOR_CMD_TRACE_DEVICE_START, 0x8004530B),
      NUMBER(STOR_CMD_TRACE_DEVICE_STOP, 0x8004530C),
      NUMBER(STOR_CMD_TRACE_READ, 0x8004530D),
  };
  expect_all(facts);
  EXPECT_STREQ(KORSTORAGE_DEVICE, "/dev/korstorage");
}

// The 54 words in the driver's order, and what is left of the 228 bytes.
TEST(Records, KorstorageStatisticsHas54WordsInOrder) {
  const Fact facts[] = {
      SIZE(StorStatistics, 228),
      AT(StorStatistics, read_err, 4 * 0),
      AT(StorStatistics, write_err, 4 * 1),
      AT(StorStatistics, key_area_err, 4 * 2),
      AT(StorStatistics, lba_overflow, 4 * 3),
      AT(StorStatistics, no_ready, 4 * 4),
      AT(StorStatistics, bsy_count, 4 * 5),
      AT(StorStatistics, drq_set_err, 4 * 6),
      AT(StorStatistics, hd_status, 4 * 7),
      AT(StorStatistics, retry_cmd_count, 4 * 8),
      AT(StorStatistics, abort_cmd_count, 4 * 9),
      AT(StorStatistics, cmd_aborted, 4 * 10),
      AT(StorStatistics, cmd_over_unknown, 4 * 11),
      AT(StorStatistics, cmd_over_err, 4 * 12),
      AT(StorStatistics, bad_scsi_cmd_param, 4 * 13),
      AT(StorStatistics, ua_reset, 4 * 14),
      AT(StorStatistics, ua_param_changed, 4 * 15),
      AT(StorStatistics, queue_full, 4 * 16),
      AT(StorStatistics, over_run, 4 * 17),
      AT(StorStatistics, under_run, 4 * 18),
      AT(StorStatistics, parity_err, 4 * 19),
      AT(StorStatistics, bad_scsi_cmd_result, 4 * 20),
      AT(StorStatistics, unreported, 4 * 21),
      AT(StorStatistics, recoverable_err, 4 * 22),
      AT(StorStatistics, device_fault, 4 * 23),
      AT(StorStatistics, serr_int, 4 * 24),
      AT(StorStatistics, link_ctl_rx_err, 4 * 25),
      AT(StorStatistics, link_ctl_tx_err, 4 * 26),
      AT(StorStatistics, recov_data, 4 * 27),
      AT(StorStatistics, recov_comm, 4 * 28),
      AT(StorStatistics, unrecov_data, 4 * 29),
      AT(StorStatistics, persist, 4 * 30),
      AT(StorStatistics, proto, 4 * 31),
      AT(StorStatistics, host_int, 4 * 32),
      AT(StorStatistics, phy_rdy_chg, 4 * 33),
      AT(StorStatistics, phy_int, 4 * 34),
      AT(StorStatistics, comm_wake, 4 * 35),
      AT(StorStatistics, serr_10b_8b, 4 * 36),
      AT(StorStatistics, dispar, 4 * 37),
      AT(StorStatistics, bad_crc, 4 * 38),
      AT(StorStatistics, handshk, 4 * 39),
      AT(StorStatistics, link_seq, 4 * 40),
      AT(StorStatistics, tr_sta_trns, 4 * 41),
      AT(StorStatistics, unrec_fis, 4 * 42),
      AT(StorStatistics, dev_exch, 4 * 43),
      AT(StorStatistics, host_bus_error, 4 * 44),
      AT(StorStatistics, ata_bus_error, 4 * 45),
      AT(StorStatistics, time_out_error, 4 * 46),
      AT(StorStatistics, hsm_violation, 4 * 47),
      AT(StorStatistics, system_error, 4 * 48),
      AT(StorStatistics, media_error, 4 * 49),
      AT(StorStatistics, invalid_argument, 4 * 50),
      AT(StorStatistics, device_error, 4 * 51),
      AT(StorStatistics, unknown_error, 4 * 52),
      AT(StorStatistics, access_time, 4 * 53),
      AT(StorStatistics, reserved, 4 * 54),
      VALUE(STOR_HD_ABNORMAL, 3),
      VALUE(STOR_HD_IDLE, 4),
  };
  expect_all(facts);
}

TEST(Records, KorstorageSmallRecords) {
  const Fact facts[] = {
      AT(StorWord, value, 0),
      SIZE(StorResetStatus, 268),
      AT(StorResetStatus, count, 0),
      AT(StorResetStatus, last_time, 4),
      SIZE(StorErrorRequest, 32),
      AT(StorErrorRequest, err_type, 0),
      AT(StorErrorRequest, err_count, 4),
      AT(StorErrorRequest, cmd_type, 8),
      AT(StorErrorRequest, unreported, 12),
      AT(StorErrorRequest, sector, 16),
      {"width of StorErrorRequest.sector", sizeof(StorErrorRequest::sector), 8},
  };
  expect_all(facts);
}

TEST(Records, KorstorageTrace) {
  const Fact facts[] = {
      SIZE(StorTraceStart, 32 + 4 + 4),
      AT(StorTraceStart, name, 0),
      AT(StorTraceStart, handle, 32),
      AT(StorTraceStart, option, 36),
      VALUE(STOR_TRACE_OPTION, 0x180),
      SIZE(StorTraceEvent, 136),
      AT(StorTraceEvent, handle, 0),
      AT(StorTraceEvent, magic, 8),
      AT(StorTraceEvent, sequence, 12),
      AT(StorTraceEvent, time, 16),
      AT(StorTraceEvent, sector, 24),
      AT(StorTraceEvent, bytes, 32),
      AT(StorTraceEvent, action, 36),
      AT(StorTraceEvent, pid, 40),
      AT(StorTraceEvent, device, 44),
      AT(StorTraceEvent, cpu, 48),
      AT(StorTraceEvent, error, 52),
      AT(StorTraceEvent, payload_length, 54),
      AT(StorTraceEvent, payload, 56),
      VALUE(STOR_TRACE_WRITE, 0x20000),
      VALUE(STOR_TRACE_FLUSH, 0x40000),
      VALUE(STOR_TRACE_SYNC, 0x80000),
      VALUE(STOR_TRACE_AHEAD, 0x8000000),
      VALUE(STOR_TRACE_META, 0x10000000),
      VALUE(STOR_TRACE_DISCARD, 0x20000000),
      VALUE(STOR_TRACE_FUA, 0x80000000),
  };
  expect_all(facts);
}

TEST(Records, KorcmemRequestsAndRecords) {
  const Fact facts[] = {
      NUMBER(KORCMEM_CMEMINFO, 0xC0806D01),
      NUMBER(KORCMEM_RELEASE, 0xC0406D0C),
      NUMBER(KORCMEM_PAGE_FREE, 0xC0206D14),
      NUMBER(KORCMEM_FINISH, 0xC0046D1E),
      SIZE(CmemInfo, 128),
      AT(CmemInfo, id, 0),
      AT(CmemInfo, name, 4),
      AT(CmemInfo, padding, 68),
      AT(CmemInfo, base, 72),
      AT(CmemInfo, size, 80),
      AT(CmemInfo, reserved, 88),
      SIZE(CmemRange, 64),
      AT(CmemRange, base, 0),
      AT(CmemRange, size, 8),
      AT(CmemRange, id, 16),
      SIZE(CmemPages, 32),
      AT(CmemPages, id, 0),
      VALUE(KORCMEM_ID_MIN, 10),
      VALUE(KORCMEM_ID_MAX, 15),
  };
  expect_all(facts);
  EXPECT_STREQ(KORCMEM_DEVICE, "/dev/korcmem");
}

TEST(Records, MouseEventIsTheBoards16BytesOnEveryBuild) {
  const Fact facts[] = {
      SIZE(MouseEvent, 16),
      AT(MouseEvent, seconds, 0),
      AT(MouseEvent, microseconds, 4),
      AT(MouseEvent, type, 8),
      AT(MouseEvent, code, 10),
      AT(MouseEvent, value, 12),
  };
  expect_all(facts);
  EXPECT_STREQ(MOUSE_DEVICE, "/dev/input/event0");
}

// librigcore.

TEST(Records, UpgradeRequestKeepsItsFieldsInOrder) {
  const Fact everywhere[] = {
      AT(UpgradeRequest, item, 0),
      AT(UpgradeRequest, source, 4),
      AT(UpgradeRequest, partition, 8),
      AT(UpgradeRequest, reserved, 12),
      {"reserved bytes", sizeof(UpgradeRequest::reserved), 20},
      AT(UpgradeRequest, callback, 32),
      AT(UpgradeRequest, cookie, 32 + sizeof(void *)),
      {"reserved tail", sizeof(UpgradeRequest::reserved_tail), 252},
      AT(UpgradeProgress, error_code, 0),
      AT(UpgradeProgress, progress, 4),
      AT(UpgradeProgress, item, 8),
      AT(UpgradeProgress, status, 12),
      VALUE(UPGRADE_COOKIE, 0x12345678),
  };
  expect_all(everywhere);
  EXPECT_LT(offsetof(UpgradeRequest, cookie), offsetof(UpgradeRequest, path));
  EXPECT_LT(offsetof(UpgradeRequest, path), offsetof(UpgradeRequest, reserved_tail));
  if (sizeof(void *) == 4) {
    const Fact board[] = {
        SIZE(UpgradeRequest, 296),
        AT(UpgradeRequest, cookie, 36),
        AT(UpgradeRequest, path, 40),
        AT(UpgradeRequest, reserved_tail, 44),
    };
    expect_all(board);
  }
}

TEST(Records, UpgradeCodes) {
  const Fact facts[] = {
      VALUE(UPGRADE_ITEM_FACTORY, 1),
      VALUE(UPGRADE_ITEM_FWBUNDLE, 2),
      VALUE(UPGRADE_ITEM_BOOTLOADER, 3),
      VALUE(UPGRADE_ITEM_KERNEL, 4),
      VALUE(UPGRADE_ITEM_MCU, 5),
      VALUE(UPGRADE_ITEM_BACKUP, 6),
      VALUE(UPGRADE_ITEM_RESTORE, 7),
      VALUE(UPGRADE_ITEM_SYNC, 8),
      VALUE(UPGRADE_ITEM_MAINT, 9),
      VALUE(UPGRADE_ITEM_SECBOOT, 10),
      VALUE(UPGRADE_ITEM_SYSPART, 11),
      VALUE(UPGRADE_ITEM_FACTORY | UPGRADE_ITEM_FACTORY_VOLUME_FLAG, 0x10001),
      VALUE(UPGRADE_SOURCE_NONE, 0),
      VALUE(UPGRADE_SOURCE_FILE, 1),
      VALUE(UPGRADE_SOURCE_TFTP, 2),
      VALUE(UPGRADE_PARTITION_BOOT0, 1),
      VALUE(UPGRADE_PARTITION_BOOT1, 2),
      VALUE(UPGRADE_PARTITION_BOOT2, 3),
      VALUE(UPGRADE_PARTITION_UBOOT, 4),
      VALUE(UPGRADE_PARTITION_FDT, 7),
      VALUE(UPGRADE_PARTITION_KERNEL0, 10),
      VALUE(UPGRADE_PARTITION_KERNEL1, 11),
      VALUE(UPGRADE_PARTITION_LOG, 12),
      VALUE(UPGRADE_PARTITION_SYS0, 80),
      VALUE(UPGRADE_PARTITION_SYS1, 81),
      VALUE(UPGRADE_PARTITION_MODEL, 82),
      VALUE(UPGRADE_PARTITION_CFG, 83),
      VALUE(UPGRADE_PARTITION_CFG1, 86),
      VALUE(UPGRADE_PARTITION_FACTORY, 84),
      VALUE(RIG_CPLD_IMAGE_MAX, 0x40000),
  };
  expect_all(facts);
}

TEST(Records, BootBlocksVersionsAndEnvironmentSizes) {
  const Fact facts[] = {
      VALUE(RIG_BOOTPARAM_SIZE, 256),
      VALUE(RIG_HARDINFO_SIZE, 256),
      VALUE(RIG_BOOTPARAM_COUNTER, 250),
      VALUE(RIG_UENV_KEY_SIZE, 64),
      VALUE(RIG_UENV_VALUE_SIZE, 256),
      VALUE(RIG_VERSION_TEXT_SIZE, 256),
      VALUE(RIG_FEATURE_FACTORY_VOLUME, 200),
  };
  expect_all(facts);
}

TEST(Records, StorageDevices) {
  const Fact facts[] = {
      SIZE(StorDev, 32 + 4 + 4),
      AT(StorDev, name, 0),
      AT(StorDev, state, 32),
      AT(StorDev, power_state, 36),
      SIZE(StorDevList, 16 * 40 + 4),
      AT(StorDevList, devices, 0),
      AT(StorDevList, count, 640),
      VALUE(STOR_OFFLINE, 0),
      VALUE(STOR_ONLINE, 1),
      VALUE(STOR_ERROR, 2),
      VALUE(STOR_DAMAGE, 3),
      VALUE(STOR_DET, 4),
      VALUE(STOR_FS_PANIC, 5),
      VALUE(STOR_READONLY, 6),
      VALUE(STOR_POWEROFF, 0),
      VALUE(STOR_POWERUP, 1),
  };
  expect_all(facts);
}

TEST(Records, NetworkChannels) {
  const Fact facts[] = {
      SIZE(NetChanAllInfo, 128),
      AT(NetChanAllInfo, chan_num, 0),
      AT(NetChanAllInfo, link_changed, 4),
      AT(NetChanAllInfo, link_status, 8),
      AT(NetChanAllInfo, reserved, 8 + 8 * 4),
      SIZE(NetChanStatus, 44),
      AT(NetChanStatus, channel, 0),
      AT(NetChanStatus, ifname, 4),
      AT(NetChanStatus, supported, 20),
      AT(NetChanStatus, advertising, 24),
      AT(NetChanStatus, speed, 28),
      AT(NetChanStatus, duplex, 32),
      AT(NetChanStatus, setting, 36),
      AT(NetChanStatus, status, 40),
      SIZE(NetChanSetting, 12),
      AT(NetChanSetting, speed, 0),
      AT(NetChanSetting, duplex, 4),
      AT(NetChanSetting, setting, 8),
      SIZE(NetChanPseStatus, 20),
      AT(NetChanPseStatus, opermode, 4),
      AT(NetChanPseStatus, detect_enable, 5),
      AT(NetChanPseStatus, detection, 6),
      AT(NetChanPseStatus, class_enable, 7),
      AT(NetChanPseStatus, classification, 8),
      AT(NetChanPseStatus, is_power_onoff, 9),
      AT(NetChanPseStatus, is_icut, 10),
      AT(NetChanPseStatus, voltage, 12),
      AT(NetChanPseStatus, icurrent, 16),
      VALUE(NETCHAN_STATUS_LINK_UP, 1),
      VALUE(NETCHAN_PSE_OFF, 0),
      VALUE(NETCHAN_PSE_AUTO, 1),
      VALUE(NETCHAN_PSE_SEMIAUTO, 2),
      VALUE(NETCHAN_PSE_MANUAL, 3),
      VALUE(NETCHAN_PSE_DIAGNOSTIC, 4),
      VALUE(NETCHAN_PSE_SCAN, 5),
  };
  expect_all(facts);
}

TEST(Records, DecodedIdentityKeepsItsFieldsInOrder) {
  const Fact facts[] = {
      AT(IdentifyInfo, sectors, 0),
      AT(IdentifyInfo, bytes, 8),
      AT(IdentifyInfo, logical_sector_size, 16),
      AT(IdentifyInfo, physical_sector_size, 20),
      AT(IdentifyInfo, sata_version, 24),
      AT(IdentifyInfo, max_speed, 24 + sizeof(void *)),
      AT(IdentifyInfo, current_speed, 28 + sizeof(void *)),
      AT(IdentifyInfo, trim_flags, 32 + sizeof(void *)),
      AT(IdentifyInfo, trim_count, 36 + sizeof(void *)),
      VALUE(RIG_ATA_TRIM_SUPPORTED, 1 << 2),
      VALUE(RIG_ATA_TRIM_DETERMINISTIC, 1 << 1),
      VALUE(RIG_ATA_TRIM_ZERO, 1 << 0),
      VALUE(RIG_STORE_FAMILY_A, 2),
      VALUE(RIG_STORE_FAMILY_B, 1),
      VALUE(RIG_ATA_SECTOR_SIZE, 512),
  };
  expect_all(facts);
}

TEST(Records, OverlayPropertyAndAppletRowKeepTheirFieldsInOrder) {
  EXPECT_EQ(offsetof(DtbOverlayProp, node), 0u);
  EXPECT_EQ(offsetof(DtbOverlayProp, name), sizeof(void *));
  EXPECT_EQ(offsetof(DtbOverlayProp, type), 2 * sizeof(void *));
  EXPECT_LT(offsetof(DtbOverlayProp, type), offsetof(DtbOverlayProp, value));
  EXPECT_LT(offsetof(DtbOverlayProp, value), offsetof(DtbOverlayProp, length));
  EXPECT_EQ(DTB_PROP_STRING, 1);
  EXPECT_EQ(DTB_PROP_CELLS, 2);
  EXPECT_EQ(offsetof(AppletEntry, name), 0u);
  EXPECT_EQ(offsetof(AppletEntry, handler), sizeof(void *));
  EXPECT_EQ(offsetof(AppletEntry, group), 2 * sizeof(void *));
  EXPECT_LT(offsetof(AppletEntry, group), offsetof(AppletEntry, description));
  EXPECT_EQ(sizeof(AppletEntry::group), 4u);
  if (sizeof(void *) == 4) {
    EXPECT_EQ(sizeof(DtbOverlayProp), 20u);
    EXPECT_EQ(sizeof(AppletEntry), 16u);
  }
}

TEST(Records, FunctionCodesOfPowerAndReset) {
  const Fact facts[] = {
      VALUE(RIG_FUNCTION_GPU, 3),          VALUE(RIG_FUNCTION_VINSENSOR0, 30),
      VALUE(RIG_FUNCTION_VINSENSOR1, 31),  VALUE(RIG_FUNCTION_LCD0, 40),
      VALUE(RIG_FUNCTION_LCD1, 41),        VALUE(RIG_FUNCTION_LCD2, 42),
      VALUE(RIG_FUNCTION_LCD3, 43),        VALUE(RIG_FUNCTION_TV, 44),
      VALUE(RIG_FUNCTION_USB0, 50),        VALUE(RIG_FUNCTION_USB1, 51),
      VALUE(RIG_FUNCTION_USB2, 52),        VALUE(RIG_FUNCTION_USB3, 53),
      VALUE(RIG_FUNCTION_USBHUB0, 120),    VALUE(RIG_FUNCTION_USBHUB1, 121),
      VALUE(RIG_FUNCTION_USBHUB2, 122),    VALUE(RIG_FUNCTION_USBHUB3, 123),
      VALUE(RIG_FUNCTION_MODEM0, 140),     VALUE(RIG_FUNCTION_MODEM9, 149),
      VALUE(RIG_FUNCTION_SD0, 60),         VALUE(RIG_FUNCTION_SD1, 61),
      VALUE(RIG_FUNCTION_HD0, 70),         VALUE(RIG_FUNCTION_HD1, 71),
      VALUE(RIG_FUNCTION_MSA, 100),        VALUE(RIG_FUNCTION_MSB, 101),
      VALUE(RIG_FUNCTION_MSC, 102),        VALUE(RIG_FUNCTION_MSD, 103),
      VALUE(RIG_FUNCTION_SLAVE0, 300),     VALUE(RIG_FUNCTION_SLAVE1, 301),
      VALUE(RIG_FUNCTION_GSENSOR, 500),    VALUE(RIG_FUNCTION_FRONTCAMERA, 200),
      VALUE(RIG_FUNCTION_REARCAMERA, 201), VALUE(RIG_FUNCTION_LEFTCAMERA, 202),
      VALUE(RIG_FUNCTION_RIGHTCAMERA, 203), VALUE(RIG_FUNCTION_GPIOBASE, 1000),
      VALUE(RIG_FUNCTION_BT0, 210),        VALUE(RIG_FUNCTION_BT1, 211),
  };
  expect_all(facts);
}

TEST(Records, UartModesAndSwitchPorts) {
  const Fact facts[] = {
      VALUE(RIG_UART_PARITY_NONE, 0),
      VALUE(RIG_UART_PARITY_ODD, 1),
      VALUE(RIG_UART_PARITY_EVEN, 2),
      VALUE(RIG_UART_MODE_CONSOLE, 0),
      VALUE(RIG_UART_MODE_COMM, 1),
      VALUE(RTL836X_UTP_PORT0, 0),
      VALUE(RTL836X_UTP_PORT7, 7),
      VALUE(RTL836X_EXT_PORT0, 0x10),
      VALUE(RTL836X_EXT_PORT1, 0x11),
      VALUE(RTL836X_EXT_PORT2, 0x12),
      VALUE(RIG_MDIO_NO_ANSWER, 0xFFFF),
  };
  expect_all(facts);
}

// The kernel's own interfaces.

TEST(Records, KernelRequestNumbers) {
  const Fact facts[] = {
      NUMBER(RTC_RD_TIME, 0x80247009),
      NUMBER(RTC_SET_TIME, 0x4024700A),
      NUMBER(WDIOC_GETSUPPORT, 0x80285700),
      NUMBER(WDIOC_SETOPTIONS, 0x80045704),
      NUMBER(WDIOC_KEEPALIVE, 0x80045705),
      NUMBER(WDIOC_SETTIMEOUT, 0xC0045706),
      VALUE(WDIOS_DISABLECARD, 1),
      VALUE(WDIOS_ENABLECARD, 2),
      NUMBER(HDIO_DRIVE_TASKFILE, 0x031D),
      NUMBER(HDIO_DRIVE_TASK, 0x031E),
      NUMBER(HDIO_DRIVE_CMD, 0x031F),
      NUMBER(SG_IO, 0x2285),
      NUMBER(SIOCGIFADDR, 0x8915),
      NUMBER(SIOCSIFNAME, 0x8923),
      NUMBER(SIOCETHTOOL, 0x8946),
      NUMBER(SIOCGMIIPHY, 0x8947),
      NUMBER(SIOCGMIIREG, 0x8948),
      VALUE(ETHTOOL_GDRVINFO, 3),
      VALUE(NETLINK_CONNECTOR, 11),
      VALUE(CN_IDX_PROC, 1),
      VALUE(CN_VAL_PROC, 1),
      VALUE(PROC_CN_MCAST_LISTEN, 1),
      VALUE(PROC_CN_MCAST_IGNORE, 2),
  };
  expect_all(facts);
}

TEST(Records, KernelRecordSizes) {
  const Fact facts[] = {
      SIZE(rtc_time, 36),
      SIZE(watchdog_info, 40),
      SIZE(sockaddr_nl, 12),
      SIZE(nlmsghdr, 16),
      SIZE(cn_msg, 20),
      SIZE(mii_ioctl_data, 8),
      AT(mii_ioctl_data, val_out, 6),
      {"size of ide_task_request_t", sizeof(ide_task_request_t), sizeof(long) == 4 ? 40u : 48u},
      {"size of sg_io_hdr", sizeof(sg_io_hdr), sizeof(void *) == 4 ? 64u : 88u},
  };
  expect_all(facts);
}

// clang-format on

}  // namespace
