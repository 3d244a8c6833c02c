// Every ATA command as each transport sends it, byte by byte, and what its answers are read as.

#include "storage/ata_requests.h"

#include <string.h>

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace {

std::string hex(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    char two[4];
    snprintf(two, sizeof two, "%02X ", byte);
    text += two;
  }
  if (!text.empty())
    text.pop_back();
  return text;
}

// HDIO.

struct HdioCase {
  int code;
  unsigned long request;
  const char *header;
  bool data_in;
};

const HdioCase kHdioCases[] = {
    {208, 0x031F, "B0 00 D0 01 00 00 00", true},  {209, 0x031F, "B0 01 D1 01 00 00 00", true},
    {212, 0x031F, "B0 00 D4 00 00 00 00", false}, {213, 0x031F, "B0 00 D5 01 00 00 00", true},
    {216, 0x031F, "B0 01 D8 00 00 00 00", false}, {217, 0x031F, "B0 01 D9 00 00 00 00", false},
    {224, 0x031F, "E0 00 00 00 00 00 00", false}, {231, 0x031F, "E7 00 00 00 00 00 00", false},
    {236, 0x031F, "EC 00 00 01 00 00 00", true},  {210, 0x031E, "B0 D2 00 00 4F C2 00", false},
    {218, 0x031E, "B0 DA 00 00 4F C2 00", false}, {219, 0x031E, "B0 DB 00 00 4F C2 00", false},
};

TEST(AtaHdio, sends_these_headers) {
  EXPECT_EQ(hdio_rows().size(), std::size(kHdioCases));
  for (const HdioCase &expected : kHdioCases) {
    SCOPED_TRACE(expected.code);
    const HdioRow *row = find_hdio_row(expected.code);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->request, expected.request);
    EXPECT_EQ(hex(row->header), expected.header);
    EXPECT_EQ(row->data_in, expected.data_in);
  }
}

TEST(AtaHdio, knows_no_other_code) {
  for (const int code : {-1, 1, 134, 136, 146, 207, 211, 215, 220, 235, 237, 239, 464})
    EXPECT_EQ(find_hdio_row(code), nullptr) << code;
  EXPECT_EQ(find_hdio_row(0), nullptr);    // a task file of its own
  EXPECT_EQ(find_hdio_row(214), nullptr);  // likewise
}

TEST(AtaHdio, write_log_task_file) {
  std::array<std::uint8_t, 512> sector;
  for (std::size_t i = 0; i < sector.size(); ++i)
    sector[i] = static_cast<std::uint8_t>(i * 7);
  TaskfileRequest request;
  memset(&request, 0xAA, sizeof request);
  build_write_log(sector.data(), request);
  EXPECT_EQ(hex(request.task.io_ports), "00 D6 01 00 4F C2 00 B0");
  EXPECT_EQ(hex(request.task.hob_ports), "00 00 00 00 00 00 00 00");
  EXPECT_EQ(request.task.data_phase, 4);
  EXPECT_EQ(request.task.req_cmd, 3);
  EXPECT_EQ(request.task.out_size, 512u);
  EXPECT_EQ(request.task.in_size, 0u);
  EXPECT_EQ(memcmp(request.data, sector.data(), 512), 0);
  EXPECT_EQ(reinterpret_cast<char *>(request.data) - reinterpret_cast<char *>(&request),
            static_cast<std::ptrdiff_t>(sizeof(ide_task_request_t)));
}

TEST(AtaHdio, raw_task_file_carries_the_callers_bytes_as_data_not_as_registers) {
  std::array<std::uint8_t, 36> raw;
  raw.fill(0x5A);
  TaskfileRequest request;
  memset(&request, 0xAA, sizeof request);
  build_raw_taskfile(raw.data(), request);
  EXPECT_EQ(hex(request.task.io_ports), "00 00 00 00 00 00 00 00");
  EXPECT_EQ(request.task.data_phase, 1);
  EXPECT_EQ(request.task.req_cmd, 15);
  EXPECT_EQ(request.task.out_size, 0u);
  EXPECT_EQ(request.task.in_size, 36u);
  EXPECT_EQ(memcmp(request.data, raw.data(), 36), 0);
  EXPECT_EQ(request.data[36], 0);
  EXPECT_EQ(request.data[511], 0);
}

struct Printed {
  int result;
  std::string text;
};

Printed task_status(int result, std::array<std::uint8_t, 7> header) {
  testing::internal::CaptureStdout();
  const int decoded = decode_task_status(result, header);
  return {decoded, testing::internal::GetCapturedStdout()};
}

TEST(AtaHdio, status_registers_tell_passed_and_threshold_exceeded) {
  Printed printed = task_status(0, {0x50, 0, 0, 0, 0x4F, 0xC2, 0xA0});
  EXPECT_EQ(printed.result, 0);
  EXPECT_EQ(printed.text, "");
  printed = task_status(0, {0x50, 0, 0, 0, 0xF4, 0x2C, 0xA0});
  EXPECT_EQ(printed.result, 1);
  EXPECT_EQ(printed.text, "");
}

TEST(AtaHdio, any_other_pair_dumps_seven_registers) {
  const std::array<std::uint8_t, 7> pairs[] = {
      {0x50, 0x04, 0x01, 0x02, 0x4F, 0x2C, 0xA0},
      {0x50, 0x04, 0x01, 0x02, 0xF4, 0xC2, 0xA0},
      {0x50, 0x04, 0x01, 0x02, 0x00, 0x00, 0xA0},
  };
  const char *expected[] = {"CL =0x4f\nCH =0x2c\n", "CL =0xf4\nCH =0xc2\n", "CL =0x00\nCH =0x00\n"};
  for (std::size_t i = 0; i < std::size(pairs); ++i) {
    const Printed printed = task_status(0, pairs[i]);
    EXPECT_EQ(printed.result, -1);
    EXPECT_EQ(printed.text, std::string("Error SMART Status command failed\n"
                                        "Register values returned from SMART Status command are:\n"
                                        "ST =0x50\nERR=0x04\nNS =0x01\nSC =0x02\n") +
                                expected[i] + "SEL=0xa0\n");
  }
}

TEST(AtaHdio, registers_are_dumped_without_a_sign) {
  EXPECT_EQ(task_status(0, {0x80, 0x8F, 0x90, 0x9A, 0xA0, 0xFE, 0xFF}).text,
            "Error SMART Status command failed\n"
            "Register values returned from SMART Status command are:\n"
            "ST =0x80\nERR=0x8f\nNS =0x90\nSC =0x9a\nCL =0xa0\nCH =0xfe\nSEL=0xff\n");
}

TEST(AtaHdio, a_failed_status_request_is_told_by_its_result_not_by_errno) {
  const std::array<std::uint8_t, 7> passed = {0xB0, 0xDA, 0, 0, 0x4F, 0xC2, 0};
  Printed printed = task_status(-22, passed);
  EXPECT_EQ(printed.result, -1);
  EXPECT_EQ(printed.text, "Error SMART Status command via HDIO_DRIVE_TASK failed\n");
  for (const int result : {-1, 1, -25}) {
    errno = EINVAL;
    printed = task_status(result, passed);
    EXPECT_EQ(printed.result, -1);
    EXPECT_EQ(printed.text, "Error SMART Status command failed\n");
  }
}

TEST(AtaHdio, task_file_results) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(decode_taskfile_result(0), 0);
  EXPECT_EQ(decode_taskfile_result(-1), -1);
  EXPECT_EQ(decode_taskfile_result(1), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  testing::internal::CaptureStdout();
  EXPECT_EQ(decode_taskfile_result(-22), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Kernel lacks HDIO_DRIVE_TASKFILE support; \n"
            "compile kernel with CONFIG_IDE_TASKFILE_IO set\n");
}

// SG_IO.

constexpr SgDirection kNone = SgDirection::kNone;
constexpr SgDirection kIn = SgDirection::kFromDevice;
constexpr SgDirection kOut = SgDirection::kToDevice;

struct SgCase {
  int code;
  SgValues values;
  const char *cdb;
  SgDirection direction;
  std::uint32_t length;
  std::uint32_t timeout_ms;
  int pack_id;
};

const SgCase kSgCases[] = {
    // Vendor DMA: the sector count, LBA low of the caller.
    {134, {8, 0x86, 0, 0}, "A1 0C 0E 00 08 86 34 12 40 86 00 00", kIn, 4096, 30, 0x123486},
    {134, {0, 0x22, 0, 0}, "A1 0C 0E 00 00 22 34 12 40 86 00 00", kIn, 0, 30, 0x123422},
    {134, {255, 0x1FF, 0, 0}, "A1 0C 0E 00 FF FF 34 12 40 86 00 00", kIn, 130560, 30, 0x1234FF},
    {136, {1, 0xFF, 0, 0}, "A1 0C 06 00 01 FF 34 12 40 88 00 00", kOut, 512, 30, 0x1234FF},
    // Microcode: blocks in COUNT and LBA low, the offset in LBA mid and high.
    {146, {0, 0, 4096, 0}, "A1 0A 06 03 08 00 00 00 40 92 00 00", kOut, 4096, 30, 0},
    {146, {0, 0, 512, 8}, "A1 0A 06 03 01 00 08 00 40 92 00 00", kOut, 512, 30, 0x000800},
    {146, {0, 0, 4096, 0x1234}, "A1 0A 06 03 08 00 34 12 40 92 00 00", kOut, 4096, 30, 0x123400},
    {146,
     {0, 0, 512 * 0x0203, 0xFFFF},
     "A1 0A 06 03 03 02 FF FF 40 92 00 00",
     kOut,
     512 * 0x0203,
     30,
     0xFFFF02},
    // SMART: the 1 stands in LBA low, COUNT is 0.
    {208, {}, "85 08 0E 00 D0 00 00 00 01 00 4F 00 C2 40 B0 00", kIn, 512, 0, 0},
    {209, {}, "85 08 0E 00 D1 00 00 00 01 00 4F 00 C2 40 B0 00", kIn, 512, 0, 0},
    {210, {1, 0, 0, 0}, "85 06 20 00 D2 00 F1 00 01 00 4F 00 C2 40 B0 00", kNone, 0, 0, 0},
    {210, {0x80, 0, 0, 0}, "85 06 20 00 D2 00 F1 00 01 00 4F 00 C2 40 B0 00", kNone, 0, 0, 0},
    {210, {0, 0, 0, 0}, "85 06 20 00 D2 00 00 00 01 00 4F 00 C2 40 B0 00", kNone, 0, 0, 0},
    {212, {0x81, 0, 0, 0}, "85 06 20 00 D4 00 81 00 01 00 4F 00 C2 40 B0 00", kNone, 0, 0, 0},
    {216, {}, "85 06 20 00 D8 00 00 00 01 00 4F 00 C2 40 B0 00", kNone, 0, 0, 0},
    {217, {}, "85 06 20 00 D9 00 00 00 01 00 4F 00 C2 40 B0 00", kNone, 0, 0, 0},
    {218, {}, "85 08 0E 00 DA 00 00 00 01 00 4F 00 C2 40 B0 00", kIn, 8, 0, 0},
    {224, {}, "85 06 20 00 00 00 00 00 00 00 00 00 00 00 E0 00", kNone, 0, 0, 0},
    {231, {}, "85 06 20 00 00 00 00 00 00 00 00 00 00 00 E7 00", kNone, 0, 0, 0},
    {236, {}, "85 08 0E 00 00 00 00 00 00 00 00 00 00 00 EC 00", kIn, 512, 0, 0},
    {239, {}, "A1 06 20 DA 41 00 00 00 40 EF 00 00", kNone, 0, 0, 0},
};

TEST(AtaSgIo, sends_these_cdbs) {
  for (const SgCase &expected : kSgCases) {
    SCOPED_TRACE(expected.code);
    const SgRow *row = find_sg_row(expected.code);
    ASSERT_NE(row, nullptr);
    const SgRequest request = build_sg_request(*row, expected.values);
    EXPECT_EQ(hex(std::span(request.cdb).first(request.cdb_length)), expected.cdb);
    for (std::size_t i = request.cdb_length; i < request.cdb.size(); ++i)
      EXPECT_EQ(request.cdb[i], 0) << i;
    EXPECT_EQ(request.direction, expected.direction);
    EXPECT_EQ(request.length, expected.length);
    EXPECT_EQ(request.timeout_ms, expected.timeout_ms);
    EXPECT_EQ(request.pack_id, expected.pack_id);
  }
}

TEST(AtaSgIo, every_row_is_among_the_cases) {
  EXPECT_EQ(sg_rows().size(), 14u);
  for (const SgRow &row : sg_rows()) {
    const bool tested = std::any_of(std::begin(kSgCases), std::end(kSgCases),
                                    [&](const SgCase &one) { return one.code == row.code; });
    EXPECT_TRUE(tested) << row.code;
  }
}

// Nobody would see it: the caller's values take the place of what a row holds there.
TEST(AtaSgIo, a_row_holds_zeros_where_the_caller_s_values_go) {
  for (const SgRow &row : sg_rows()) {
    const bool is_microcode = row.operand == SgOperand::kMicrocode;
    const bool has_data = row.operand == SgOperand::kVendorDma || is_microcode;
    const bool has_count =
        row.operand == SgOperand::kAutosave || row.operand == SgOperand::kSubcommand || has_data;
    EXPECT_EQ(has_count ? row.count : 0, 0) << row.code;
    EXPECT_EQ(has_data ? row.length : 0, 0) << row.code;
    EXPECT_EQ(has_data ? row.lba[0] : 0, 0) << row.code;
    EXPECT_EQ(is_microcode ? row.lba[1] : 0, 0) << row.code;
    EXPECT_EQ(is_microcode ? row.lba[2] : 0, 0) << row.code;
  }
}

TEST(AtaSgIo, knows_no_other_code) {
  for (const int code : {-1, 0, 133, 135, 147, 207, 211, 213, 214, 215, 219, 235, 240, 256 + 208})
    EXPECT_EQ(find_sg_row(code), nullptr) << code;
}

Printed host_status(unsigned int status) {
  testing::internal::CaptureStdout();
  const int decoded = decode_host_status(status);
  return {decoded, testing::internal::GetCapturedStdout()};
}

Printed sg_result(int code, int result, const std::array<std::uint8_t, 512> &data) {
  testing::internal::CaptureStdout();
  const int decoded = decode_sg_result(*find_sg_row(code), result, data);
  return {decoded, testing::internal::GetCapturedStdout()};
}

TEST(AtaSgIo, host_status_is_handed_on) {
  struct {
    unsigned int status;
    int result;
    const char *text;
  } const cases[] = {
      {0, 0, ""},
      {1, 0, ""},
      {3, 0, ""},
      {4, 4, " BAD target. \n"},
      {5, 5, "Abort for some other reason. \n"},
      {6, 0, ""},
      {13, 0, ""},
      {14, 14, "BUS stayed busy through time out period. \n"},
      {15, 15, "BUS stayed busy through time out period. \n"},
      {16, 0, ""},
  };
  for (const auto &expected : cases) {
    SCOPED_TRACE(expected.status);
    const Printed printed = host_status(expected.status);
    EXPECT_EQ(printed.result, expected.result);
    EXPECT_EQ(printed.text, expected.text);
  }
}

TEST(AtaSgIo, a_positive_result_is_handed_on) {
  std::array<std::uint8_t, 512> data = {};
  data[0] = 2;
  data[511] = 0xFE;
  for (const int code : {134, 136, 146, 208, 209, 210, 212, 216, 217, 224, 231, 236, 239}) {
    EXPECT_EQ(sg_result(code, 7, data).result, 7) << code;
    EXPECT_EQ(sg_result(code, 7, data).text, "") << code;
  }
  EXPECT_EQ(sg_result(218, 7, data).result, 2);  // the answer's first byte decides
}

TEST(AtaSgIo, a_smart_sector_with_a_wrong_checksum_is_reported_and_succeeds) {
  std::array<std::uint8_t, 512> data = {};
  data[3] = 0x41;
  for (const int code : {208, 209}) {
    const Printed printed = sg_result(code, 0, data);
    EXPECT_EQ(printed.result, 0);
    EXPECT_EQ(printed.text, "Invalid checksum of SMART data.\n");
  }
  EXPECT_EQ(sg_result(236, 0, data).text, "");  // identity data have another checksum
  data[511] = 0xBF;
  EXPECT_EQ(sg_result(208, 0, data).text, "");
}

TEST(AtaSgIo, return_status_is_the_first_byte_read) {
  std::array<std::uint8_t, 512> data = {};
  const int expected[][2] = {{0, 3}, {1, 1}, {2, 2}, {3, 3}, {0x4F, 3}, {0xFF, 3}};
  for (const auto &[byte, result] : expected) {
    data[0] = static_cast<std::uint8_t>(byte);
    EXPECT_EQ(sg_result(218, 0, data).result, result);
  }
}

}  // namespace
