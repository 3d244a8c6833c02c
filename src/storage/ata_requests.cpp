// Tables, builders and decoders of the ATA commands.
//
// The SMART data commands put their 1 into LBA low and leave COUNT 0, SMART EXECUTE OFF-LINE
// IMMEDIATE carries its sub-command in COUNT, and SMART RETURN STATUS asks for eight bytes of data.
// All of that is deliberate: the requests are an interface to the board's drives and host adapters.

#include "storage/ata_requests.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <numeric>

namespace {

constexpr std::uint8_t kSmart = 0xB0;
constexpr std::uint8_t kLbaMid = 0x4F;  // every SMART command carries this signature
constexpr std::uint8_t kLbaHigh = 0xC2;
constexpr std::uint8_t kExceededMid = 0xF4;  // and this one comes back when a threshold is exceeded
constexpr std::uint8_t kExceededHigh = 0x2C;

constexpr int kTaskfileOut = 4;      // data_phase TASKFILE_OUT
constexpr int kIdeDriveTaskOut = 3;  // req_cmd IDE_DRIVE_TASK_OUT
constexpr int kRawDataPhase = 1;
constexpr int kRawRequest = 15;

// clang-format off
constexpr HdioRow kHdioRows[] = {
    {208, HDIO_DRIVE_CMD,  {0xB0, 0x00, 0xD0, 0x01}, true},
    {209, HDIO_DRIVE_CMD,  {0xB0, 0x01, 0xD1, 0x01}, true},
    {212, HDIO_DRIVE_CMD,  {0xB0, 0x00, 0xD4, 0x00}, false},
    {213, HDIO_DRIVE_CMD,  {0xB0, 0x00, 0xD5, 0x01}, true},
    {216, HDIO_DRIVE_CMD,  {0xB0, 0x01, 0xD8, 0x00}, false},
    {217, HDIO_DRIVE_CMD,  {0xB0, 0x01, 0xD9, 0x00}, false},
    {224, HDIO_DRIVE_CMD,  {0xE0, 0x00, 0x00, 0x00}, false},
    {231, HDIO_DRIVE_CMD,  {0xE7, 0x00, 0x00, 0x00}, false},
    {236, HDIO_DRIVE_CMD,  {0xEC, 0x00, 0x00, 0x01}, true},
    {210, HDIO_DRIVE_TASK, {0xB0, 0xD2, 0x00, 0x00, kLbaMid, kLbaHigh, 0x00}, false},
    {218, HDIO_DRIVE_TASK, {0xB0, 0xDA, 0x00, 0x00, kLbaMid, kLbaHigh, 0x00}, false},
    {219, HDIO_DRIVE_TASK, {0xB0, 0xDB, 0x00, 0x00, kLbaMid, kLbaHigh, 0x00}, false},
};

using enum SgDirection;
using enum SgOperand;

// Byte 1: 06 no data, 08 PIO in, 0A PIO out, 0C DMA. Byte 2: 20 check condition, no transfer; 0E
// from the device, 06 to the device, as many sectors as COUNT says.
constexpr SgRow kSgRows[] = {
    // code opcode byte1 byte2 feat  count  low   mid   high   dev   cmd   direction    len  ms operand
    {134,   0xA1,  0x0C, 0x0E, 0x00, 0x00, {0x00, 0x34, 0x12}, 0x40, 0x86, kFromDevice,   0, 30, kVendorDma},
    {136,   0xA1,  0x0C, 0x06, 0x00, 0x00, {0x00, 0x34, 0x12}, 0x40, 0x88, kToDevice,     0, 30, kVendorDma},
    {146,   0xA1,  0x0A, 0x06, 0x03, 0x00, {0x00, 0x00, 0x00}, 0x40, 0x92, kToDevice,     0, 30, kMicrocode},
    {208,   0x85,  0x08, 0x0E, 0xD0, 0x00, {0x01, 0x4F, 0xC2}, 0x40, 0xB0, kFromDevice, 512,  0, kSector},
    {209,   0x85,  0x08, 0x0E, 0xD1, 0x00, {0x01, 0x4F, 0xC2}, 0x40, 0xB0, kFromDevice, 512,  0, kSector},
    {210,   0x85,  0x06, 0x20, 0xD2, 0x00, {0x01, 0x4F, 0xC2}, 0x40, 0xB0, kNone,         0,  0, kAutosave},
    {212,   0x85,  0x06, 0x20, 0xD4, 0x00, {0x01, 0x4F, 0xC2}, 0x40, 0xB0, kNone,         0,  0, kSubcommand},
    {216,   0x85,  0x06, 0x20, 0xD8, 0x00, {0x01, 0x4F, 0xC2}, 0x40, 0xB0, kNone,         0,  0, kNoOperand},
    {217,   0x85,  0x06, 0x20, 0xD9, 0x00, {0x01, 0x4F, 0xC2}, 0x40, 0xB0, kNone,         0,  0, kNoOperand},
    {218,   0x85,  0x08, 0x0E, 0xDA, 0x00, {0x01, 0x4F, 0xC2}, 0x40, 0xB0, kFromDevice,   8,  0, kStatus},
    {224,   0x85,  0x06, 0x20, 0x00, 0x00, {0x00, 0x00, 0x00}, 0x00, 0xE0, kNone,         0,  0, kNoOperand},
    {231,   0x85,  0x06, 0x20, 0x00, 0x00, {0x00, 0x00, 0x00}, 0x00, 0xE7, kNone,         0,  0, kNoOperand},
    {236,   0x85,  0x08, 0x0E, 0x00, 0x00, {0x00, 0x00, 0x00}, 0x00, 0xEC, kFromDevice, 512,  0, kSector},
    {239,   0xA1,  0x06, 0x20, 0xDA, 0x41, {0x00, 0x00, 0x00}, 0x40, 0xEF, kNone,         0,  0, kNoOperand},
};
// clang-format on

static_assert(std::ranges::is_sorted(kSgRows, {}, &SgRow::code));

constexpr std::uint8_t kCdb12 = 0xA1;
constexpr std::uint8_t kAutosaveOn = 0xF1;

}  // namespace

// HDIO.

std::span<const HdioRow> hdio_rows() {
  return kHdioRows;
}

const HdioRow *find_hdio_row(int code) {
  for (const HdioRow &row : kHdioRows) {
    if (row.code == code)
      return &row;
  }
  return nullptr;
}

void build_write_log(const void *sector, TaskfileRequest &out) {
  out = {};
  out.task.io_ports[1] = SATA_SMART_WRITE_LOG;
  out.task.io_ports[2] = 1;  // sector count
  out.task.io_ports[4] = kLbaMid;
  out.task.io_ports[5] = kLbaHigh;
  out.task.io_ports[7] = kSmart;
  out.task.data_phase = kTaskfileOut;
  out.task.req_cmd = kIdeDriveTaskOut;
  out.task.out_size = SATA_SECTOR_SIZE;
  memcpy(out.data, sector, sizeof out.data);
}

void build_raw_taskfile(const void *raw, TaskfileRequest &out) {
  out = {};
  out.task.data_phase = kRawDataPhase;
  out.task.req_cmd = kRawRequest;
  out.task.in_size = kRawTaskfile;
  memcpy(out.data, raw, kRawTaskfile);
}

int decode_task_status(int result, std::span<const std::uint8_t, 7> header) {
  if (result == -EINVAL) {
    puts("Error SMART Status command via HDIO_DRIVE_TASK failed");
    return -1;
  }
  if (result != 0) {
    puts("Error SMART Status command failed");
    return -1;
  }
  if (header[4] == kLbaMid && header[5] == kLbaHigh)
    return 0;
  if (header[4] == kExceededMid && header[5] == kExceededHigh)
    return 1;
  puts("Error SMART Status command failed");
  puts("Register values returned from SMART Status command are:");
  printf("ST =0x%02x\n", header[0]);
  printf("ERR=0x%02x\n", header[1]);
  printf("NS =0x%02x\n", header[2]);
  printf("SC =0x%02x\n", header[3]);
  printf("CL =0x%02x\n", header[4]);
  printf("CH =0x%02x\n", header[5]);
  printf("SEL=0x%02x\n", header[6]);
  return -1;
}

int decode_taskfile_result(int result) {
  if (result == 0)
    return 0;
  if (result == -EINVAL)
    puts(
        "Kernel lacks HDIO_DRIVE_TASKFILE support; \ncompile kernel with CONFIG_IDE_TASKFILE_IO "
        "set");
  return -1;
}

// SG_IO.

std::span<const SgRow> sg_rows() {
  return kSgRows;
}

const SgRow *find_sg_row(int code) {
  for (const SgRow &row : kSgRows) {
    if (row.code == code)
      return &row;
  }
  return nullptr;
}

SgRequest build_sg_request(const SgRow &row, const SgValues &values) {
  std::uint8_t count = row.count;
  std::array<std::uint8_t, 3> lba = row.lba;
  std::uint32_t length = row.length;
  switch (row.operand) {
    case kAutosave:
      count = values.byte != 0 ? kAutosaveOn : 0;
      break;
    case kSubcommand:
      count = values.byte;
      break;
    case kVendorDma:
      count = values.byte;
      lba[0] = static_cast<std::uint8_t>(values.lba_low);
      length = std::uint32_t{values.byte} * SATA_SECTOR_SIZE;
      break;
    case kMicrocode: {
      const std::uint32_t blocks = values.length / SATA_SECTOR_SIZE;
      count = static_cast<std::uint8_t>(blocks);
      lba[0] = static_cast<std::uint8_t>(blocks >> 8);
      lba[1] = static_cast<std::uint8_t>(values.offset);
      lba[2] = static_cast<std::uint8_t>(values.offset >> 8);
      length = values.length;
      break;
    }
    case kNoOperand:
    case kSector:
    case kStatus:
      break;
  }

  SgRequest request = {};
  request.direction = row.direction;
  request.length = length;
  request.timeout_ms = row.timeout_ms;
  std::array<std::uint8_t, 16> &cdb = request.cdb;
  cdb[0] = row.opcode;
  cdb[1] = row.protocol;
  cdb[2] = row.flags;
  if (row.opcode == kCdb12) {
    request.cdb_length = 12;
    cdb[3] = row.features;
    cdb[4] = count;
    cdb[5] = lba[0];
    cdb[6] = lba[1];
    cdb[7] = lba[2];
    cdb[8] = row.device;
    cdb[9] = row.command;
    if (row.direction != kNone)
      request.pack_id = lba[2] << 16 | lba[1] << 8 | lba[0];
  } else {
    // Bytes 3, 5, 7, 9 and 11 are the high halves of a 48-bit command and stay 0.
    request.cdb_length = 16;
    cdb[4] = row.features;
    cdb[6] = count;
    cdb[8] = lba[0];
    cdb[10] = lba[1];
    cdb[12] = lba[2];
    cdb[13] = row.device;
    cdb[14] = row.command;
  }
  return request;
}

int decode_host_status(unsigned int host_status) {
  switch (host_status) {
    case 4:
      puts(" BAD target. ");
      return 4;
    case 5:
      puts("Abort for some other reason. ");
      return 5;
    case 14:
    case 15:
      puts("BUS stayed busy through time out period. ");
      return static_cast<int>(host_status);
    default:
      return 0;
  }
}

int decode_sg_result(const SgRow &row, int result,
                     std::span<const std::uint8_t, SATA_SECTOR_SIZE> data) {
  if ((row.code == SATA_SMART_READ_VALUES || row.code == SATA_SMART_READ_THRESHOLDS) &&
      !sector_checksum_is_valid(data))
    puts("Invalid checksum of SMART data.");  // the data count all the same
  if (row.operand == kStatus)
    return data[0] == 1 || data[0] == 2 ? data[0] : 3;
  return result;
}

bool sector_checksum_is_valid(std::span<const std::uint8_t, SATA_SECTOR_SIZE> sector) {
  return std::accumulate(sector.begin(), sector.end(), 0) % 256 == 0;
}
