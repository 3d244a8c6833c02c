// ATA commands to a disk by its path. IDENTIFY and the SMART reads go through the HDIO transport,
// everything else through SG_IO: that is fixed for each command, not probed.

#include "storage/sata_device.h"

#include "benchrig/sata.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <utility>

namespace {

constexpr int kSmartAttempts = 3;
constexpr int kNullArgument = -14;

int open_disk(const char *path) {
  if (path == nullptr) {
    printf("%s is NULL\n", "device name");
    return -1;
  }
  const int disk = open(path, O_RDWR | O_NONBLOCK);
  if (disk < 0)
    printf("open %s failed\n", path);
  return disk;
}

bool buffer_is_null(const void *buffer) {
  if (buffer == nullptr)
    printf("%s is NULL\n", "data buffer");
  return buffer == nullptr;
}

int close_disk(int disk, int result, const char *command) {
  if (result < 0) {
    const int reason = errno;
    printf("send %s command, return %d\n", command, result);
    errno = reason;
  }
  close(disk);
  return result;
}

// A command without data through SG_IO.
int send_plain(const char *path, int code, const char *command) {
  const int disk = open_disk(path);
  if (disk < 0)
    return -1;
  return close_disk(disk, sata_command_execute_esata(disk, code, nullptr), command);
}

// A command that fills a sector, through HDIO.
int read_sector(const char *path, int code, void *sector, const char *command) {
  if (path != nullptr && buffer_is_null(sector))
    return -1;
  const int disk = open_disk(path);
  if (disk < 0)
    return -1;
  return close_disk(disk, sata_command_execute(disk, code, sector), command);
}

int vendor_dma(const char *path, int code, const std::uint8_t *count, unsigned int lba_low,
               void *data, const char *command) {
  if (path != nullptr && buffer_is_null(data))
    return -1;
  const int disk = open_disk(path);
  if (disk < 0)
    return -1;
  // The transport takes every argument as a pointer to change; it only reads this one.
  void *const argument = const_cast<std::uint8_t *>(count);
  return close_disk(disk, sata_command_execute_esata(disk, code, argument, lba_low, data), command);
}

void swap_pairs(std::uint8_t *text, int size) {
  for (int i = 0; i < size; i += 2)
    std::swap(text[i], text[i + 1]);
}

}  // namespace

int sata_standby_immediate(const char *path) {
  return send_plain(path, SATA_STANDBY_IMMEDIATE, "STANDBY IMMEDIATE");
}

int sata_flush_cache(const char *path) {
  return send_plain(path, SATA_FLUSH_CACHE, "FLUSH CACHE");
}

int sata_read_smart_values(const char *path, void *sector) {
  return read_sector(path, SATA_SMART_READ_VALUES, sector, "SMART READ VALUES");
}

int sata_read_smart_thresholds(const char *path, void *sector) {
  return read_sector(path, SATA_SMART_READ_THRESHOLDS, sector, "SMART READ THRESHOLDS");
}

int sata_smart_return_status(const char *path) {
  return send_plain(path, SATA_SMART_RETURN_STATUS, "SMART RETURN STATUS");
}

int sata_enable_smart(const char *path) {
  if (path == nullptr) {
    printf("%s is NULL\n", "device name");
    return -1;
  }
  // Asked for before the disk is touched, and used for nothing else: an update that is about to run
  // out of memory ends here.
  void *scratch = malloc(SATA_SECTOR_SIZE);
  if (scratch == nullptr) {
    puts("malloc failed");
    return -1;
  }
  *static_cast<volatile std::uint8_t *>(scratch) = 0;  // or the compiler drops it
  int result = -1;
  const int disk = open_disk(path);
  if (disk >= 0) {
    const char *command = "SMART ENABLE";
    result = sata_command_execute_esata(disk, SATA_SMART_ENABLE, nullptr);
    if (result >= 0) {
      std::uint8_t on = 1;
      command = "SMART AUTOSAVE";
      result = sata_command_execute_esata(disk, SATA_SMART_AUTOSAVE, &on);
    }
    close_disk(disk, result, command);
  }
  const int reason = errno;
  free(scratch);
  errno = reason;
  return result;
}

int sata_disable_smart(const char *path) {
  return send_plain(path, SATA_SMART_DISABLE, "SMART DISABLE");
}

int sata_read_identify_info(const char *path, void *sector) {
  if (path == nullptr || sector == nullptr)
    return -1;
  const int result = read_sector(path, SATA_IDENTIFY_DEVICE, sector, "IDENTIFY DEVICE");
  swap_identify_texts(static_cast<std::uint8_t *>(sector));  // after a failure too
  return result;
}

void swap_identify_texts(std::uint8_t *sector) {
  swap_pairs(sector + 20, 20);  // serial number
  swap_pairs(sector + 54, 40);  // model
  swap_pairs(sector + 46, 8);   // firmware revision
}

int sata_enable_vendor_mode(const char *path) {
  return send_plain(path, SATA_SET_FEATURES, "ATA COMMAND SETFEATURES");
}

int sata_vendor_dma_read(const char *path, const std::uint8_t *count, unsigned int lba_low,
                         void *data) {
  return vendor_dma(path, SATA_VENDOR_DMA_READ, count, lba_low, data,
                    "ATA COMMAND VENDOR DMA READ");
}

int sata_vendor_dma_write(const char *path, const std::uint8_t *count, unsigned int lba_low,
                          void *data) {
  return vendor_dma(path, SATA_VENDOR_DMA_WRITE, count, lba_low, data,
                    "ATA COMMAND VENDOR DMA WRITE");
}

int sata_read_smart_retry(const char *path, void *sector) {
  if (path == nullptr || sector == nullptr)
    return kNullArgument;
  if (sata_enable_smart(path) < 0)
    printf("enable_smart error errno = %d\n", errno);
  memset(sector, 0, SATA_SECTOR_SIZE);
  for (int attempt = 0; attempt < kSmartAttempts; ++attempt) {
    if (sata_read_smart_values(path, sector) == 0)
      return 0;
    puts("sata_read_smart_values error, retry!");
  }
  puts("sata_read_smart_values failed!");
  return -1;
}
