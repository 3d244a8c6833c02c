// /dev/sda: a SATA drive (sata_drive.cpp) behind the kernel's requests: SG_IO with the SCSI
// commands that tools ask of a disk and with ATA PASS-THROUGH, and the older HDIO requests.
//
// The log has a command a line: "SG", the CDB, the number of data bytes; "HD" and the request's
// bytes.

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/models.h"
#include "vboard/interposer/models/sata_drive.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <scsi/sg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace vboard {
namespace {

using enum Direction;
using enum SettingKind;

constexpr Setting kSettings[] = {
    {.key = "identify",
     .kind = kMedium,
     .otherwise = "",
     .help = "512 bytes: the answer to IDENTIFY DEVICE"},
    {.key = "smart_values",
     .kind = kMedium,
     .otherwise = "",
     .help = "512 bytes: the answer to SMART READ DATA"},
    {.key = "smart_thresholds",
     .kind = kMedium,
     .otherwise = "",
     .help = "512 bytes: the answer to SMART READ THRESHOLDS"},
    {.key = "ram", .kind = kMedium, .otherwise = "", .help = "controller RAM from address 0 on"},
    {.key = "firmware",
     .kind = kMedium,
     .otherwise = "",
     .help = "what DOWNLOAD MICROCODE has stored"},
    {.key = "firmware_size",
     .kind = kNumber,
     .otherwise = "0",
     .help = "bytes of a whole image; the drive takes it over when its last block arrives"},
    {.key = "downloads",
     .kind = kNumber,
     .otherwise = "0",
     .help = "blocks that DOWNLOAD MICROCODE has sent since the board was made"},
    {.key = "download_at",
     .kind = kNumber,
     .otherwise = "0",
     .help = "where the next block belongs"},
    {.key = "updates", .kind = kNumber, .otherwise = "0", .help = "images that were taken over"},
    {.key = "announced",
     .kind = kNumber,
     .otherwise = "-1",
     .help = "the address that the next vendor read fetches, -1 for none",
     .least = -1,
     .most = UINT32_MAX},
    {.key = "vendor_mode",
     .kind = kFlag,
     .otherwise = "0",
     .help = "1: vendor commands are understood"},
    {.key = "standby", .kind = kFlag, .otherwise = "0", .help = "1: it sleeps"},
    {.key = "autosave",
     .kind = kFlag,
     .otherwise = "0",
     .help = "1: SMART saves its attributes by itself"},
    {.key = "smart_enabled",
     .kind = kFlag,
     .otherwise = "1",
     .help = "1: SMART commands are understood"},
    {.key = "smart_exceeded",
     .kind = kFlag,
     .otherwise = "0",
     .help = "1: SMART RETURN STATUS says that a threshold is exceeded"},
    {.key = "smart_status",
     .kind = kNumber,
     .otherwise = "-1",
     .help = "LBA mid and high (low and high byte) that it answers instead",
     .least = -1,
     .most = 0xFFFF},
    {.key = "aborts",
     .kind = kText,
     .otherwise = "",
     .help = "commands that it refuses: ec, or with features b0/d0, separated by blanks"},
    {.key = "host_status",
     .kind = kNumber,
     .otherwise = "0",
     .help = "what the host adapter reports for every SG_IO; not 0: the drive gets nothing",
     .most = 0xFFFF},
    {.key = "transfer_limit",
     .kind = kNumber,
     .otherwise = "0",
     .help = "bytes of an SG_IO's answer that arrive at most; 0: all of them"},
    {.key = "log",
     .kind = kMedium,
     .otherwise = "",
     .help = "a file of media/ that keeps every command that the drive got"},
};

constexpr std::size_t kLongestTransfer = 256 * kAtaSector;
constexpr std::size_t kCdbSize = 16;

constexpr std::uint8_t kGood = 0x00;
constexpr std::uint8_t kCheckCondition = 0x02;
constexpr unsigned short kDriverSense = 0x08;

// The log.

void log_command(const OpenFile &file, const char *transport, const std::uint8_t *bytes,
                 std::size_t count, std::size_t data_size) {
  const std::string_view name = setting_text(file, "log");
  if (name.empty())
    return;
  BoardPath path;
  if (find_medium(board_directory(), name, path) < 0)
    return;
  const int fd = board_open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0)
    return;
  char line[128];
  int length = snprintf(line, sizeof line, "%s", transport);
  for (std::size_t i = 0; i < count; ++i)
    length +=
        snprintf(line + length, sizeof line - static_cast<std::size_t>(length), " %02x", bytes[i]);
  length +=
      snprintf(line + length, sizeof line - static_cast<std::size_t>(length), " %zu\n", data_size);
  sys_write(fd, line, static_cast<std::size_t>(length));
  sys_close(fd);
}

// SCSI.

// One SCSI command: its answer goes into `data`, `size` bytes of it at most.
struct ScsiCommand {
  const std::uint8_t *cdb;
  std::size_t cdb_length;
  std::uint8_t *data;
  std::size_t size;    // of the transfer
  std::size_t filled;  // of an answer
  std::uint8_t status;
  std::uint8_t sense[32];
  std::size_t sense_length;
};

void refuse(ScsiCommand &command, std::uint8_t key, std::uint8_t code) {
  command.status = kCheckCondition;
  command.sense[0] = 0x70;
  command.sense[2] = key;
  command.sense[7] = 10;
  command.sense[12] = code;
  command.sense_length = 18;
}

void refuse_request(ScsiCommand &command) {
  refuse(command, 0x5, 0x20);  // ILLEGAL REQUEST, invalid command
}

void answer(ScsiCommand &command, const std::uint8_t *bytes, std::size_t size) {
  command.filled = std::min(size, command.size);
  memcpy(command.data, bytes, command.filled);
}

// Sense data that carry the drive's registers.
void return_registers(ScsiCommand &command, const AtaRegisters &registers) {
  const bool failed = registers.command == kAtaAborted;
  std::uint8_t *sense = command.sense;
  command.status = kCheckCondition;
  sense[0] = 0x72;
  sense[1] = failed ? 0x0B : 0x01;  // ABORTED COMMAND, RECOVERED ERROR
  sense[2] = 0x00;
  sense[3] = failed ? 0x00 : 0x1D;  // ATA PASS-THROUGH information available
  sense[7] = 14;
  sense[8] = 0x09;
  sense[9] = 12;
  sense[11] = registers.features;
  sense[13] = registers.count;
  sense[15] = registers.lba_low;
  sense[17] = registers.lba_mid;
  sense[19] = registers.lba_high;
  sense[20] = registers.device;
  sense[21] = registers.command;
  command.sense_length = 22;
}

int pass_through(OpenFile &file, ScsiCommand &command, bool is_16) {
  const std::uint8_t *cdb = command.cdb;
  AtaRegisters registers =
      is_16 ? AtaRegisters{cdb[4], cdb[6], cdb[8], cdb[10], cdb[12], cdb[13], cdb[14]}
            : AtaRegisters{cdb[3], cdb[4], cdb[5], cdb[6], cdb[7], cdb[8], cdb[9]};
  const std::uint8_t protocol = cdb[1] >> 1 & 0xF;
  const bool transfers = (cdb[2] & 0x03) != 0 && protocol != 3;
  const bool from_device = (cdb[2] & 0x08) != 0;
  const bool check = (cdb[2] & 0x20) != 0;
  const AtaData direction = !transfers    ? AtaData::kNone
                            : from_device ? AtaData::kIn
                                          : AtaData::kOut;
  const std::size_t size = transfers ? command.size : 0;
  const int error = run_ata_command(file, registers, direction, command.data, size);
  if (error < 0)
    return error;
  const bool failed = registers.command == kAtaAborted;
  if (failed || check)
    return_registers(command, registers);
  if (!failed && direction == AtaData::kIn)
    command.filled = size;
  return 0;
}

void copy_swapped(std::uint8_t *out, const unsigned char *text, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i)
    out[i] = text[i ^ 1];
}

int inquiry(OpenFile &file, ScsiCommand &command) {
  unsigned char identify[kAtaSector];
  if (const int error = load_identify(file, identify))
    return error;
  const bool vital = (command.cdb[1] & 1) != 0;
  const std::uint8_t page = command.cdb[2];
  std::uint8_t out[572] = {};
  if (!vital) {
    out[2] = 0x05;  // SPC-3
    out[3] = 0x02;
    out[4] = 91;
    memcpy(out + 8, "ATA     ", 8);
    copy_swapped(out + 16, identify + 54, 16);     // model
    copy_swapped(out + 32, identify + 46 + 4, 4);  // the revision's last four characters
    answer(command, out, 96);
    return 0;
  }
  out[1] = page;
  switch (page) {
    case 0x00:
      out[3] = 4;
      memcpy(out + 4, "\x00\x80\x83\x89", 4);
      answer(command, out, 8);
      return 0;
    case 0x80:
      out[3] = 20;
      copy_swapped(out + 4, identify + 20, 20);
      answer(command, out, 24);
      return 0;
    case 0x83:
      out[3] = 12;  // one NAA designator: the world wide name
      memcpy(out + 4, "\x01\x03\x00\x08", 4);
      copy_swapped(out + 8, identify + 216, 8);
      answer(command, out, 16);
      return 0;
    case 0x89:
      out[2] = 0x02;
      out[3] = 0x38;
      memcpy(out + 8, "VBOARD  virtual SATL    1.0 ", 28);
      out[36] = 0x34;
      out[56] = 0xEC;
      memcpy(out + 60, identify, sizeof identify);
      answer(command, out, sizeof out);
      return 0;
    default:
      refuse(command, 0x5, 0x24);  // invalid field
      return 0;
  }
}

std::uint64_t sectors_of(const unsigned char *identify) {
  std::uint64_t sectors = 0;
  for (int i = 7; i >= 0; --i)
    sectors = sectors << 8 | identify[200 + i];
  return sectors;
}

void put_big_endian(std::uint8_t *out, std::uint64_t value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i, value >>= 8)
    out[i] = static_cast<std::uint8_t>(value);
}

int read_capacity(OpenFile &file, ScsiCommand &command, bool is_16) {
  unsigned char identify[kAtaSector];
  if (const int error = load_identify(file, identify))
    return error;
  const std::uint64_t last = sectors_of(identify) - 1;
  std::uint8_t out[32] = {};
  if (is_16) {
    put_big_endian(out, last, 8);
    put_big_endian(out + 8, kAtaSector, 4);
    answer(command, out, 32);
  } else {
    put_big_endian(out, std::min<std::uint64_t>(last, 0xFFFFFFFF), 4);
    put_big_endian(out + 4, kAtaSector, 4);
    answer(command, out, 8);
  }
  return 0;
}

int run_scsi(OpenFile &file, ScsiCommand &command) {
  switch (command.cdb[0]) {
    case 0x00:  // TEST UNIT READY
      return 0;
    case 0x12:
      return inquiry(file, command);
    case 0x25:
      return read_capacity(file, command, false);
    case 0x9E:
      if ((command.cdb[1] & 0x1F) == 0x10)
        return read_capacity(file, command, true);
      break;
    case 0xA1:
      if (command.cdb_length >= 12)
        return pass_through(file, command, false);
      break;
    case 0x85:
      if (command.cdb_length >= 16)
        return pass_through(file, command, true);
      break;
    default:
      break;
  }
  refuse_request(command);
  return 0;
}

std::uint64_t address_of(const void *pointer) {
  return reinterpret_cast<std::uintptr_t>(pointer);
}

// The transfer's data, copied from and to the program: its pointer may be wrong.
int move_data(OpenFile &file, sg_io_hdr &header, ScsiCommand &command) {
  static std::uint8_t transfer[kLongestTransfer];  // the board's lock is held
  command.data = transfer;
  const bool out = header.dxfer_direction == SG_DXFER_TO_DEV;
  const bool in = header.dxfer_direction == SG_DXFER_FROM_DEV;
  command.size = in || out ? header.dxfer_len : 0;
  memset(transfer, 0, command.size);
  if (out && copy_in(transfer, address_of(header.dxferp), command.size) != 0)
    return -EFAULT;
  log_command(file, "SG", command.cdb, command.cdb_length, command.size);
  if (const int error = run_scsi(file, command))
    return error;
  const std::int64_t limit = setting_number(file, "transfer_limit");
  if (limit > 0)
    command.filled = std::min(command.filled, static_cast<std::size_t>(limit));
  if (in && command.filled > 0 &&
      copy_out(address_of(header.dxferp), transfer, command.filled) != 0)
    return -EFAULT;
  return 0;
}

int sg_io(OpenFile &file, sg_io_hdr &header) {
  if (header.interface_id != 'S')
    return -ENOSYS;
  if (header.cmd_len < 6 || header.cmd_len > kCdbSize || header.iovec_count != 0 ||
      header.dxfer_len > kLongestTransfer)
    return -EINVAL;
  std::uint8_t cdb[kCdbSize] = {};
  if (copy_in(cdb, address_of(header.cmdp), header.cmd_len) != 0)
    return -EFAULT;
  ScsiCommand command = {};
  command.cdb = cdb;
  command.cdb_length = header.cmd_len;

  const std::int64_t host_status = setting_number(file, "host_status");
  if (host_status == 0) {
    if (const int error = move_data(file, header, command))
      return error;
  }
  header.status = command.status;
  header.masked_status = static_cast<unsigned char>(command.status >> 1);
  header.host_status = static_cast<unsigned short>(host_status);
  header.driver_status = command.status == kCheckCondition ? kDriverSense : 0;
  header.sb_len_wr =
      static_cast<unsigned char>(std::min<std::size_t>(command.sense_length, header.mx_sb_len));
  if (header.sb_len_wr > 0 &&
      copy_out(address_of(header.sbp), command.sense, header.sb_len_wr) != 0)
    return -EFAULT;
  header.resid = static_cast<int>(
      header.dxfer_direction == SG_DXFER_FROM_DEV ? header.dxfer_len - command.filled : 0);
  header.info = command.status == kGood && host_status == 0 ? SG_INFO_OK : SG_INFO_CHECK;
  header.duration = 0;
  return 0;
}

// HDIO.

// As libata answers it: four bytes of arguments, then as many sectors as the fourth says.
int drive_cmd(OpenFile &file, std::uint8_t (&head)[4], Argument &argument) {
  const std::size_t size = head[3] * kAtaSector;
  if (size > kLongestTransfer)
    return -EINVAL;
  log_command(file, "HD", head, sizeof head, size);
  AtaRegisters registers = {};
  registers.features = head[2];
  registers.command = head[0];
  if (head[0] == 0xB0) {
    registers.count = head[3];
    registers.lba_low = head[1];
    registers.lba_mid = 0x4F;
    registers.lba_high = 0xC2;
  } else {
    registers.count = head[1];
  }
  static std::uint8_t transfer[kLongestTransfer];
  const int error =
      run_ata_command(file, registers, size > 0 ? AtaData::kIn : AtaData::kNone, transfer, size);
  if (error < 0)
    return error;
  head[0] = registers.command;
  head[1] = registers.features;
  head[2] = registers.count;
  argument.answers_failure = true;
  if (registers.command == kAtaAborted)
    return -EIO;
  return copy_out(argument.address + sizeof head, transfer, size);
}

int drive_task(OpenFile &file, std::uint8_t (&head)[7], Argument &argument) {
  log_command(file, "HD", head, sizeof head, 0);
  AtaRegisters registers = {head[1], head[2], head[3], head[4], head[5], head[6], head[0]};
  const int error = run_ata_command(file, registers, AtaData::kNone, nullptr, 0);
  if (error < 0)
    return error;
  const std::uint8_t out[7] = {registers.command, registers.features, registers.count,
                               registers.lba_low, registers.lba_mid,  registers.lba_high,
                               registers.device};
  memcpy(head, out, sizeof out);
  argument.answers_failure = true;
  return registers.command == kAtaAborted ? -EIO : 0;
}

int get_capacity(OpenFile &file, std::uint64_t &out) {
  unsigned char identify[kAtaSector];
  if (const int error = load_identify(file, identify))
    return error;
  out = sectors_of(identify) * kAtaSector;
  return 0;
}

int get_sector_size(OpenFile &, int &out) {
  out = kAtaSector;
  return 0;
}

int get_version(OpenFile &, int &out) {
  out = 30527;  // what the block layer answers
  return 0;
}

// clang-format off
constexpr Request kRequests[] = {
    // The record holds addresses, which differ from run to run; the log shows what was sent.
    {.number = SG_IO,              .name = "SG_IO",              .direction = kInOut, .handler = answers<sg_io>, .traced = false},
    {.number = HDIO_DRIVE_CMD,     .name = "HDIO_DRIVE_CMD",     .direction = kInOut, .handler = answers<drive_cmd>},
    {.number = HDIO_DRIVE_TASK,    .name = "HDIO_DRIVE_TASK",    .direction = kInOut, .handler = answers<drive_task>},
    {.number = SG_GET_VERSION_NUM, .name = "SG_GET_VERSION_NUM", .direction = kOut,   .handler = answers<get_version>},
    {.number = static_cast<std::uint32_t>(BLKGETSIZE64), .name = "BLKGETSIZE64", .direction = kOut, .handler = answers<get_capacity>},
    {.number = BLKSSZGET,          .name = "BLKSSZGET",          .direction = kOut,   .handler = answers<get_sector_size>},
};
// clang-format on

}  // namespace

// No media: this disk answers commands only.
extern constexpr Model kSataDiskModel = {
    .name = "sata_disk",
    .settings = kSettings,
    .requests = kRequests,
    .no_stream = EIO,
};

}  // namespace vboard
