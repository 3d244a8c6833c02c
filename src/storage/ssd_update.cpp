// upgrade ssd: firmware update of the board maker's own SATA SSDs, from a file.
//
// A drive that takes a wrong image is lost, so nothing of the image is sent before every check has
// passed: checksum, revision, and the hardware tag read out of the drive's own RAM. The status is 0
// even after a failed update, and a drive of another maker prints "update success": it was left
// alone, which is what was asked for. Scripts read the lines.

#include "storage/ssd_update.h"

#include "benchrig/ssd_update.h"
#include "storage/sata_device.h"
#include "storage/ssd_image.h"
#include "storage/storage.h"

#include <sys/stat.h>

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

namespace {

constexpr int kChecksFailed = -2;
constexpr int kOpenFailed = -2;
constexpr int kReadFailed = -3;
constexpr std::size_t kNameMax = 63;

constexpr std::uint32_t kChunkBlocks = 8;
constexpr std::uint32_t kBlocksMax = 65536;  // the command's offset has 16 bits

// LBA low of the vendor commands: what a write announces, what a read fetches.
constexpr unsigned int kAnnounce = 0xFF;
constexpr unsigned int kFetchRam = 0x86;
constexpr unsigned int kFetchMemory = 0x22;
constexpr unsigned int kFetchExtent = 0x23;

using RequestBlock = std::uint8_t[SATA_SECTOR_SIZE];

// Enables the vendor commands, announces what is wanted and fetches it. Starts from zeros: a status
// of the host adapter is not negative and counts as read, although nothing came.
int vendor_read(const char *path, RequestBlock &block, unsigned int fetch, void *destination,
                std::uint32_t length) {
  if (destination != nullptr)
    memset(destination, 0, length);
  if (sata_enable_vendor_mode(path) < 0)
    printf("enable_vendor error errno = %d\n", errno);  // the drive may be in that mode already
  const std::uint8_t one = 1;
  int result = sata_vendor_dma_write(path, &one, kAnnounce, block);
  if (result < 0) {
    printf("enable_vendor write errno = %d\n", errno);
    return result;
  }
  const auto count = static_cast<std::uint8_t>(length / SATA_SECTOR_SIZE);
  result = sata_vendor_dma_read(path, &count, fetch, destination);
  if (result < 0) {
    printf("enable_vendor read errno = %d\n", errno);
    return result;
  }
  return 0;
}

int read_and_compare_tag(const char *path, const void *image) {
  void *ram = malloc(SSD_TAG_BLOCK_SIZE);
  if (ram == nullptr) {
    puts("malloc rawbuf failed");
    return -1;
  }
  int result = 0;
  if (korsata_read_ram(path, 0, ram, SSD_TAG_BLOCK_SIZE) != 0) {
    printf("sata[%s] read ram data fail!\n", path);
    result = kChecksFailed;
  } else if (korstore_compare_binfile(image, ram) != 0) {
    printf("sata[%s] bin file compaer fail!\n", path);  // sic
    result = kChecksFailed;
  }
  free(ram);
  return result;
}

void copy_text(char *out, const void *field, std::size_t size) {
  memcpy(out, field, size);
  out[size] = '\0';
}

void print_identity(const char *label, const std::uint8_t *text, std::size_t size) {
  printf("%-33s", label);
  for (std::size_t i = 0; i < size; ++i)
    putchar(text[i]);
  putchar('\n');
}

int update_from_file(FILE *file, const char *node, void *image, std::size_t length,
                     const char *revision) {
  if (fread(image, 1, length, file) != length) {
    puts("read bin fail");
    return kReadFailed;
  }
  const int result = ssd_upgrade_device(node, image, static_cast<std::uint32_t>(length), revision);
  if (result != 0)
    printf("update fail(%d)\n", result);
  else
    puts("update success");
  return 0;
}

}  // namespace

int korsata_read_ram(const char *path, std::uint32_t address, void *destination,
                     std::uint32_t length) {
  RequestBlock block;
  build_ram_request(address, block);
  return vendor_read(path, block, kFetchRam, destination, length);
}

int ssd_read_memory(const char *path, std::uint32_t address, void *destination,
                    std::uint32_t length) {
  RequestBlock block;
  build_memory_request(address, block);
  return vendor_read(path, block, kFetchMemory, destination, length);
}

int ssd_read_extent(const char *path, std::uint32_t &out_value, std::uint8_t &out_byte) {
  RequestBlock block;
  std::uint8_t answer[SATA_SECTOR_SIZE];
  build_extent_request(block);
  const int result = vendor_read(path, block, kFetchExtent, answer, sizeof answer);
  if (result != 0)
    return result;
  decode_extent(answer, out_value, out_byte);
  return 0;
}

int korsata_download_microcode_cmd(const char *path, const void *image, std::uint32_t length) {
  if (path == nullptr) {
    printf("%s is NULL\n", "device name");
    return -1;
  }
  const int disk = open(path, O_RDWR | O_NONBLOCK);
  if (disk < 0) {
    printf("open %s failed\n", path);
    return -1;
  }
  const std::uint32_t blocks = length / SATA_SECTOR_SIZE + (length % SATA_SECTOR_SIZE != 0);
  // Offsets would start again at 0 and overwrite what was sent first.
  if (blocks > kBlocksMax) {
    close(disk);
    return -1;
  }
  // A last block that the image does not fill ends in what follows in the caller's buffer.
  auto *const bytes = static_cast<std::uint8_t *>(const_cast<void *>(image));
  for (std::uint32_t offset = 0; offset < blocks; offset += kChunkBlocks) {
    const std::uint32_t size = std::min(blocks - offset, kChunkBlocks) * SATA_SECTOR_SIZE;
    const int result =
        sata_command_execute_esata(disk, SATA_DOWNLOAD_MICROCODE,
                                   bytes + std::size_t{offset} * SATA_SECTOR_SIZE, size, offset);
    if (result != 0)
      return result;  // deliberately left open: the drive is in the middle of a transfer
  }
  close(disk);
  return 0;
}

int korsata_download_microcode(const char *path, void *image, std::uint32_t length,
                               const char *update_revision, const void *identify) {
  if (path == nullptr || image == nullptr || update_revision == nullptr || identify == nullptr)
    return -1;
  const std::span<std::uint8_t> content(static_cast<std::uint8_t *>(image), length);
  if (!image_checksum_is_valid(content)) {
    printf("sata[%s] checksum fail!\n", path);
    return -1;
  }

  const auto *const identity = static_cast<const std::uint8_t *>(identify);
  char wwn[kWwnTextSize + 1];
  char current[kRevisionSize + 1];
  char update[kRevisionSize + 1] = "";
  korstore_analyse_identify_ssdwwn(identity, wwn);
  copy_text(current, identity + kIdentifyRevision, kRevisionSize);
  memcpy(update, update_revision, strnlen(update_revision, kRevisionSize));
  if (!revision_may_follow(update, current)) {
    printf("fwver error(curFw:%s updateFw:%s)", current, update);  // the line stays open
    return kChecksFailed;
  }

  const int compared = read_and_compare_tag(path, image);
  if (compared != 0)
    return compared;

  // The drive keeps its identity: the new firmware will report the one written into the image.
  char serial[kSerialSize + 1];
  char model[kModelSize + 1];
  copy_text(serial, identity + kIdentifySerial, kSerialSize);
  copy_text(model, identity + kIdentifyModel, kModelSize);
  korsata_modify_fw_identify(image, serial, wwn, update, model);
  content.back() = image_checksum(content);

  const int sent = korsata_download_microcode_cmd(path, image, length);
  if (sent != 0)
    printf("sata[%s] download microcode fail!\n", path);
  return sent;
}

int ssd_upgrade_device(const char *path, void *image, std::uint32_t length, const char *revision) {
  if (path == nullptr || image == nullptr || revision == nullptr)
    return -1;
  std::uint8_t identify[SATA_SECTOR_SIZE] = {};
  int result = sata_read_identify_info(path, identify);
  if (result != 0) {
    printf("sata[%s] read identify info fail!\n", path);
    return result;
  }
  puts("**************************IDENTIFY_INFO************************");
  print_identity("SerialNumber(SN)", identify + kIdentifySerial, kSerialSize);
  print_identity("ModelNumber:", identify + kIdentifyModel, kModelSize);
  print_identity("FirmWare(FW):", identify + kIdentifyRevision, kRevisionSize);

  std::uint8_t smart[SATA_SECTOR_SIZE];
  result = sata_read_smart_retry(path, smart);
  if (result != 0) {
    printf("sata[%s] read smart info fail!\n", path);
    return result;
  }
  if (!ssd_is_own_drive(reinterpret_cast<const char *>(identify + kIdentifyModel), smart)) {
    printf("not find this type sata[%s],not support upgrade!\n", path);
    return 0;
  }
  printf("This is korvexium sata[%s],will go to upgrade!\n", path);
  result = korsata_download_microcode(path, image, length, revision, identify);
  if (result != 0)
    printf("sata[%s] download microcode fail!\n", path);  // once more, after the step's own line
  return result;
}

int ssd_upgrade_applet(int argc, char **argv) {
  if (argc != 3) {
    puts("Invalid params, eg. upgrade ssd  hda  fw.bin");
    return 0;
  }
  const char *device = argv[1];
  const char *path = argv[2];
  if (strlen(device) > kNameMax) {
    fputs("Divice name too long(<63)", stdout);  // sic; the line stays open
    return 0;
  }
  char node[kNameMax + 1];
  snprintf(node, sizeof node, "/dev/%.58s", device);  // 63 characters in all
  if (strlen(path) > kNameMax) {
    puts("File path name too long(<63)");
    return 0;
  }
  printf("FW from %s\n", path);
  char revision[kRevisionSize + 1];
  revision_of_file_name(path, revision);

  struct stat status;
  if (stat(path, &status) != 0 || status.st_size > UINT32_MAX) {
    puts("open bin fail");
    return kOpenFailed;
  }
  const auto length = static_cast<std::size_t>(status.st_size);
  const std::uint64_t room = image_buffer_size(length);
  void *image = room <= SIZE_MAX ? calloc(1, static_cast<std::size_t>(room)) : nullptr;
  if (image == nullptr) {
    puts("open bin fail");
    return kOpenFailed;
  }
  int result = kOpenFailed;
  FILE *file = fopen(path, "rb");
  if (file == nullptr) {
    puts("open bin fail");
  } else {
    result = update_from_file(file, node, image, length, revision);
    if (fclose(file) != 0)
      puts("close bin fail");
  }
  free(image);
  return result;
}
