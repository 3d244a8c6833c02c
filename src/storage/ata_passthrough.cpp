// The two transports for single ATA commands, and the digit functions: what the program exports to
// its plug-ins. The requests themselves are rows of ata_requests.cpp.

#include "benchrig/sata.h"
#include "storage/ata_requests.h"

#include <scsi/sg.h>
#include <sys/ioctl.h>

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

namespace {

// The source that assertions name is part of the interface: it is this layer's own module, not the
// file that it stands in here.
constexpr const char *kAssertionSource = "app/test/ssdupgrade/ssdupgrade";

// An assertion in every build: a null argument here is a mistake in the caller's code, and the
// release build must not pass it on to the kernel.
void require_argument(const void *argument, int line) {
  if (argument != nullptr)
    return;
  fprintf(stderr, "benchrig: %s:%d: %s: Assertion `arg!=NULL' failed.\n", kAssertionSource, line,
          "sata_command_execute_esata");
  abort();
}

// The bytes that came from the disk: none when anything reported a failure, since the kernel then
// leaves the buffer as it was or copies what its own pages held.
std::size_t transferred(const sg_io_hdr &header) {
  if ((header.info & SG_INFO_OK_MASK) != SG_INFO_OK)
    return 0;
  const auto missing = static_cast<unsigned int>(std::max(header.resid, 0));
  return missing < header.dxfer_len ? header.dxfer_len - missing : 0;
}

int send_taskfile(int fd, TaskfileRequest &request) {
  return decode_taskfile_result(ioctl(fd, HDIO_DRIVE_TASKFILE, &request));
}

}  // namespace

int sata_command_execute(int fd, int command, void *data) {
  if (command == SATA_RAW_TASKFILE || command == SATA_SMART_WRITE_LOG) {
    if (data == nullptr)
      return -1;
    TaskfileRequest request;
    if (command == SATA_SMART_WRITE_LOG)
      build_write_log(data, request);
    else
      build_raw_taskfile(data, request);
    return send_taskfile(fd, request);
  }

  const HdioRow *row = find_hdio_row(command);
  if (row == nullptr) {
    printf("Unrecognized command %d\n", command);
    errno = ENOSYS;
    return -1;
  }
  if (row->data_in && data == nullptr)
    return -1;
  std::uint8_t buffer[kHdioBuffer] = {};
  memcpy(buffer, row->header.data(), row->header.size());
  if (row->request == HDIO_DRIVE_TASK)
    return decode_task_status(ioctl(fd, row->request, buffer), std::span(buffer).first<7>());
  if (ioctl(fd, row->request, buffer) != 0)
    return -1;
  if (row->data_in)
    memcpy(data, buffer + kHdioHeader, SATA_SECTOR_SIZE);
  return 0;
}

int sata_command_execute_esata(int fd, int command, void *argument, ...) {
  if (fd < 0) {
    printf("file description error %d\n", fd);
    return -1;
  }
  const SgRow *row = find_sg_row(command);
  if (row == nullptr) {
    puts("vailable scsi_cmnd_io");  // sic
    return -1;
  }

  std::uint8_t bounce[SATA_SECTOR_SIZE] = {};
  void *data = bounce;
  SgValues values = {};
  va_list rest;
  va_start(rest, argument);
  switch (row->operand) {
    case SgOperand::kVendorDma:
      if (command == SATA_VENDOR_DMA_WRITE)
        require_argument(argument, __LINE__);
      values.byte = argument != nullptr ? *static_cast<const std::uint8_t *>(argument) : 0;
      values.lba_low = va_arg(rest, unsigned int);
      data = va_arg(rest, void *);
      if (argument == nullptr)
        data = nullptr;
      break;
    case SgOperand::kMicrocode:
      data = argument;
      values.length = va_arg(rest, unsigned int);
      values.offset = va_arg(rest, unsigned int);
      break;
    case SgOperand::kAutosave:
    case SgOperand::kSubcommand:
      require_argument(argument, __LINE__);
      values.byte = *static_cast<const std::uint8_t *>(argument);
      break;
    case SgOperand::kSector:
      require_argument(argument, __LINE__);
      break;
    case SgOperand::kNoOperand:
    case SgOperand::kStatus:
      break;
  }
  va_end(rest);
  if (data == nullptr)
    return -1;

  SgRequest request = build_sg_request(*row, values);
  std::uint8_t sense[32] = {};
  sg_io_hdr header = {};
  header.interface_id = 'S';
  header.mx_sb_len = sizeof sense;
  header.sbp = sense;
  header.cmdp = request.cdb.data();
  header.cmd_len = request.cdb_length;
  header.flags = SG_FLAG_DIRECT_IO;
  header.timeout = request.timeout_ms;
  header.pack_id = request.pack_id;
  header.dxfer_direction = SG_DXFER_NONE;
  if (request.direction != SgDirection::kNone) {
    header.dxfer_direction =
        request.direction == SgDirection::kFromDevice ? SG_DXFER_FROM_DEV : SG_DXFER_TO_DEV;
    header.dxfer_len = request.length;
    header.dxferp = data;
  }

  const int result = ioctl(fd, SG_IO, &header);
  if (result < 0) {
    const int reason = errno;
    printf("sata command %#x return %d\n", static_cast<unsigned int>(command), result);
    errno = reason;
    return -1;
  }
  if (command == SATA_VENDOR_DMA_READ) {
    // What a firmware update compares must have come from this drive.
    const std::size_t came = transferred(header);
    memset(static_cast<std::uint8_t *>(data) + came, 0, header.dxfer_len - came);
  }
  const int host_status = decode_host_status(header.host_status);
  if (host_status != 0)
    return host_status;
  if (row->operand == SgOperand::kSector)
    memcpy(argument, bounce, SATA_SECTOR_SIZE);
  return decode_sg_result(*row, result, bounce);
}

std::uint8_t ctoi(std::uint8_t c) {
  if (c >= 'A' && c <= 'F')
    return static_cast<std::uint8_t>(c - 'A' + 10);
  if (c >= 'a' && c <= 'f')
    return static_cast<std::uint8_t>(c - 'a' + 10);
  return static_cast<std::uint8_t>(c - '0');  // of any other character as well
}

int hex_to_ascii(int n) {
  return n <= 9 ? n + '0' : n + 'A' - 10;
}
