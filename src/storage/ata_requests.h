// ATA commands as the two transports carry them: one table row for each command, a builder that
// makes the bytes of a request of it, and the decoders of what comes back. No descriptor in sight.

#ifndef BENCHRIG_STORAGE_ATA_REQUESTS_H
#define BENCHRIG_STORAGE_ATA_REQUESTS_H

#include "benchrig/sata.h"

#include <linux/hdreg.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

// HDIO.

// Header bytes of HDIO_DRIVE_CMD: 0 command, 1 sector number, 2 feature, 3 sector count. Those of
// HDIO_DRIVE_TASK: 0 command, 1 feature, 2 sector count, 3 sector number, 4 LBA mid, 5 LBA high, 6
// device select; all of them are read back. Hence the SMART sub-command of a task in byte 1.
struct HdioRow {
  int code;
  unsigned long request;  // HDIO_DRIVE_CMD or HDIO_DRIVE_TASK
  std::array<std::uint8_t, 7> header;
  bool data_in;
};

inline constexpr std::size_t kHdioHeader = 4;
inline constexpr std::size_t kHdioBuffer = kHdioHeader + SATA_SECTOR_SIZE;

std::span<const HdioRow> hdio_rows();
const HdioRow *find_hdio_row(int code);

// What HDIO_DRIVE_TASKFILE takes: the kernel's request with the data area behind it.
struct TaskfileRequest {
  ide_task_request_t task;
  std::uint8_t data[SATA_SECTOR_SIZE];
};
static_assert(offsetof(TaskfileRequest, data) == sizeof(ide_task_request_t));

inline constexpr std::size_t kRawTaskfile = 36;

// SMART WRITE LOG of a sector, and the raw request whose `raw` bytes (kRawTaskfile of them) go into
// the data area, not into the registers.
void build_write_log(const void *sector, TaskfileRequest &out);
void build_raw_taskfile(const void *raw, TaskfileRequest &out);

// Results of the requests; each prints what it reports. The results are compared with -EINVAL
// itself, not errno.
int decode_task_status(int result, std::span<const std::uint8_t, 7> header);
int decode_taskfile_result(int result);

// SG_IO.

// What a row takes from its caller.
enum class SgOperand : std::uint8_t {
  kNoOperand,
  kSector,      // a sector to fill
  kAutosave,    // a byte: COUNT is F1h when it is not 0
  kSubcommand,  // a byte: COUNT
  kStatus,      // nothing; the answer's first byte decides
  kVendorDma,   // a sector count, LBA low, a buffer
  kMicrocode,   // data, length, offset
};

enum class SgDirection : std::uint8_t { kNone, kFromDevice, kToDevice };

struct SgRow {
  int code;
  std::uint8_t opcode;    // A1h: 12-byte CDB, 85h: 16-byte CDB
  std::uint8_t protocol;  // byte 1
  std::uint8_t flags;     // byte 2
  std::uint8_t features;
  std::uint8_t count;
  std::array<std::uint8_t, 3> lba;  // low, mid, high
  std::uint8_t device;
  std::uint8_t command;
  SgDirection direction;
  std::uint16_t length;     // bytes; those of kVendorDma and kMicrocode are the caller's
  std::uint8_t timeout_ms;  // 0: the driver's default
  SgOperand operand;
};

std::span<const SgRow> sg_rows();
const SgRow *find_sg_row(int code);

// The caller's values; which of them a row uses is its operand's business.
struct SgValues {
  std::uint8_t byte;      // kAutosave, kSubcommand; kVendorDma: sector count
  std::uint32_t lba_low;  // kVendorDma: bits 0 to 7 count
  std::uint32_t length;   // kMicrocode: bytes
  std::uint32_t offset;   // kMicrocode: 512-byte blocks
};

struct SgRequest {
  std::array<std::uint8_t, 16> cdb;
  std::uint8_t cdb_length;
  SgDirection direction;
  std::uint32_t length;
  std::uint32_t timeout_ms;
  int pack_id;  // 0, or the LBA of a 12-byte data command: a tag for traces
};

SgRequest build_sg_request(const SgRow &row, const SgValues &values);

// The host adapter's status that ends a command: 4, 5, 14 or 15, which it prints, or 0 for any
// other.
int decode_host_status(unsigned int host_status);

// The result of a command that went on: the answer of SMART RETURN STATUS, or what the request
// returned, 0 or more. Prints what it reports; `data` is what came back.
int decode_sg_result(const SgRow &row, int result,
                     std::span<const std::uint8_t, SATA_SECTOR_SIZE> data);

// Bytes of a SMART sector add up to 0 modulo 256.
bool sector_checksum_is_valid(std::span<const std::uint8_t, SATA_SECTOR_SIZE> sector);

#endif
