// What IDENTIFY DEVICE data tell, after the ATA/ATAPI Command Set standards (ATA8-ACS to ACS-4).
// Words that older drives leave at 0 or at FFFFh tell nothing.

#include "platform/sata.h"

#include <errno.h>
#include <string.h>

#include <bit>
#include <cstdint>

namespace {

constexpr std::uint32_t kDefaultSectorSize = 512;
constexpr int kAttributes = 30;

std::uint16_t word(const void *identify, int index) {
  const auto *bytes = static_cast<const std::uint8_t *>(identify) + 2 * index;
  return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

std::uint64_t number(const void *identify, int index, int words) {
  std::uint64_t value = 0;
  for (int i = words; i-- > 0;)
    value = value << 16 | word(identify, index + i);
  return value;
}

bool is_told(std::uint16_t value) {
  return value != 0 && value != 0xFFFF;
}

// Words whose bits 15 and 14 are 0 and 1 hold what the standard says.
bool is_valid(std::uint16_t value) {
  return (value & 0xC000) == 0x4000;
}

std::uint64_t sectors_of(const void *identify) {
  const std::uint16_t features = word(identify, 83);
  if (is_valid(features) && (features & 1 << 10) != 0) {  // 48-bit addresses
    const std::uint16_t additional = word(identify, 69);
    if (additional != 0xFFFF && (additional & 1 << 3) != 0)
      return number(identify, 230, 4);
    return number(identify, 100, 4);
  }
  if ((word(identify, 49) & 1 << 9) != 0)  // 28-bit addresses
    return number(identify, 60, 2);
  return std::uint64_t{word(identify, 1)} * word(identify, 3) * word(identify, 6);
}

void sector_sizes(const void *identify, std::uint32_t &logical, std::uint32_t &physical) {
  logical = kDefaultSectorSize;
  const std::uint16_t sizes = word(identify, 106);
  if (is_valid(sizes) && (sizes & 1 << 12) != 0)
    logical = static_cast<std::uint32_t>(number(identify, 117, 2) * 2);
  physical = logical;
  if (is_valid(sizes) && (sizes & 1 << 13) != 0)
    physical = logical << (sizes & 0xF);
}

// Word 222: bits 15 to 12 name the transport (1: serial), each of the others a version. Word 76
// tells of a serial transport that names no version.
const char *sata_version_of(const void *identify) {
  static constexpr char kVersions[][16] = {
      "ATA8-AST", "SATA 1.0a", "SATA II Ext", "SATA 2.5", "SATA 2.6", "SATA 3.0",
      "SATA 3.1", "SATA 3.2",  "SATA 3.3",    "SATA 3.4", "SATA 3.5",
  };
  const std::uint16_t transport = word(identify, 222);
  const bool is_serial = is_told(transport) && transport >> 12 == 1;
  const int named = is_serial ? static_cast<int>(std::bit_width(transport & 0x7FFu)) : 0;
  static_assert(sizeof kVersions / sizeof kVersions[0] == std::bit_width(0x7FFu));
  if (named != 0)
    return kVersions[named - 1];
  return is_told(word(identify, 76)) ? "SATA" : "";
}

std::uint32_t max_speed_of(const void *identify) {
  const std::uint16_t speeds = word(identify, 76);
  return is_told(speeds) ? static_cast<std::uint32_t>(std::bit_width(speeds >> 1 & 0x7u)) : 0;
}

std::uint32_t current_speed_of(const void *identify) {
  const std::uint16_t current = word(identify, 77);
  return is_told(word(identify, 76)) && is_told(current) ? current >> 1 & 0x7 : 0;
}

void trim_of(const void *identify, std::uint32_t &flags, std::uint32_t &count) {
  const std::uint16_t management = word(identify, 169);
  if (management == 0xFFFF || (management & 1) == 0)
    return;
  const std::uint16_t additional = word(identify, 69);
  flags = RIG_ATA_TRIM_SUPPORTED;
  if (additional != 0xFFFF) {
    flags |= (additional & 1 << 14) != 0 ? RIG_ATA_TRIM_DETERMINISTIC : 0;
    flags |= (additional & 1 << 5) != 0 ? RIG_ATA_TRIM_ZERO : 0;
  }
  count = word(identify, 105);
}

bool has_attribute(const void *smart_values, std::uint8_t id) {
  const auto *entries = static_cast<const std::uint8_t *>(smart_values) + 2;
  for (int i = 0; i < kAttributes; ++i) {
    if (entries[12 * i] == id)
      return true;
  }
  return false;
}

bool has_all(const void *smart_values, const std::uint8_t (&ids)[4]) {
  for (const std::uint8_t id : ids) {
    if (!has_attribute(smart_values, id))
      return false;
  }
  return true;
}

}  // namespace

int rig_ata_get_identify_info(const void *identify, IdentifyInfo *out) {
  if (identify == nullptr || out == nullptr) {
    errno = EINVAL;
    return -1;
  }
  IdentifyInfo info = {};
  info.sata_version = sata_version_of(identify);
  info.sectors = sectors_of(identify);
  if (info.sectors != 0)
    sector_sizes(identify, info.logical_sector_size, info.physical_sector_size);
  info.bytes = info.sectors * info.logical_sector_size;
  info.max_speed = max_speed_of(identify);
  info.current_speed = current_speed_of(identify);
  trim_of(identify, info.trim_flags, info.trim_count);
  *out = info;
  return 0;
}

// The two families are told apart by how they count erasures, which no other drive's attributes
// resemble: both report host writes in 241, family A the most, least and average erasures in 165 to
// 167, family B the least, most and average in 206 to 208 (a rotating disk's flying height and spin
// up live there, so only a drive without rotation counts).
int rig_store_get_factory(const void *identify, const void *smart_values) {
  static constexpr std::uint8_t kFamilyA[] = {165, 166, 167, 241};
  static constexpr std::uint8_t kFamilyB[] = {206, 207, 208, 241};
  constexpr std::uint16_t kNotRotating = 1;
  if (identify == nullptr || smart_values == nullptr || word(identify, 217) != kNotRotating)
    return 0;
  if (has_all(smart_values, kFamilyA))
    return RIG_STORE_FAMILY_A;
  return has_all(smart_values, kFamilyB) ? RIG_STORE_FAMILY_B : 0;
}
