// The drive behind /dev/sda: IDENTIFY DEVICE, SMART, power, cache, and the vendor's commands for
// reading controller RAM and loading new firmware. Its bytes are files in media.

#include "vboard/interposer/models/sata_drive.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/interposer/models/host.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace vboard {
namespace {

constexpr std::uint8_t kSmart = 0xB0;
constexpr std::uint8_t kSmartMid = 0x4F;
constexpr std::uint8_t kSmartHigh = 0xC2;
constexpr std::uint8_t kExceededMid = 0xF4;
constexpr std::uint8_t kExceededHigh = 0x2C;

constexpr std::uint8_t kVendorFeature = 0xDA;
constexpr std::uint8_t kVendorCount = 0x41;
constexpr std::uint8_t kVendorMid = 0x34;
constexpr std::uint8_t kVendorHigh = 0x12;
constexpr std::uint8_t kAnnounce = 0xFF;

constexpr std::uint8_t kDownloadWithOffsets = 3;
constexpr std::size_t kTemplateAt = 4192;

// A file of media/ that a setting names. The descriptor, or a negated errno.
int open_medium(const OpenFile &file, const char *setting, int flags) {
  const std::string_view name = setting_text(file, setting);
  BoardPath path;
  const int found = find_medium(board_directory(), name, path);
  return found < 0 ? found : board_open(path.c_str(), flags | O_CLOEXEC, 0644);
}

// Reads `size` bytes; what lies behind the file's end is zeros. 0, or a negated errno.
int read_named(const OpenFile &file, const char *setting, void *out, std::size_t size,
               std::int64_t offset) {
  const int fd = open_medium(file, setting, O_RDONLY);
  if (fd < 0)
    return fd;
  memset(out, 0, size);
  const ssize_t count = sys_pread(fd, out, size, offset);
  sys_close(fd);
  return count < 0 ? static_cast<int>(count) : 0;
}

int write_named(const OpenFile &file, const char *setting, const void *bytes, std::size_t size,
                std::int64_t offset) {
  const int fd = open_medium(file, setting, O_WRONLY | O_CREAT);
  if (fd < 0)
    return fd;
  const ssize_t count = sys_pwrite(fd, bytes, size, offset);
  sys_close(fd);
  if (count < 0)
    return static_cast<int>(count);
  return static_cast<std::size_t>(count) == size ? 0 : -EIO;
}

// "ec", "b0/d0": the drive's list of what it refuses.
bool is_refused(const OpenFile &file, const AtaRegisters &registers) {
  char command[8];
  char with_features[8];
  snprintf(command, sizeof command, "%02x", registers.command);
  snprintf(with_features, sizeof with_features, "%02x/%02x", registers.command, registers.features);
  std::string_view list = setting_text(file, "aborts");
  for (std::string_view word = take_word(list); !word.empty(); word = take_word(list)) {
    if (word == command || word == with_features)
      return true;
  }
  return false;
}

constexpr int kRefused = 1;  // not an errno: the command is aborted

int smart_command(OpenFile &file, AtaRegisters &registers, void *data, std::size_t size) {
  constexpr std::uint8_t kEnable = 0xD8;
  if (registers.lba_mid != kSmartMid || registers.lba_high != kSmartHigh)
    return kRefused;
  if (!setting_is_on(file, "smart_enabled") && registers.features != kEnable)
    return kRefused;
  switch (registers.features) {
    case 0xD0:
      return read_named(file, "smart_values", data, size, 0);
    case 0xD1:
      return read_named(file, "smart_thresholds", data, size, 0);
    case 0xD2:
      return store_number(file, "autosave", registers.count == 0xF1);
    case 0xD4:  // off-line tests end at once
    case 0xDB:
      return 0;
    case kEnable:
      return store_number(file, "smart_enabled", 1);
    case 0xD9:
      return store_number(file, "smart_enabled", 0);
    case 0xDA: {
      const bool exceeded = setting_is_on(file, "smart_exceeded");
      std::int64_t told = setting_number(file, "smart_status");
      if (told < 0)
        told = exceeded ? kExceededHigh << 8 | kExceededMid : kSmartHigh << 8 | kSmartMid;
      registers.lba_mid = static_cast<std::uint8_t>(told);
      registers.lba_high = static_cast<std::uint8_t>(told >> 8);
      if (size > 0) {  // the vendor's form, with data
        memset(data, 0, size);
        *static_cast<unsigned char *>(data) = exceeded ? 2 : 1;
      }
      return 0;
    }
    default:
      return kRefused;
  }
}

int set_features(OpenFile &file, const AtaRegisters &registers) {
  if (registers.features == kVendorFeature)
    return registers.count == kVendorCount ? store_number(file, "vendor_mode", 1) : kRefused;
  constexpr std::uint8_t kKnown[] = {0x02, 0x82, 0x55, 0xAA, 0x05, 0x85};  // caches, power saving
  return std::find(std::begin(kKnown), std::end(kKnown), registers.features) != std::end(kKnown)
             ? 0
             : kRefused;
}

bool is_vendor_command(const OpenFile &file, const AtaRegisters &registers) {
  return setting_is_on(file, "vendor_mode") && registers.lba_mid == kVendorMid &&
         registers.lba_high == kVendorHigh;
}

// The block announces what the next vendor read fetches.
int announce(OpenFile &file, const AtaRegisters &registers, const void *data, std::size_t size) {
  const auto *block = static_cast<const unsigned char *>(data);
  if (!is_vendor_command(file, registers) || registers.lba_low != kAnnounce || size < kAtaSector ||
      block[0] != 0xFF || block[1] != 0xE5 || block[2] != 0x86 || block[3] != 0x03)
    return kRefused;
  const std::uint32_t address = std::uint32_t{block[4]} << 24 | std::uint32_t{block[5]} << 16 |
                                std::uint32_t{block[6]} << 8 | block[7];
  return store_number(file, "announced", address);
}

int fetch(OpenFile &file, const AtaRegisters &registers, void *data, std::size_t size) {
  const std::int64_t address = setting_number(file, "announced");
  if (!is_vendor_command(file, registers) || registers.lba_low != 0x86 || address < 0)
    return kRefused;
  const int result = read_named(file, "ram", data, size, address);
  return result != 0 ? result : store_number(file, "announced", -1);
}

// The whole image is there: the drive restarts with it and reports the identity that it brings from
// now on. A drive checks what it got, and keeps its old firmware when that is damaged.
int take_over(OpenFile &file, std::int64_t image_size) {
  unsigned char last = 0;
  unsigned char block[4096];
  std::uint8_t sum = 0;
  for (std::int64_t at = 0; at < image_size - 2; at += static_cast<std::int64_t>(sizeof block)) {
    const std::size_t piece =
        static_cast<std::size_t>(std::min<std::int64_t>(sizeof block, image_size - 2 - at));
    if (const int error = read_named(file, "firmware", block, piece, at))
      return error;
    for (std::size_t i = 0; i < piece; ++i)
      sum = static_cast<std::uint8_t>(sum + block[i]);
  }
  if (const int error = read_named(file, "firmware", &last, 1, image_size - 1))
    return error;
  if (static_cast<std::uint8_t>(sum + last) != 0)
    return kRefused;

  unsigned char identify[kAtaSector];
  if (const int error = read_named(file, "firmware", identify, sizeof identify, kTemplateAt))
    return error;
  if (const int error = write_named(file, "identify", identify, sizeof identify, 0))
    return error;
  if (const int error = store_number(file, "vendor_mode", 0))
    return error;
  return store_number(file, "updates", setting_number(file, "updates") + 1);
}

int download(OpenFile &file, const AtaRegisters &registers, const void *data, std::size_t size) {
  const std::size_t blocks = registers.count | std::size_t{registers.lba_low} << 8;
  const std::int64_t offset =
      static_cast<std::int64_t>(registers.lba_mid | registers.lba_high << 8) *
      static_cast<std::int64_t>(kAtaSector);
  const std::int64_t image_size = setting_number(file, "firmware_size");
  if (registers.features != kDownloadWithOffsets || blocks == 0 || size != blocks * kAtaSector ||
      offset != setting_number(file, "download_at") * (offset != 0))
    return kRefused;
  if (const int error = write_named(file, "firmware", data, size, offset))
    return error;
  const std::int64_t end = offset + static_cast<std::int64_t>(size);
  store_number(file, "downloads",
               setting_number(file, "downloads") + static_cast<std::int64_t>(blocks));
  if (const int error = store_number(file, "download_at", end))
    return error;
  if (image_size > 0 && end >= image_size)
    return take_over(file, image_size);
  return 0;
}

int run_command(OpenFile &file, AtaRegisters &registers, AtaData direction, void *data,
                std::size_t size) {
  const bool in = direction == AtaData::kIn;
  const bool out = direction == AtaData::kOut;
  switch (registers.command) {
    case 0xEC:
      return in ? read_named(file, "identify", data, size, 0) : kRefused;
    case kSmart:
      if ((registers.features == 0xD0 || registers.features == 0xD1) && !in)
        return kRefused;
      return smart_command(file, registers, data, in ? size : 0);
    case 0xE0:
      return store_number(file, "standby", 1);
    case 0xE5:
      registers.count = setting_is_on(file, "standby") ? 0x00 : 0xFF;
      return 0;
    case 0xE7:
    case 0xEA:
      return 0;
    case 0xEF:
      return set_features(file, registers);
    case 0x88:
      return out ? announce(file, registers, data, size) : kRefused;
    case 0x86:
      return in ? fetch(file, registers, data, size) : kRefused;
    case 0x92:
      return out ? download(file, registers, data, size) : kRefused;
    default:
      return kRefused;
  }
}

}  // namespace

int run_ata_command(OpenFile &file, AtaRegisters &registers, AtaData direction, void *data,
                    std::size_t size) {
  const int result =
      is_refused(file, registers) ? kRefused : run_command(file, registers, direction, data, size);
  if (result < 0)
    return result;
  registers.features = result == kRefused ? kAtaErrorAbort : 0;
  registers.command = result == kRefused ? kAtaAborted : kAtaReady;
  return 0;
}

int load_identify(OpenFile &file, unsigned char (&out)[kAtaSector]) {
  return read_named(file, "identify", out, sizeof out, 0);
}

}  // namespace vboard
