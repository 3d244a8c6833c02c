// ATA PASS-THROUGH (16) of the SCSI/ATA Translation standard.

#include "platform/sata_passthrough.h"

#include <errno.h>
#include <scsi/sg.h>
#include <string.h>
#include <sys/ioctl.h>

namespace rigcore {

namespace {

constexpr std::uint8_t kPassThrough16 = 0x85;
constexpr std::uint8_t kNoData = 3 << 1;
constexpr std::uint8_t kPioIn = 4 << 1;
constexpr std::uint8_t kOneSectorIn = 0x0E;  // from the device, in blocks, as many as COUNT says

constexpr unsigned int kSectorSize = 512;
constexpr unsigned int kTimeoutMs = 15000;  // a disk that spins up first needs most of it

constexpr unsigned int kHostNoConnect = 1;
constexpr unsigned int kHostBadTarget = 4;
constexpr unsigned int kHostTimeOut = 3;

constexpr std::uint8_t kCheckCondition = 0x02;
constexpr std::uint8_t kDriverSense = 0x08;
constexpr std::uint8_t kRecoveredError = 0x1;
constexpr std::uint8_t kIllegalRequest = 0x5;
constexpr std::uint8_t kAbortedCommand = 0xB;

// Sense key of fixed or descriptor sense data; 0 when there is none.
std::uint8_t sense_key(const std::uint8_t *sense, unsigned int length) {
  if (length < 3)
    return 0;
  switch (sense[0] & 0x7E) {  // bit 0 says that an earlier command failed
    case 0x70:
      return sense[2] & 0x0F;
    case 0x72:
      return sense[1] & 0x0F;
    default:
      return 0;
  }
}

// errno of a request that the kernel took; 0 for success.
int outcome(const sg_io_hdr &header, const std::uint8_t *sense) {
  switch (header.host_status) {
    case 0:
      break;
    case kHostNoConnect:
    case kHostBadTarget:
      return ENODEV;
    case kHostTimeOut:
      return ETIMEDOUT;
    default:
      return EIO;
  }
  if (header.status == kCheckCondition || (header.driver_status & kDriverSense) != 0) {
    switch (sense_key(sense, header.sb_len_wr)) {
      case 0:
      case kRecoveredError:
        return 0;
      case kIllegalRequest:
      case kAbortedCommand:
        return EOPNOTSUPP;
      default:
        return EIO;
    }
  }
  return header.status != 0 ? EIO : 0;
}

}  // namespace

int send_ata_command(int fd, const AtaCommand &command, void *sector) {
  std::uint8_t cdb[16] = {};
  cdb[0] = kPassThrough16;
  cdb[1] = command.reads_sector ? kPioIn : kNoData;
  cdb[2] = command.reads_sector ? kOneSectorIn : 0;
  cdb[4] = command.features;
  cdb[6] = command.count;
  cdb[10] = command.lba_mid;
  cdb[12] = command.lba_high;
  cdb[14] = command.command;

  std::uint8_t sense[32] = {};
  std::uint8_t data[kSectorSize] = {};
  sg_io_hdr header = {};
  header.interface_id = 'S';
  header.cmdp = cdb;
  header.cmd_len = sizeof cdb;
  header.sbp = sense;
  header.mx_sb_len = sizeof sense;
  header.timeout = kTimeoutMs;
  header.dxfer_direction = SG_DXFER_NONE;
  if (command.reads_sector) {
    header.dxfer_direction = SG_DXFER_FROM_DEV;
    header.dxferp = data;
    header.dxfer_len = sizeof data;
  }
  if (ioctl(fd, SG_IO, &header) != 0)
    return -1;
  const int reason = outcome(header, sense);
  if (reason != 0) {
    errno = reason;
    return -1;
  }
  if (command.reads_sector)
    memcpy(sector, data, sizeof data);
  return 0;
}

}  // namespace rigcore
