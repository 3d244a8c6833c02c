// SMART sectors: decoding, names, layouts, wear and the failure prediction.

#include "storage/smart_attributes.h"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <set>
#include <string>

namespace {

using Sector = std::array<std::uint8_t, 512>;

void put(Sector &values, int index, std::uint8_t id, std::uint16_t flags, std::uint8_t value,
         std::uint64_t raw) {
  std::uint8_t *entry = &values[2 + 12 * static_cast<std::size_t>(index)];
  entry[0] = id;
  entry[1] = static_cast<std::uint8_t>(flags);
  entry[2] = static_cast<std::uint8_t>(flags >> 8);
  entry[3] = value;
  for (int i = 0; i < 6; ++i)
    entry[5 + i] = static_cast<std::uint8_t>(raw >> (8 * i));
}

void put_threshold(Sector &thresholds, int index, std::uint8_t id, std::uint8_t threshold) {
  thresholds[2 + 12 * static_cast<std::size_t>(index)] = id;
  thresholds[3 + 12 * static_cast<std::size_t>(index)] = threshold;
}

TEST(SmartAttributes, an_entry_is_put_together_from_both_sectors_by_position) {
  Sector values = {};
  Sector thresholds = {};
  const std::uint8_t entry[12] = {0xC2, 0x22, 0x81, 97, 88, 1, 2, 3, 4, 5, 0xF6, 0xEE};
  std::copy(std::begin(entry), std::end(entry), &values[2 + 12 * 29]);
  put_threshold(thresholds, 29, 7, 45);
  const Attribute attribute = decode_attribute(values, thresholds, 29);
  EXPECT_EQ(attribute.id, 0xC2);
  EXPECT_EQ(attribute.flags, 0x8122);
  EXPECT_EQ(attribute.value, 97);
  EXPECT_EQ(attribute.worst, 88);
  EXPECT_EQ(raw48(attribute), 0xF60504030201u);
  EXPECT_EQ(raw_word(attribute, 0), 0x0201);
  EXPECT_EQ(raw_word(attribute, 1), 0x0403);
  EXPECT_EQ(raw_word(attribute, 2), 0xF605);
  EXPECT_EQ(attribute.threshold_id, 7);
  EXPECT_EQ(attribute.threshold, 45);
}

TEST(SmartAttributes, low_bytes_from_128_on_leave_the_high_ones_alone) {
  Sector values = {};
  const Sector thresholds = {};
  put(values, 0, 0xFF, 0x0180, 0x80, 0x00FF01807EFF);
  const Attribute attribute = decode_attribute(values, thresholds, 0);
  EXPECT_EQ(attribute.flags, 0x0180);
  EXPECT_EQ(raw_word(attribute, 0), 0x7EFF);
  EXPECT_EQ(raw_word(attribute, 1), 0x0180);
  EXPECT_EQ(raw_word(attribute, 2), 0x00FF);
  EXPECT_EQ(raw48(attribute), 0x00FF01807EFFu);
}

TEST(SmartAttributes, header_fields_stand_at_these_bytes) {
  Sector values;
  for (std::size_t i = 0; i < values.size(); ++i)
    values[i] = static_cast<std::uint8_t>(i);
  const SmartHeader header = decode_smart_header(values);
  EXPECT_EQ(header.revision, 0x0100);
  EXPECT_EQ(header.offline_status, 362 & 0xFF);
  EXPECT_EQ(header.self_test_status, 363 & 0xFF);
  EXPECT_EQ(header.offline_seconds, (365 & 0xFF) << 8 | (364 & 0xFF));
  EXPECT_EQ(header.offline_capability, 367 & 0xFF);
  EXPECT_EQ(header.smart_capability, (369 & 0xFF) << 8 | (368 & 0xFF));
  EXPECT_EQ(header.error_log_capability, 370 & 0xFF);
  EXPECT_EQ(header.short_test_minutes, 372 & 0xFF);
  EXPECT_EQ(header.extended_test_minutes, 373 & 0xFF);
  EXPECT_EQ(header.conveyance_test_minutes, 374 & 0xFF);
}

TEST(SmartAttributes, the_librarys_answer_selects_the_family) {
  EXPECT_EQ(family_of(2), DriveFamily::kA);
  EXPECT_EQ(family_of(1), DriveFamily::kB);
  for (const int other : {0, 3, -1, 255})
    EXPECT_EQ(family_of(other), DriveFamily::kOther);
}

const std::map<int, std::string> kNamesA = {
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
};

const std::map<int, std::string> kNamesB = {
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
    {177, "Read Retyr Count"},
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
};

const std::map<int, std::string> kNamesD = {
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
    {184, "Soft Read Error Rate"},
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
};

void expect_names(DriveFamily family, const std::map<int, std::string> &names) {
  for (int id = 1; id < 256; ++id) {
    const auto found = names.find(id);
    EXPECT_EQ(attribute_name(family, static_cast<std::uint8_t>(id)),
              found != names.end() ? found->second : "Unknown attribute")
        << id;
  }
  std::size_t rows = 0;
  std::set<std::uint32_t> ids;
  const AttributeName *row = attribute_names(family);
  for (; row->id != 0; ++row, ++rows)
    EXPECT_TRUE(ids.insert(row->id).second) << row->id;
  EXPECT_EQ(row->name, nullptr);
  EXPECT_EQ(rows, names.size());
}

TEST(SmartAttributes, names_of_family_a) {
  EXPECT_EQ(kNamesA.size(), 23u);
  expect_names(DriveFamily::kA, kNamesA);
}

TEST(SmartAttributes, names_of_family_b) {
  EXPECT_EQ(kNamesB.size(), 32u);
  expect_names(DriveFamily::kB, kNamesB);
}

TEST(SmartAttributes, names_of_other_drives) {
  EXPECT_EQ(kNamesD.size(), 50u);
  expect_names(DriveFamily::kOther, kNamesD);
}

TEST(SmartAttributes, only_family_b_has_layouts_of_its_own) {
  for (int id = 1; id < 256; ++id) {
    const auto one = static_cast<std::uint8_t>(id);
    EXPECT_EQ(raw_layout(DriveFamily::kA, one), RawLayout::kNumber);
    EXPECT_EQ(raw_layout(DriveFamily::kOther, one), RawLayout::kNumber);
    const RawLayout expected = id == 194   ? RawLayout::kTemperature
                               : id == 169 ? RawLayout::kBadBlocks
                               : id == 192 ? RawLayout::kPowerOff
                               : id == 231 ? RawLayout::kLifeLeft
                                           : RawLayout::kNumber;
    EXPECT_EQ(raw_layout(DriveFamily::kB, one), expected) << id;
  }
}

TEST(SmartAttributes, wear_takes_the_low_32_bits_of_the_familys_attributes) {
  Sector values = {};
  put(values, 3, 167, 0, 100, 0xABCD00000007);
  put(values, 4, 208, 0, 100, 9);
  put(values, 29, 241, 0, 100, 0xFFFF00000010);
  Wear wear = collect_wear(DriveFamily::kA, values);
  EXPECT_EQ(wear.average_erase, 7u);
  EXPECT_EQ(wear.host_gigabytes, 0x10u);
  wear = collect_wear(DriveFamily::kB, values);
  EXPECT_EQ(wear.average_erase, 9u);
  EXPECT_EQ(wear.host_gigabytes, 0x10u);
}

TEST(SmartAttributes, write_amplification_in_thousandths) {
  constexpr std::uint64_t k120GiB = std::uint64_t{120} << 30;
  EXPECT_EQ(write_amplification({10, 1000}, k120GiB), 1200u);  // 1200 GB over 1000 GB
  EXPECT_EQ(write_amplification({1, 7}, k120GiB), 17142u);
  EXPECT_EQ(write_amplification({10, 1000}, k120GiB + (std::uint64_t{1} << 30) - 1), 1200u);
  EXPECT_EQ(write_amplification({10, 0}, k120GiB), 0u);  // nothing written
  EXPECT_EQ(write_amplification({0, 5}, k120GiB), 0u);
}

TEST(SmartAttributes, write_amplification_wraps_in_32_bits) {
  constexpr std::uint64_t k128GiB = std::uint64_t{128} << 30;
  // 128 * 40000 = 5120000 GB; 1000 times that is 5120000000, less 2^32: 825032704.
  EXPECT_EQ(write_amplification({40000, 1}, k128GiB), 825032704u);
  // 128 * 2^25 wraps to 0 already.
  EXPECT_EQ(write_amplification({1u << 25, 1}, k128GiB), 0u);
}

TEST(SmartAttributes, failure_is_predicted_by_pre_failure_attributes_at_or_below_their_threshold) {
  Sector values = {};
  Sector thresholds = {};
  put(values, 0, 5, 0x33, 36, 0);
  put_threshold(thresholds, 0, 5, 36);
  EXPECT_EQ(count_imminent_failures(values, thresholds), 1);  // equal counts
  put_threshold(thresholds, 0, 5, 35);
  EXPECT_EQ(count_imminent_failures(values, thresholds), 0);
  put_threshold(thresholds, 0, 5, 255);
  EXPECT_EQ(count_imminent_failures(values, thresholds), 1);
  put_threshold(thresholds, 0, 0, 255);  // an empty threshold entry
  EXPECT_EQ(count_imminent_failures(values, thresholds), 0);
  put_threshold(thresholds, 0, 9, 255);  // paired by position, not by id
  EXPECT_EQ(count_imminent_failures(values, thresholds), 1);
  put(values, 0, 5, 0x32, 36, 0);  // advisory only
  EXPECT_EQ(count_imminent_failures(values, thresholds), 0);
  put(values, 0, 0, 0x33, 36, 0);  // an empty slot
  EXPECT_EQ(count_imminent_failures(values, thresholds), 0);
  put(values, 0, 197, 0x33, 36, 0);
  put_threshold(thresholds, 0, 0x80, 255);  // numbers from 128 on are numbers like the others
  EXPECT_EQ(count_imminent_failures(values, thresholds), 1);
  put(values, 0, 5, 0x01, 0, 0);
  put_threshold(thresholds, 0, 5, 0);
  put(values, 29, 7, 0x01, 30, 0);
  put_threshold(thresholds, 29, 7, 30);
  EXPECT_EQ(count_imminent_failures(values, thresholds), 2);
}

}  // namespace
