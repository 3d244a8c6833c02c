// SMART attributes of a SATA disk: the two sectors' layout, the attribute names of each drive
// family, and what the report computes of them. Nothing here prints or needs a disk.

#ifndef BENCHRIG_STORAGE_SMART_ATTRIBUTES_H
#define BENCHRIG_STORAGE_SMART_ATTRIBUTES_H

#include "platform/sata.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

using AtaSector = std::span<const std::uint8_t, RIG_ATA_SECTOR_SIZE>;

inline constexpr int kAttributes = 30;

// One entry of the values sector with the entry of the thresholds sector at the same position:
// position pairs them, not the id.
struct Attribute {
  std::uint8_t id;  // 0: an empty slot
  std::uint16_t flags;
  std::uint8_t value;
  std::uint8_t worst;
  std::array<std::uint8_t, 6> raw;  // little-endian
  std::uint8_t threshold_id;
  std::uint8_t threshold;
};

inline constexpr std::uint16_t kPreFailure = 0x1;

// `index` from 0 to kAttributes - 1.
Attribute decode_attribute(AtaSector values, AtaSector thresholds, int index);

std::uint64_t raw48(const Attribute &attribute);
// The raw value's 16-bit word 0, 1 or 2.
std::uint16_t raw_word(const Attribute &attribute, std::size_t word);

// The rest of the values sector.
struct SmartHeader {
  std::uint16_t revision;                //   0
  std::uint8_t offline_status;           // 362
  std::uint8_t self_test_status;         // 363
  std::uint16_t offline_seconds;         // 364
  std::uint8_t offline_capability;       // 367
  std::uint16_t smart_capability;        // 368
  std::uint8_t error_log_capability;     // 370
  std::uint8_t short_test_minutes;       // 372
  std::uint8_t extended_test_minutes;    // 373
  std::uint8_t conveyance_test_minutes;  // 374
};

SmartHeader decode_smart_header(AtaSector values);

enum class DriveFamily : std::uint8_t { kA, kB, kOther };

// Of rig_store_get_factory()'s answer.
DriveFamily family_of(int factory);

struct AttributeName {
  std::uint32_t id;
  const char *name;
};

// The family's table, in its order, ended by id 0.
const AttributeName *attribute_names(DriveFamily family);
// The first row's that has the id, else "Unknown attribute".
const char *attribute_name(DriveFamily family, std::uint8_t id);

// How the attribute's columns are laid out.
enum class RawLayout : std::uint8_t {
  kNumber,       // the 48-bit number
  kTemperature,  // current, least, most
  kBadBlocks,    // three words
  kPowerOff,     // two words
  kLifeLeft,     // two bytes
};

RawLayout raw_layout(DriveFamily family, std::uint8_t id);

// Written data of the two SSD families. 32-bit arithmetic that wraps, as the drives' tools compute.
struct Wear {
  std::uint32_t average_erase;  // 0 when the drive does not report it
  std::uint32_t host_gigabytes;
};

Wear collect_wear(DriveFamily family, AtaSector values);
// Write amplification in thousandths; 0 when nothing was written.
std::uint32_t write_amplification(const Wear &wear, std::uint64_t capacity_bytes);

// How many pre-failure attributes are at or below their threshold.
int count_imminent_failures(AtaSector values, AtaSector thresholds);

#endif
