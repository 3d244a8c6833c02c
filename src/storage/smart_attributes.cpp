// SMART attributes: decoders and name tables. Entries have 12 bytes from byte 2 on, so that no
// field is aligned: everything is put together byte by byte.

#include "storage/smart_attributes.h"

namespace {

constexpr std::size_t kFirstEntry = 2;
constexpr std::size_t kEntrySize = 12;

constexpr std::uint8_t kAverageEraseA = 167;
constexpr std::uint8_t kAverageEraseB = 208;
constexpr std::uint8_t kHostWrites = 241;

// clang-format off
constexpr AttributeName kTableA[] = {
    {1, "Raw Read Error Rate"},
    {5, "Reallocated Sector Count"},
    {9, "Power-on Hours Count"},
    {12, "Power Cycle Count"},
    {160, "Uncorrectable Sector Count"},
    {161, "Valid Spare Blocks"},
    {163, "Initial Invalid Blocks"},
    {164, "Total Erase Count"},
    {165, "Maximum Erase Count"},
    {166, "Minimum Erase Count"},
    {167, "Average Erase Count"},
    {169, "Percentage Lifetime Remaining"},
    {181, "Program Fail Count"},
    {182, "Erase Fail Count"},
    {192, "Power Off Retract Count"},
    {194, "Current Temperature"},
    {195, "Hardware ECC recovered"},
    {196, "Reallocation Event Count"},
    {197, "Current Pending Sector Count"},
    {199, "Ultra ATA CRC Error Rate"},
    {232, "Available Reserved Space"},
    {241, "Total LBA Write"},
    {242, "Total LBA Read"},
    {0, nullptr},
};

constexpr AttributeName kTableB[] = {
    {5, "Reallocated Sector Count"},
    {9, "Power-on Hours Count"},
    {12, "Power Cycle Count"},
    {13, "Soft Read Error Rate"},
    {167, "SSD Protect Mode"},
    {168, "SATA PHY Error Count"},
    {169, "Total Bad Block Number"},
    {170, "Available Reserved Space"},
    {171, "Program Fail Count"},
    {172, "Erase Fail Count"},
    {174, "Remap Count"},
    {175, "Power Loss Protection Failure"},
    {177, "Read Retyr Count"},  // sic
    {180, "Spare Block Count Left"},
    {183, "SATA Downshift Count"},
    {184, "L2P Error Count"},
    {187, "Uncorrectable Errors Count"},
    {192, "Power Off Retract Count"},
    {194, "Current Temperature"},
    {196, "Reallocation Event Count"},
    {197, "Current Pending Sector Count"},
    {199, "Ultra ATA CRC Error Rate"},
    {206, "Minimum Erase Count"},
    {207, "Maximum Erase Count"},
    {208, "Average Erase Count"},
    {231, "SSD Life Left"},
    {233, "GByte Write To The Nand"},
    {234, "GByte Read From The Nand"},
    {241, "GByte Written By The Host"},
    {242, "GByte Read By The Host"},
    {243, "NAND Temperature"},
    {254, "Capacitance value"},
    {0, nullptr},
};

constexpr AttributeName kTableD[] = {
    {1, "Raw Read Error Rate"},
    {2, "Throughput Performance"},
    {3, "Spin Up Time"},
    {4, "Start/Stop Count"},
    {5, "Reallocated Sector Count"},
    {6, "Read Channel Margin"},
    {7, "Seek Error Rate"},
    {8, "Seek Time Performance"},
    {9, "Power-on Hours Count"},
    {10, "Spin Up Retry Count"},
    {11, "Calibration Retry Count"},
    {12, "Power Cycle Count"},
    {13, "Soft Read Error Rate"},
    {184, "Soft Read Error Rate"},  // sic: the name of 13
    {187, "Reported_Uncorrect"},
    {188, "Command_Timeout"},
    {189, "High_Fly_Writes"},
    {190, "Airflow_Temperature_Cel"},
    {191, "G-Sense Error Rate"},
    {192, "Power Off Retract Count"},
    {193, "Load/Unload Cycle Count"},
    {194, "Current Temperature"},
    {195, "ECC on the Fly count"},
    {196, "Reallocation Event Count"},
    {197, "Current Pending Sector Count"},
    {198, "Off-line Scan Uncorrect. Sector Count"},
    {199, "Ultra ATA CRC Error Rate"},
    {200, "Write Error Count"},
    {202, "TA Increase Count"},
    {203, "Run Out Cancel"},
    {204, "Shock Count Write Opern"},
    {205, "Shock Rate Write Opern"},
    {206, "Flying Height Measurement"},
    {207, "Spin High Current"},
    {208, "Spin Buzz"},
    {209, "Offline Seek Performance"},
    {220, "Disk Shift"},
    {221, "G-Sense Error Rate"},
    {222, "Loaded Hours"},
    {223, "Load Retry Count"},
    {224, "Load Friction"},
    {225, "Load Cycle Count"},
    {226, "Load-in Time"},
    {227, "Torq-amp Count"},
    {228, "Power Off Retract Count"},
    {230, "Head Amplitude"},
    {231, "Temperature Celsius"},
    {240, "Head Flying Hours"},
    {250, "Read Error Retry Rate"},
    {254, "Free Fall Sensor"},
    {0, nullptr},
};
// clang-format on

std::uint16_t load_u16(const std::uint8_t *bytes) {
  return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

const std::uint8_t *entry(AtaSector sector, int index) {
  return sector.data() + kFirstEntry + static_cast<std::size_t>(index) * kEntrySize;
}

}  // namespace

Attribute decode_attribute(AtaSector values, AtaSector thresholds, int index) {
  const std::uint8_t *value = entry(values, index);
  const std::uint8_t *threshold = entry(thresholds, index);
  Attribute attribute = {};
  attribute.id = value[0];
  attribute.flags = load_u16(value + 1);
  attribute.value = value[3];
  attribute.worst = value[4];
  for (std::size_t i = 0; i < attribute.raw.size(); ++i)
    attribute.raw[i] = value[5 + i];
  attribute.threshold_id = threshold[0];
  attribute.threshold = threshold[1];
  return attribute;
}

std::uint64_t raw48(const Attribute &attribute) {
  std::uint64_t number = 0;
  for (std::size_t i = attribute.raw.size(); i-- > 0;)
    number = number << 8 | attribute.raw[i];
  return number;
}

std::uint16_t raw_word(const Attribute &attribute, std::size_t word) {
  return load_u16(&attribute.raw[2 * word]);
}

SmartHeader decode_smart_header(AtaSector values) {
  SmartHeader header = {};
  header.revision = load_u16(&values[0]);
  header.offline_status = values[362];
  header.self_test_status = values[363];
  header.offline_seconds = load_u16(&values[364]);
  header.offline_capability = values[367];
  header.smart_capability = load_u16(&values[368]);
  header.error_log_capability = values[370];
  header.short_test_minutes = values[372];
  header.extended_test_minutes = values[373];
  header.conveyance_test_minutes = values[374];
  return header;
}

DriveFamily family_of(int factory) {
  switch (factory) {
    case RIG_STORE_FAMILY_A:
      return DriveFamily::kA;
    case RIG_STORE_FAMILY_B:
      return DriveFamily::kB;
    default:
      return DriveFamily::kOther;
  }
}

const AttributeName *attribute_names(DriveFamily family) {
  switch (family) {
    case DriveFamily::kA:
      return kTableA;
    case DriveFamily::kB:
      return kTableB;
    default:
      return kTableD;
  }
}

const char *attribute_name(DriveFamily family, std::uint8_t id) {
  for (const AttributeName *row = attribute_names(family); row->id != 0; ++row) {
    if (row->id == id)
      return row->name;
  }
  return "Unknown attribute";
}

RawLayout raw_layout(DriveFamily family, std::uint8_t id) {
  if (family != DriveFamily::kB)
    return RawLayout::kNumber;
  switch (id) {
    case 194:
      return RawLayout::kTemperature;
    case 169:
      return RawLayout::kBadBlocks;
    case 192:
      return RawLayout::kPowerOff;
    case 231:
      return RawLayout::kLifeLeft;
    default:
      return RawLayout::kNumber;
  }
}

Wear collect_wear(DriveFamily family, AtaSector values) {
  const std::uint8_t average_erase = family == DriveFamily::kA ? kAverageEraseA : kAverageEraseB;
  Wear wear = {};
  for (int i = 0; i < kAttributes; ++i) {
    const Attribute attribute = decode_attribute(values, values, i);
    const auto low = static_cast<std::uint32_t>(raw48(attribute));
    if (attribute.id == average_erase)
      wear.average_erase = low;
    if (attribute.id == kHostWrites)
      wear.host_gigabytes = low;
  }
  return wear;
}

std::uint32_t write_amplification(const Wear &wear, std::uint64_t capacity_bytes) {
  if (wear.host_gigabytes == 0)
    return 0;
  const std::uint32_t nand_gigabytes =
      static_cast<std::uint32_t>(capacity_bytes >> 30) * wear.average_erase;
  return 1000 * nand_gigabytes / wear.host_gigabytes;
}

int count_imminent_failures(AtaSector values, AtaSector thresholds) {
  int count = 0;
  for (int i = 0; i < kAttributes; ++i) {
    const Attribute attribute = decode_attribute(values, thresholds, i);
    if (attribute.id != 0 && attribute.threshold_id != 0 && (attribute.flags & kPreFailure) != 0 &&
        attribute.value <= attribute.threshold)
      ++count;
  }
  return count;
}
