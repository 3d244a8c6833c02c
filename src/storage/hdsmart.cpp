// bt2 hdsmart: identity and SMART report of one disk, through the platform library.
//
// An attribute is "ILL" when it is at or below its threshold, but only a pre-failure one makes the
// report end with a warning and -3. Failures to identify the disk or to enable SMART are reported
// and the report goes on with what there is.

#include "storage/storage.h"

#include "platform/sata.h"
#include "storage/smart_attributes.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <iterator>

namespace {

constexpr std::size_t kPathMax = 63;
constexpr int kAttempts = 3;
constexpr int kFailurePredicted = -3;
constexpr std::uint32_t kGigabytesPerTerabyte = 1024;

using Sector = std::uint8_t[RIG_ATA_SECTOR_SIZE];

constexpr const char *kSpeeds[] = {
    "",
    "1.5 Gb/s",
    "3.0 Gb/s",
    "6.0 Gb/s",
    ">6.0 Gb/s (4)",
    ">6.0 Gb/s (5)",
    ">6.0 Gb/s (6)",
    ">6.0 Gb/s (7)",
};

const char *speed_text(std::uint32_t code) {
  constexpr std::size_t kLast = std::size(kSpeeds) - 1;
  return kSpeeds[code < kLast ? code : kLast];
}

unsigned int identify_word(const Sector &identify, std::size_t word) {
  return static_cast<unsigned int>(identify[2 * word] | identify[2 * word + 1] << 8);
}

void print_bytes(const char *label, const Sector &identify, std::size_t from, std::size_t to) {
  fputs(label, stdout);
  for (std::size_t i = from; i <= to; ++i)
    putchar(identify[i]);
  putchar('\n');
}

void print_identity(const Sector &identify, const IdentifyInfo &info) {
  puts("**************************IDENTIFY_INFO************************");
  print_bytes("SerialNumber(SN)                 ", identify, 20, 39);
  print_bytes("ModelNumber:                     ", identify, 54, 93);
  print_bytes("FirmWare(FW):                    ", identify, 46, 53);
  printf("User Capacity:                   %llubytes %llusec [%lluGB]\n",
         static_cast<unsigned long long>(info.bytes), static_cast<unsigned long long>(info.sectors),
         static_cast<unsigned long long>(info.bytes >> 30));
  printf("Sector Sizes:                    %u bytes logical, %u bytes physical\n",
         info.logical_sector_size, info.physical_sector_size);

  const bool max_known = info.max_speed != 0;
  const bool current_known = info.current_speed != 0;
  printf("SATA Version is:                 %s%s%s%s%s%s\n",
         info.sata_version != nullptr ? info.sata_version : "",  //
         max_known ? ", " : "", max_known ? speed_text(info.max_speed) : "",
         current_known ? " (current: " : "", current_known ? speed_text(info.current_speed) : "",
         current_known ? ")" : "");

  const bool zero = (info.trim_flags & RIG_ATA_TRIM_ZERO) != 0;
  const bool deterministic = (info.trim_flags & RIG_ATA_TRIM_DETERMINISTIC) != 0;
  const bool supported = (info.trim_flags & RIG_ATA_TRIM_SUPPORTED) != 0;
  printf("SATA Trim:                       trim: %s %s%s%s, trimcount:%u\n", supported ? "1" : "0",
         deterministic || zero ? "," : "", deterministic ? "DataDeter " : "",
         zero ? "DataZero " : "", info.trim_count);
  printf("cache                            %d\n", static_cast<int>(identify_word(identify, 21)));
  printf("bytesSec                         %d\n", static_cast<int>(identify_word(identify, 5)));
  printf("heads                            %u\n", identify_word(identify, 3));
  printf("cylinders                        %u\n", identify_word(identify, 1));
  printf("sectors                          %u\n", identify_word(identify, 6));
}

void print_smart_header(const SmartHeader &header) {
  puts("***************************SMART_INFO**************************");
  printf("SMART rev                            0x%x\n", header.revision);
  printf("offline_data_collection_status       0x%x\n", header.offline_status);
  printf("self_test_exec_status                0x%x\n", header.self_test_status);
  printf("total_time_to_complete_off_line      %d seconds\n", header.offline_seconds);
  printf("offline_data_collection_capability   0x%x\n", header.offline_capability);
  printf("smart_capability                     0x%x\n", header.smart_capability);
  printf("errorlog_capability                  0x%x\n", header.error_log_capability);
  printf("short_test_completion_time           %d minutes\n", header.short_test_minutes);
  printf("extend_test_completion_time          %d minutes\n", header.extended_test_minutes);
  printf("conveyance_test_completion_time      0x%x\n\n", header.conveyance_test_minutes);
}

void print_attribute(DriveFamily family, const Attribute &a) {
  printf("%-4x", a.id);
  printf("%-40s", attribute_name(family, a.id));
  switch (raw_layout(family, a.id)) {
    case RawLayout::kTemperature:
      printf("%-8x%-16d%-8d%-8d%-3u(Min/Max %3u/%-3u)", a.flags, a.threshold, a.value, a.worst,
             raw_word(a, 0), raw_word(a, 1), raw_word(a, 2));
      break;
    case RawLayout::kBadBlocks:
      printf("%-8x%-16d%-8d%-8d%-4u(T/L %4u/%-4u) ", a.flags, a.threshold, a.value, a.worst,
             raw_word(a, 0), raw_word(a, 1), raw_word(a, 2));
      break;
    case RawLayout::kPowerOff:
      printf("%-8x%-16d%-8d%-8d%-8u   %-8u ", a.flags, a.threshold, a.value, a.worst,
             raw_word(a, 0), raw_word(a, 1));
      break;
    case RawLayout::kLifeLeft:
      printf("%-8x%-16d%-8d%-8derase:%-3u bad:%-3u   ", a.flags, a.threshold, a.value, a.worst,
             a.raw[0], a.raw[1]);
      break;
    case RawLayout::kNumber:
      printf("%-8x%-16d%-8d%-8d%-20llu", a.flags, a.threshold, a.value, a.worst,
             static_cast<unsigned long long>(raw48(a)));
      break;
  }
  printf("%-6s\n", a.value > a.threshold ? "OK" : "ILL");
}

void print_attributes(DriveFamily family, AtaSector values, AtaSector thresholds) {
  puts(
      "*******************************************************"
      "*******************************************************");
  printf("%-4s%-40s%-8s%-16s%-8s%-8s%-20s%-8s\n\n", "ID", "Attribute name", "Flags", "Threshold",
         "Value", "Worst", "Raw Value", "Status");
  for (int i = 0; i < kAttributes; ++i) {
    const Attribute attribute = decode_attribute(values, thresholds, i);
    if (attribute.id != 0)
      print_attribute(family, attribute);
  }
}

void print_wear(DriveFamily family, AtaSector values, std::uint64_t capacity_bytes) {
  const Wear wear = collect_wear(family, values);
  const std::uint32_t host = wear.host_gigabytes;
  if (host > kGigabytesPerTerabyte)  // exactly 1024 stays in gigabytes
    printf("TBW=%u%s\n", host >> 10, "TB");
  else
    printf("TBW=%u%s\n", host, "GB");
  const std::uint32_t amplification = write_amplification(wear, capacity_bytes);
  printf("WAI=%u.%03u\n", amplification / 1000, amplification % 1000);
}

// The two messages of each read are not alike.
int read_smart(const char *path, Sector &values, Sector &thresholds) {
  int attempt = 0;
  for (; attempt < kAttempts && rig_sata_read_smart_values(path, values) != 0; ++attempt)
    puts("sata_read_smart_values error, retry!");
  if (attempt == kAttempts) {
    puts("sata_read_smart_values failed!");
    return -1;
  }
  attempt = 0;
  for (; attempt < kAttempts && rig_sata_read_smart_thresholds(path, thresholds) != 0; ++attempt)
    puts("sata_read_smart_thresholds error, retry!\n!");  // sic
  if (attempt == kAttempts) {
    puts("sata_read_smart_thresholds failed!");
    return -1;
  }
  return 0;
}

int report(const char *path) {
  Sector identify = {};
  if (rig_sata_read_identify_info(path, identify) < 0)
    printf("rig_sata_read_identify_info error errno = %d\n", errno);
  IdentifyInfo info = {};
  rig_ata_get_identify_info(identify, &info);
  print_identity(identify, info);

  if (rig_sata_enable_smart(path) < 0)
    printf("enable_smart error errno = %d\n", errno);
  Sector values = {};
  Sector thresholds = {};
  if (read_smart(path, values, thresholds) != 0)
    return -1;

  print_smart_header(decode_smart_header(values));
  const DriveFamily family = family_of(rig_store_get_factory(identify, values));
  print_attributes(family, values, thresholds);
  if (family != DriveFamily::kOther)
    print_wear(family, values, info.bytes);

  if (count_imminent_failures(values, thresholds) != 0) {
    printf("WARNING:A failure may be imminent, replace your hard disk(%s).\n", path);
    puts("Exit of smart error!!!");
    return kFailurePredicted;
  }
  printf("Check %s smart ok!\n", path);
  return 0;
}

}  // namespace

int hdsmart_applet(int argc, char **argv) {
  if (argc != 2) {
    puts("Invalid params, eg. smart /dev/sda");
    return 0;
  }
  if (strlen(argv[1]) > kPathMax) {
    fputs("Divice name too long(<63)", stdout);  // sic; the line stays open
    return 0;
  }
  printf("Start check %s\n", argv[1]);
  return report(argv[1]);
}
