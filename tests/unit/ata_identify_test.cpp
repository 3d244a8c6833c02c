// What librigcore decodes of IDENTIFY DEVICE data, and how it tells drive families.

#include "platform/sata.h"

#include <errno.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <fstream>
#include <string>

namespace {

struct Identify {
  std::array<std::uint8_t, 512> bytes = {};

  Identify &word(std::size_t index, unsigned int value) {
    bytes[2 * index] = static_cast<std::uint8_t>(value);
    bytes[2 * index + 1] = static_cast<std::uint8_t>(value >> 8);
    return *this;
  }
  IdentifyInfo decode() const {
    IdentifyInfo info;
    EXPECT_EQ(rig_ata_get_identify_info(bytes.data(), &info), 0);
    return info;
  }
};

TEST(AtaIdentify, nothing_told_is_nothing) {
  const IdentifyInfo info = Identify().decode();
  EXPECT_EQ(info.sectors, 0u);
  EXPECT_EQ(info.bytes, 0u);
  EXPECT_EQ(info.logical_sector_size, 0u);
  EXPECT_EQ(info.physical_sector_size, 0u);
  EXPECT_STREQ(info.sata_version, "");
  EXPECT_EQ(info.max_speed, 0u);
  EXPECT_EQ(info.current_speed, 0u);
  EXPECT_EQ(info.trim_flags, 0u);
  EXPECT_EQ(info.trim_count, 0u);
}

TEST(AtaIdentify, null_arguments) {
  IdentifyInfo info;
  errno = 0;
  EXPECT_EQ(rig_ata_get_identify_info(nullptr, &info), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(rig_ata_get_identify_info(Identify().bytes.data(), nullptr), -1);
}

TEST(AtaIdentify, sectors_by_the_widest_addresses_that_the_drive_has) {
  Identify drive;
  drive.word(1, 1000).word(3, 16).word(6, 63);
  EXPECT_EQ(drive.decode().sectors, 1000u * 16 * 63);
  drive.word(49, 0x0200).word(60, 0x5678).word(61, 0x0234);
  drive.word(59, 0x0110).word(62, 0x0007).word(63, 0x0407);  // transfer modes, no sectors
  EXPECT_EQ(drive.decode().sectors, 0x02345678u);
  drive.word(83, 0x4400).word(100, 0x1111).word(101, 0x2222).word(102, 0x3333).word(103, 0);
  EXPECT_EQ(drive.decode().sectors, 0x333322221111u);
  drive.word(103, 0x4444);
  EXPECT_EQ(drive.decode().sectors, 0x4444333322221111u);
  drive.word(83, 0x0400);  // a word that is not valid says nothing
  EXPECT_EQ(drive.decode().sectors, 0x02345678u);
  drive.word(83, 0x4400).word(69, 0x0008).word(230, 0x0005).word(232, 0x0001);
  EXPECT_EQ(drive.decode().sectors, 0x100000005u);
}

TEST(AtaIdentify, words_have_no_sign) {
  Identify drive;
  drive.word(1, 0x8001).word(3, 0x80FF).word(6, 0xFF80);
  EXPECT_EQ(drive.decode().sectors, std::uint64_t{0x8001} * 0x80FF * 0xFF80);
  drive.word(49, 0x0200).word(60, 0x80FF).word(61, 0xFE80);
  EXPECT_EQ(drive.decode().sectors, 0xFE8080FFu);
  drive.word(169, 1).word(105, 0x80FF);
  EXPECT_EQ(drive.decode().trim_count, 0x80FFu);
}

TEST(AtaIdentify, sector_sizes) {
  Identify drive;
  drive.word(49, 0x0200).word(60, 1000);
  EXPECT_EQ(drive.decode().logical_sector_size, 512u);
  EXPECT_EQ(drive.decode().physical_sector_size, 512u);
  drive.word(106, 0x6003);
  EXPECT_EQ(drive.decode().logical_sector_size, 512u);
  EXPECT_EQ(drive.decode().physical_sector_size, 4096u);
  drive.word(106, 0x4003);  // bit 13 clear: one logical sector in each
  EXPECT_EQ(drive.decode().physical_sector_size, 512u);
  drive.word(106, 0x5000).word(117, 2048);
  EXPECT_EQ(drive.decode().logical_sector_size, 4096u);
  EXPECT_EQ(drive.decode().physical_sector_size, 4096u);
  EXPECT_EQ(drive.decode().bytes, 4096000u);
  drive.word(117, 0).word(118, 1);
  EXPECT_EQ(drive.decode().logical_sector_size, 0x20000u);
  drive.word(106, 0xFFFF);
  EXPECT_EQ(drive.decode().logical_sector_size, 512u);
}

TEST(AtaIdentify, sata_versions) {
  struct {
    unsigned int w222;
    const char *version;
  } const cases[] = {
      {0x1001, "ATA8-AST"}, {0x1003, "SATA 1.0a"}, {0x1007, "SATA II Ext"},
      {0x100F, "SATA 2.5"}, {0x101F, "SATA 2.6"},  {0x103F, "SATA 3.0"},
      {0x107F, "SATA 3.1"}, {0x10FF, "SATA 3.2"},  {0x11FF, "SATA 3.3"},
      {0x13FF, "SATA 3.4"}, {0x17FF, "SATA 3.5"},  {0x0001, ""},
      {0x0000, ""},         {0xFFFF, ""},          {0x1000, ""},
  };
  for (const auto &one : cases)
    EXPECT_STREQ(Identify().word(222, one.w222).decode().sata_version, one.version) << one.w222;
  // Older drives name no version and tell of the transport in word 76 alone.
  EXPECT_STREQ(Identify().word(76, 0x0002).decode().sata_version, "SATA");
  EXPECT_STREQ(Identify().word(76, 0xFFFF).decode().sata_version, "");
}

TEST(AtaIdentify, speeds) {
  EXPECT_EQ(Identify().word(76, 0x0002).decode().max_speed, 1u);
  EXPECT_EQ(Identify().word(76, 0x0006).decode().max_speed, 2u);
  EXPECT_EQ(Identify().word(76, 0x850E).decode().max_speed, 3u);
  EXPECT_EQ(Identify().word(76, 0x0100).decode().max_speed, 0u);
  EXPECT_EQ(Identify().word(76, 0xFFFF).word(77, 0x0006).decode().max_speed, 0u);
  EXPECT_EQ(Identify().word(76, 0xFFFF).word(77, 0x0006).decode().current_speed, 0u);
  EXPECT_EQ(Identify().word(76, 0x000E).word(77, 0x0002).decode().current_speed, 1u);
  EXPECT_EQ(Identify().word(76, 0x000E).word(77, 0x0006).decode().current_speed, 3u);
  EXPECT_EQ(Identify().word(76, 0x000E).word(77, 0xFFFF).decode().current_speed, 0u);
}

TEST(AtaIdentify, trim) {
  const auto trim = [](unsigned int w169, unsigned int w69) {
    return Identify().word(169, w169).word(69, w69).word(105, 8).decode();
  };
  EXPECT_EQ(trim(0, 0x4020).trim_flags, 0u);
  EXPECT_EQ(trim(0, 0x4020).trim_count, 0u);
  EXPECT_EQ(trim(0xFFFF, 0x4020).trim_flags, 0u);
  EXPECT_EQ(trim(1, 0).trim_flags, 4u);
  EXPECT_EQ(trim(1, 0x4000).trim_flags, 6u);
  EXPECT_EQ(trim(1, 0x0020).trim_flags, 5u);
  EXPECT_EQ(trim(1, 0x4020).trim_flags, 7u);
  EXPECT_EQ(trim(1, 0xFFFF).trim_flags, 4u);
  EXPECT_EQ(trim(1, 0).trim_count, 8u);
}

TEST(AtaIdentify, recorded_disk_with_speeds_and_no_version) {
  Identify drive;
  std::ifstream file(TEST_DATA_DIR "/ata/st3380013as.identify.bin", std::ios::binary);
  file.read(reinterpret_cast<char *>(drive.bytes.data()), 512);
  ASSERT_EQ(file.gcount(), 512);
  const IdentifyInfo info = drive.decode();
  EXPECT_EQ(info.sectors, 156301488u);  // 80 GB
  EXPECT_EQ(info.bytes, 80026361856u);
  EXPECT_EQ(info.trim_flags, 0u);
}

struct Smart {
  std::array<std::uint8_t, 512> bytes = {};
  explicit Smart(std::initializer_list<int> ids) {
    std::size_t at = 2;
    for (const int id : ids) {
      bytes[at] = static_cast<std::uint8_t>(id);
      at += 12;
    }
  }
};

TEST(DriveFamily, told_by_how_erasures_are_counted) {
  const Identify ssd = Identify().word(217, 1);
  const auto family = [&](std::initializer_list<int> ids) {
    return rig_store_get_factory(ssd.bytes.data(), Smart(ids).bytes.data());
  };
  EXPECT_EQ(family({5, 165, 166, 167, 241}), 2);
  EXPECT_EQ(family({241, 167, 166, 165}), 2);
  EXPECT_EQ(family({5, 206, 207, 208, 241}), 1);
  EXPECT_EQ(family({167, 206, 207, 208, 241}), 1);
  // Each of the four is needed.
  EXPECT_EQ(family({166, 167, 241}), 0);
  EXPECT_EQ(family({165, 167, 241}), 0);
  EXPECT_EQ(family({165, 166, 241}), 0);
  EXPECT_EQ(family({165, 166, 167}), 0);
  EXPECT_EQ(family({207, 208, 241}), 0);
  EXPECT_EQ(family({206, 208, 241}), 0);
  EXPECT_EQ(family({206, 207, 241}), 0);
  EXPECT_EQ(family({206, 207, 208}), 0);
  EXPECT_EQ(family({}), 0);
}

TEST(DriveFamily, there_are_thirty_attributes) {
  const Identify ssd = Identify().word(217, 1);
  Smart smart({165, 166, 167});
  smart.bytes[2 + 12 * 30] = 241;
  EXPECT_EQ(rig_store_get_factory(ssd.bytes.data(), smart.bytes.data()), 0);
  smart.bytes[2 + 12 * 29] = 241;
  EXPECT_EQ(rig_store_get_factory(ssd.bytes.data(), smart.bytes.data()), 2);
}

TEST(DriveFamily, a_rotating_disk_is_neither) {
  for (const unsigned int rate : {0u, 7200u, 0xFFFFu}) {
    const Identify disk = Identify().word(217, rate);
    EXPECT_EQ(rig_store_get_factory(disk.bytes.data(), Smart({206, 207, 208, 241}).bytes.data()),
              0);
  }
}

TEST(DriveFamily, null_arguments_are_neither) {
  EXPECT_EQ(rig_store_get_factory(nullptr, Smart({}).bytes.data()), 0);
  EXPECT_EQ(rig_store_get_factory(Identify().bytes.data(), nullptr), 0);
}

}  // namespace
