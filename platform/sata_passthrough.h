// One ATA command to a disk through SG_IO, as SCSI/ATA Translation carries it.

#ifndef PLATFORM_SATA_PASSTHROUGH_H
#define PLATFORM_SATA_PASSTHROUGH_H

#include <cstdint>

namespace rigcore {

// Registers of a 28-bit ATA command; LBA low and the device register are 0. With `reads_sector` it
// is a PIO data-in of one sector, without a command that moves no data.
struct AtaCommand {
  std::uint8_t command;
  std::uint8_t features;
  std::uint8_t count;
  std::uint8_t lba_mid;
  std::uint8_t lba_high;
  bool reads_sector;
};

// Sends it to the disk behind `fd` and stores what was read in `sector` (512 bytes, untouched on
// failure; null for a command without data). -1 with errno: that of SG_IO; ETIMEDOUT and ENODEV for
// what the host adapter saw; EOPNOTSUPP when the disk or its adapter does not know the command; EIO
// for any other failure of the command.
int send_ata_command(int fd, const AtaCommand &command, void *sector);

}  // namespace rigcore

#endif
