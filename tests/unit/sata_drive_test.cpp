// The virtual board's drive: what it reads out of the registers and blocks that it is sent.

#include "vboard/interposer/models/sata_drive.h"

#include "model_harness.h"

#include <scsi/sg.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

using namespace vboard;

namespace {

constexpr const char *kNode =
    "model = sata_disk\nidentify = identify\nfirmware = firmware\nvendor_mode = 1\n";

void expect_setting(const ModelHarness &board, const std::string &line) {
  EXPECT_NE(("\n" + board.node()).find("\n" + line + "\n"), std::string::npos) << board.node();
}

}  // namespace

TEST(SataDrive, takes_announced_addresses_without_a_sign) {
  for (const std::uint32_t address :
       {0x12345678u, 0x80u, 0x8000u, 0x800000u, 0x80000000u, 0xFFFEFDFCu}) {
    ModelHarness board(kNode);
    board.write_file("media/identify", std::string(512, '\0'));
    ASSERT_EQ(board.open(), 0);
    std::array<unsigned char, 512> block = {0xFF, 0xE5, 0x86, 0x03};
    for (std::size_t i = 0; i < 4; ++i)
      block[4 + i] = static_cast<unsigned char>(address >> (24 - 8 * i));
    AtaRegisters registers = {.features = 0,
                              .count = 1,
                              .lba_low = 0xFF,
                              .lba_mid = 0x34,
                              .lba_high = 0x12,
                              .device = 0x40,
                              .command = 0x88};
    ASSERT_EQ(run_ata_command(board.open_file, registers, AtaData::kOut, block.data(), 512), 0);
    EXPECT_EQ(registers.command, kAtaReady);
    expect_setting(board, "announced = " + std::to_string(address));
  }
}

TEST(SataDrive, takes_counts_and_offsets_of_a_download_without_a_sign) {
  constexpr long kOffset = 0x8080L * 512;
  constexpr long kSize = 0x80L * 512;
  ModelHarness board((kNode + ("download_at = " + std::to_string(kOffset) + "\n")).c_str());
  board.write_file("media/identify", std::string(512, '\0'));
  board.write_file("media/firmware", "");
  ASSERT_EQ(board.open(), 0);
  std::vector<unsigned char> chunk(kSize, 0xA5);
  AtaRegisters registers = {.features = 3,
                            .count = 0x80,
                            .lba_low = 0,
                            .lba_mid = 0x80,
                            .lba_high = 0x80,
                            .device = 0x40,
                            .command = 0x92};
  ASSERT_EQ(run_ata_command(board.open_file, registers, AtaData::kOut, chunk.data(), chunk.size()),
            0);
  EXPECT_EQ(registers.command, kAtaReady);
  expect_setting(board, "download_at = " + std::to_string(kOffset + kSize));
}

TEST(SataDrive, tells_its_capacity_without_a_sign) {
  std::string identify(512, '\0');
  identify.replace(200, 4, "\x81\x80\xFF\xE4");  // the sectors, least significant byte first
  ModelHarness board(kNode);
  board.write_file("media/identify", identify);
  ASSERT_EQ(board.open(), 0);
  std::array<unsigned char, 16> cdb = {0x9E, 0x10};  // READ CAPACITY (16)
  cdb[13] = 32;
  std::array<unsigned char, 32> answer = {};
  sg_io_hdr header = {};
  header.interface_id = 'S';
  header.cmdp = cdb.data();
  header.cmd_len = cdb.size();
  header.dxfer_direction = SG_DXFER_FROM_DEV;
  header.dxferp = answer.data();
  header.dxfer_len = answer.size();
  ASSERT_EQ(board.request(SG_IO, header), 0);
  EXPECT_EQ(header.status, 0);
  // The last sector's number, most significant byte first, and the size of a sector.
  const std::array<unsigned char, 12> expected = {0, 0, 0, 0, 0xE4, 0xFF, 0x80, 0x80, 0, 0, 2, 0};
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), answer.begin()));
}
