// ATA commands to a disk that answers: the SG_IO header field by field as the kernel gets it, and
// what each result makes of a sequence of commands. The disk is this program's own ioctl().

#include "benchrig/sata.h"
#include "benchrig/ssd_update.h"
#include "platform/sata.h"
#include "storage/sata_device.h"
#include "storage/ssd_update.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <scsi/sg.h>
#include <stdarg.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes bytes_at(const void *start, std::size_t size) {
  const auto *first = static_cast<const std::uint8_t *>(start);
  return {first, first + size};
}

// One SG_IO request as it arrived.
struct Sent {
  int fd;
  int flags;  // of the descriptor
  sg_io_hdr header;
  Bytes cdb;
  Bytes sense;
  Bytes data;  // the buffer's content at that moment, also of a read
};

struct Answer {
  int result = 0;
  int error = 0;
  unsigned short host_status = 0;
  Bytes data = {};  // of a read; nothing more arrives
  unsigned char status = 0;
  unsigned short driver_status = 0;
  unsigned int info = 0;
  Bytes sense = {};
  bool closes = false;  // the descriptor, so that its owner's close() fails
};

struct Disk {
  std::vector<Answer> answers;  // one for each request in order, then plain successes
  std::vector<Sent> sent;
};

Disk *disk = nullptr;

int answer_request(int fd, sg_io_hdr &header) {
  disk->sent.push_back({
      .fd = fd,
      .flags = fcntl(fd, F_GETFL),
      .header = header,
      .cdb = bytes_at(header.cmdp, header.cmd_len),
      .sense = bytes_at(header.sbp, header.mx_sb_len),
      .data = bytes_at(header.dxferp, header.dxferp != nullptr ? header.dxfer_len : 0),
  });
  const std::size_t index = disk->sent.size() - 1;
  const Answer answer = index < disk->answers.size() ? disk->answers[index] : Answer{};
  if (answer.closes)
    close(fd);
  if (answer.result < 0) {
    errno = answer.error;
    return answer.result;
  }
  header.host_status = answer.host_status;
  header.status = answer.status;
  header.driver_status = answer.driver_status;
  header.info = answer.info;
  header.sb_len_wr = static_cast<unsigned char>(answer.sense.size());
  std::copy(answer.sense.begin(), answer.sense.end(), header.sbp);
  if (header.dxfer_direction == SG_DXFER_FROM_DEV && answer.host_status == 0) {
    const std::size_t size = std::min<std::size_t>(answer.data.size(), header.dxfer_len);
    std::copy_n(answer.data.begin(), size, static_cast<std::uint8_t *>(header.dxferp));
    header.resid = static_cast<int>(header.dxfer_len - size);
  }
  return answer.result;
}

}  // namespace

// Visible to librigcore too.
extern "C" __attribute__((visibility("default"))) int ioctl(int fd, unsigned long request,
                                                            ...) noexcept {
  va_list rest;
  va_start(rest, request);
  void *const argument = va_arg(rest, void *);
  va_end(rest);
  if (disk != nullptr && request == SG_IO)
    return answer_request(fd, *static_cast<sg_io_hdr *>(argument));
  return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}

namespace {

constexpr const char *kNode = "/dev/null";
constexpr unsigned short kHostStatuses[] = {4, 5, 14, 15};
const char *const kHostTexts[] = {" BAD target. \n", "Abort for some other reason. \n",
                                  "BUS stayed busy through time out period. \n",
                                  "BUS stayed busy through time out period. \n"};

int count_descriptors() {
  int count = 0;
  for (int fd = 0; fd < 1024; ++fd)
    count += fcntl(fd, F_GETFD) >= 0;
  return count;
}

class AtaDisk : public testing::Test {
 protected:
  void SetUp() override {
    fd = open(kNode, O_RDWR);
    ASSERT_GE(fd, 0);
    disk = &answering;
  }
  void TearDown() override {
    disk = nullptr;
    close(fd);
  }

  // The result of a call and what it printed, on a disk that gives these answers.
  template <typename Call>
  int run(std::vector<Answer> answers, Call call) {
    answering = {std::move(answers), {}};
    testing::internal::CaptureStdout();
    const int result = call();
    text = testing::internal::GetCapturedStdout();
    return result;
  }

  Disk answering;
  int fd = -1;
  std::string text;
};

// The header.

void expect_common_fields(const sg_io_hdr &header) {
  EXPECT_EQ(header.interface_id, 'S');
  EXPECT_EQ(header.mx_sb_len, 32);
  EXPECT_EQ(header.iovec_count, 0);
  EXPECT_EQ(header.flags, 1u);  // SG_FLAG_DIRECT_IO
  EXPECT_EQ(header.usr_ptr, nullptr);
  // What the kernel fills in.
  EXPECT_EQ(header.status, 0);
  EXPECT_EQ(header.masked_status, 0);
  EXPECT_EQ(header.msg_status, 0);
  EXPECT_EQ(header.sb_len_wr, 0);
  EXPECT_EQ(header.host_status, 0);
  EXPECT_EQ(header.driver_status, 0);
  EXPECT_EQ(header.resid, 0);
  EXPECT_EQ(header.duration, 0u);
  EXPECT_EQ(header.info, 0u);
}

TEST_F(AtaDisk, header_of_commands_without_data) {
  for (const int code : {210, 212, 216, 217, 224, 231, 239}) {
    SCOPED_TRACE(code);
    std::uint8_t byte = 1;
    EXPECT_EQ(run({}, [&] { return sata_command_execute_esata(fd, code, &byte); }), 0);
    ASSERT_EQ(answering.sent.size(), 1u);
    const Sent &sent = answering.sent[0];
    expect_common_fields(sent.header);
    EXPECT_EQ(sent.header.cmd_len, code == 239 ? 12 : 16);
    EXPECT_EQ(sent.sense, Bytes(32));
    EXPECT_EQ(sent.header.dxfer_direction, SG_DXFER_NONE);
    EXPECT_EQ(sent.header.dxfer_len, 0u);
    EXPECT_EQ(sent.header.dxferp, nullptr);
    EXPECT_EQ(sent.header.timeout, 0u);  // the driver's own
    EXPECT_EQ(sent.header.pack_id, 0);
  }
}

TEST_F(AtaDisk, header_of_reads_into_a_bounce_buffer) {
  for (const int code : {208, 209, 218, 236}) {
    SCOPED_TRACE(code);
    std::array<std::uint8_t, 512> sector;
    sector.fill(0xEE);
    run({}, [&] { return sata_command_execute_esata(fd, code, sector.data()); });
    ASSERT_EQ(answering.sent.size(), 1u);
    const Sent &sent = answering.sent[0];
    expect_common_fields(sent.header);
    EXPECT_EQ(sent.header.cmd_len, 16);
    EXPECT_EQ(sent.sense, Bytes(32));
    EXPECT_EQ(sent.header.dxfer_direction, SG_DXFER_FROM_DEV);
    EXPECT_EQ(sent.header.dxfer_len, code == 218 ? 8u : 512u);
    EXPECT_NE(sent.header.dxferp, sector.data());
    EXPECT_EQ(sent.data, Bytes(code == 218 ? 8 : 512));  // zeros, and not the caller's bytes
    EXPECT_EQ(sent.header.timeout, 0u);
    EXPECT_EQ(sent.header.pack_id, 0);
  }
}

TEST_F(AtaDisk, header_of_commands_that_move_the_callers_data) {
  std::array<std::uint8_t, 1024> data = {};
  std::uint8_t count = 2;
  void *const buffer = data.data();
  struct {
    int code;
    int direction;
    int pack_id;  // the LBA that the command carries
  } const cases[] = {
      {134, SG_DXFER_FROM_DEV, 0x1234A7},
      {136, SG_DXFER_TO_DEV, 0x1234A7},
      {146, SG_DXFER_TO_DEV, 0xBCDE00},
  };
  for (const auto &expected : cases) {
    SCOPED_TRACE(expected.code);
    const auto vendor = [&] {
      return sata_command_execute_esata(fd, expected.code, &count, 0x5A7u, buffer);
    };
    const auto microcode = [&] {
      return sata_command_execute_esata(fd, expected.code, buffer, 1024u, 0xBCDEu);
    };
    EXPECT_EQ(expected.code == 146 ? run({}, microcode) : run({}, vendor), 0);
    ASSERT_EQ(answering.sent.size(), 1u);
    const Sent &sent = answering.sent[0];
    expect_common_fields(sent.header);
    EXPECT_EQ(sent.header.cmd_len, 12);
    EXPECT_EQ(sent.sense, Bytes(32));
    EXPECT_EQ(sent.header.dxfer_direction, expected.direction);
    EXPECT_EQ(sent.header.dxfer_len, 1024u);
    EXPECT_EQ(sent.header.dxferp, buffer);
    EXPECT_EQ(sent.header.timeout, 30u);
    EXPECT_EQ(sent.header.pack_id, expected.pack_id);
  }
}

TEST_F(AtaDisk, a_long_download_carries_its_length_in_the_tag_too) {
  std::vector<std::uint8_t> data(0x300 * 512);
  const auto length = static_cast<unsigned int>(data.size());
  run({}, [&] { return sata_command_execute_esata(fd, 146, data.data(), length, 0x0102u); });
  ASSERT_EQ(answering.sent.size(), 1u);
  EXPECT_EQ(answering.sent[0].header.pack_id, 0x010203);  // length >> 17 below the offset
  EXPECT_EQ(answering.sent[0].header.dxfer_len, length);
}

TEST_F(AtaDisk, a_vendor_read_that_reports_a_failure_clears_its_data_and_nothing_around_them) {
  std::uint8_t count = 1;
  Bytes data(1 + 512 + 1, 0xEE);
  EXPECT_EQ(run({{.data = Bytes(512, 0x5C), .info = SG_INFO_CHECK}},
                [&] { return sata_vendor_dma_read(kNode, &count, 0x86, data.data() + 1); }),
            0);
  Bytes expected(data.size(), 0);
  expected.front() = expected.back() = 0xEE;
  EXPECT_EQ(data, expected);
}

TEST_F(AtaDisk, vendor_counts_have_no_sign) {
  for (const unsigned int blocks : {0u, 1u, 127u, 128u, 200u, 255u}) {
    SCOPED_TRACE(blocks);
    auto count = static_cast<std::uint8_t>(blocks);
    Bytes answer(blocks * 512);
    for (std::size_t i = 0; i < answer.size(); ++i)
      answer[i] = static_cast<std::uint8_t>(i * 7 + i / 512);
    Bytes data(answer.size() + 1, 0xEE);  // one byte more is not touched

    EXPECT_EQ(run({{.data = answer}},
                  [&] {
                    return sata_command_execute_esata(fd, 134, &count, 0x86u,
                                                      static_cast<void *>(data.data()));
                  }),
              0);
    ASSERT_EQ(answering.sent.size(), 1u);
    EXPECT_EQ(answering.sent[0].header.dxfer_len, blocks * 512);
    EXPECT_EQ(answering.sent[0].cdb[4], blocks);
    EXPECT_EQ(data.back(), 0xEE);
    data.pop_back();
    EXPECT_EQ(data, answer);

    EXPECT_EQ(run({}, [&] { return sata_vendor_dma_write(kNode, &count, 0xFF, data.data()); }), 0);
    ASSERT_EQ(answering.sent.size(), 1u);
    EXPECT_EQ(answering.sent[0].header.dxfer_len, blocks * 512);
    EXPECT_EQ(answering.sent[0].cdb[4], blocks);
    EXPECT_EQ(answering.sent[0].data, answer);
  }
}

// Results.

TEST_F(AtaDisk, a_host_status_comes_before_data_and_before_a_positive_result) {
  for (std::size_t i = 0; i < std::size(kHostStatuses); ++i) {
    const unsigned short status = kHostStatuses[i];
    SCOPED_TRACE(status);
    for (const int code : {208, 210, 218, 236}) {
      std::array<std::uint8_t, 512> sector;
      sector.fill(0xEE);
      EXPECT_EQ(run({{.result = 7, .host_status = status}},
                    [&] { return sata_command_execute_esata(fd, code, sector.data()); }),
                status);
      EXPECT_EQ(text, kHostTexts[i]);
      EXPECT_EQ(std::count(sector.begin(), sector.end(), 0xEE), 512);
    }
  }
}

TEST_F(AtaDisk, a_failed_request_comes_before_everything) {
  errno = 0;
  EXPECT_EQ(run({{.result = -1, .error = EIO}},
                [&] { return sata_command_execute_esata(fd, 224, nullptr); }),
            -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(text, "sata command 0xe0 return -1\n");
}

// Commands by path: only a negative result is reported, and the node is closed whatever it is.
TEST_F(AtaDisk, positive_results_of_commands_by_path_are_not_reported) {
  const int before = count_descriptors();
  int (*const commands[])(const char *path) = {sata_standby_immediate, sata_flush_cache,
                                               sata_disable_smart, sata_enable_vendor_mode};
  for (const auto command : commands) {
    EXPECT_EQ(run({{.result = 3}}, [&] { return command(kNode); }), 3);
    EXPECT_EQ(text, "");
    for (std::size_t i = 0; i < std::size(kHostStatuses); ++i) {
      EXPECT_EQ(run({{.host_status = kHostStatuses[i]}}, [&] { return command(kNode); }),
                kHostStatuses[i]);
      EXPECT_EQ(text, kHostTexts[i]);
    }
  }
  EXPECT_EQ(run({{.data = {2}}}, [] { return sata_smart_return_status(kNode); }), 2);
  EXPECT_EQ(text, "");
  EXPECT_EQ(count_descriptors(), before);
}

TEST_F(AtaDisk, a_positive_result_of_enabling_smart_sends_autosave_whose_result_counts) {
  const int before = count_descriptors();
  EXPECT_EQ(run({{.result = 3}, {.result = 5}}, [] { return sata_enable_smart(kNode); }), 5);
  EXPECT_EQ(text, "");
  ASSERT_EQ(answering.sent.size(), 2u);
  EXPECT_EQ(answering.sent[0].cdb[4], 0xD8);
  EXPECT_EQ(answering.sent[1].cdb[4], 0xD2);
  EXPECT_EQ(answering.sent[1].cdb[6], 0xF1);

  EXPECT_EQ(run({{.host_status = 4}, {.result = -1, .error = EIO}},
                [] { return sata_enable_smart(kNode); }),
            -1);
  EXPECT_EQ(text,
            " BAD target. \nsata command 0xd2 return -1\nsend SMART AUTOSAVE command, return -1\n");
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(count_descriptors(), before);
}

TEST_F(AtaDisk, every_node_is_opened_for_reading_and_writing_without_blocking) {
  std::array<std::uint8_t, 4096> data = {};
  const std::uint8_t one = 1;
  sata_standby_immediate(kNode);
  sata_enable_smart(kNode);
  sata_vendor_dma_read(kNode, &one, 0x86, data.data());
  korsata_download_microcode_cmd(kNode, data.data(), 512);
  ASSERT_EQ(answering.sent.size(), 5u);
  for (const Sent &sent : answering.sent)
    EXPECT_EQ(sent.flags & (O_ACCMODE | O_NONBLOCK), O_RDWR | O_NONBLOCK);
}

// The download.

constexpr std::uint32_t kImageSize = 20 * 512 - 100;  // 8, 8 and 4 blocks

TEST_F(AtaDisk, download_sends_three_chunks_and_closes) {
  std::vector<std::uint8_t> image(20 * 512);
  for (std::size_t i = 0; i < image.size(); ++i)
    image[i] = static_cast<std::uint8_t>(i / 512 + i);
  const int before = count_descriptors();
  EXPECT_EQ(
      run({}, [&] { return korsata_download_microcode_cmd(kNode, image.data(), kImageSize); }), 0);
  EXPECT_EQ(count_descriptors(), before);
  ASSERT_EQ(answering.sent.size(), 3u);
  for (std::size_t i = 0; i < 3; ++i) {
    const std::size_t begin = i * 8 * 512;
    const std::size_t size = (i < 2 ? 8u : 4u) * 512u;
    EXPECT_EQ(answering.sent[i].data, bytes_at(image.data() + begin, size));
    EXPECT_EQ(answering.sent[i].header.pack_id, static_cast<int>(8 * i) << 8);
  }
}

// Whatever is not 0 ends it: a failed request, a positive result, a status of the host adapter. The
// node stays open on purpose.
TEST_F(AtaDisk, download_ends_at_the_first_chunk_that_is_not_a_success) {
  std::vector<std::uint8_t> image(20 * 512);
  struct {
    Answer answer;
    int result;
    const char *text;
  } const cases[] = {
      {{.result = -1, .error = EIO}, -1, "sata command 0x92 return -1\n"},
      {{.result = 1}, 1, ""},
      {{.result = 7}, 7, ""},
      {{.host_status = 4}, 4, kHostTexts[0]},
      {{.host_status = 5}, 5, kHostTexts[1]},
      {{.host_status = 14}, 14, kHostTexts[2]},
      {{.host_status = 15}, 15, kHostTexts[3]},
  };
  for (const auto &expected : cases) {
    for (std::size_t chunk = 0; chunk < 3; ++chunk) {
      SCOPED_TRACE(testing::Message() << expected.result << " at " << chunk);
      std::vector<Answer> answers(chunk);
      answers.push_back(expected.answer);
      const int before = count_descriptors();
      EXPECT_EQ(
          run(answers,
              [&] { return korsata_download_microcode_cmd(kNode, image.data(), kImageSize); }),
          expected.result);
      EXPECT_EQ(text, expected.text);
      ASSERT_EQ(answering.sent.size(), chunk + 1);
      EXPECT_EQ(count_descriptors(), before + 1);
      close(answering.sent.back().fd);
    }
  }
}

// Vendor reads.

Bytes vendor_cdb(std::uint8_t flags, std::uint8_t count, std::uint8_t low, std::uint8_t command) {
  return {0xA1, 0x0C, flags, 0x00, count, low, 0x34, 0x12, 0x40, command, 0x00, 0x00};
}

Bytes request_block(Bytes begin) {
  begin.resize(512);
  return begin;
}

const Bytes kVendorMode = {0xA1, 0x06, 0x20, 0xDA, 0x41, 0, 0, 0, 0x40, 0xEF, 0, 0};

// The three commands of a vendor read: what is announced, and what is fetched with which LBA low.
void expect_vendor_read(const Disk &answering, const Bytes &block, std::uint8_t count,
                        std::uint8_t low) {
  ASSERT_EQ(answering.sent.size(), 3u);
  EXPECT_EQ(answering.sent[0].cdb, kVendorMode);
  EXPECT_EQ(answering.sent[1].cdb, vendor_cdb(0x06, 1, 0xFF, 0x88));
  EXPECT_EQ(answering.sent[1].data, block);
  EXPECT_EQ(answering.sent[2].cdb, vendor_cdb(0x0E, count, low, 0x86));
}

TEST_F(AtaDisk, ram_read_takes_up_to_255_sectors) {
  for (const std::uint32_t blocks : {8u, 128u, 255u}) {
    Bytes answer(blocks * 512, 0x5C);
    Bytes data(answer.size());
    EXPECT_EQ(run({{}, {}, {.data = answer}},
                  [&] {
                    return korsata_read_ram(kNode, 0x12345678, data.data(),
                                            static_cast<std::uint32_t>(data.size()));
                  }),
              0);
    EXPECT_EQ(text, "");
    EXPECT_EQ(data, answer);
    expect_vendor_read(answering,
                       request_block({0xFF, 0xE5, 0x86, 0x03, 0x12, 0x34, 0x56, 0x78, 0x00}),
                       static_cast<std::uint8_t>(blocks), 0x86);
  }
}

TEST_F(AtaDisk, memory_read_announces_and_fetches_22h) {
  Bytes answer(1024, 0x5C);
  Bytes data(1024, 0xEE);
  EXPECT_EQ(run({{}, {}, {.data = answer}},
                [&] { return ssd_read_memory(kNode, 0xFE80A512, data.data(), 1024); }),
            0);
  EXPECT_EQ(text, "");
  EXPECT_EQ(data, answer);
  expect_vendor_read(answering, request_block({0xFF, 0xE5, 0x22, 0xFE, 0x80, 0xA5, 0x12}), 2, 0x22);
}

TEST_F(AtaDisk, extent_read_announces_and_fetches_23h) {
  std::uint32_t value = 0;
  std::uint8_t byte = 0;
  EXPECT_EQ(run({{}, {}, {.data = request_block({0x00, 0x01, 0x02, 0x83, 0x9A})}},
                [&] { return ssd_read_extent(kNode, value, byte); }),
            0);
  EXPECT_EQ(text, "");
  EXPECT_EQ(value, 0x00010283u * 8);
  EXPECT_EQ(byte, 0x9A);
  expect_vendor_read(answering, request_block({0xFF, 0xE5, 0x23}), 1, 0x23);
}

// Of each step of a vendor read: what is printed, and whether it goes on.
TEST_F(AtaDisk, a_failed_step_of_a_vendor_read_ends_it_but_for_the_first) {
  const Answer failed = {.result = -1, .error = EIO};
  const Answer positive = {.result = 3};
  std::uint32_t value = 77;
  std::uint8_t byte = 78;
  Bytes data(512);
  const auto reads = {
      +[](Bytes &out, std::uint32_t &, std::uint8_t &) {
        return korsata_read_ram(kNode, 0, out.data(), 512);
      },
      +[](Bytes &out, std::uint32_t &, std::uint8_t &) {
        return ssd_read_memory(kNode, 0, out.data(), 512);
      },
      +[](Bytes &, std::uint32_t &first, std::uint8_t &second) {
        return ssd_read_extent(kNode, first, second);
      },
  };
  for (const auto read : reads) {
    const auto call = [&] { return read(data, value, byte); };
    EXPECT_EQ(run({{}, failed}, call), -1);
    EXPECT_EQ(text,
              "sata command 0x88 return -1\n"
              "send ATA COMMAND VENDOR DMA WRITE command, return -1\n"
              "enable_vendor write errno = 5\n");
    EXPECT_EQ(answering.sent.size(), 2u);
    EXPECT_EQ(run({{}, {}, failed}, call), -1);
    EXPECT_EQ(text,
              "sata command 0x86 return -1\n"
              "send ATA COMMAND VENDOR DMA READ command, return -1\n"
              "enable_vendor read errno = 5\n");
    EXPECT_EQ(answering.sent.size(), 3u);
    EXPECT_EQ(value, 77u);
    EXPECT_EQ(byte, 78);
    // A positive result is no failure; what did not come is zeros.
    std::fill(data.begin(), data.end(), 0xEE);
    EXPECT_EQ(run({positive, positive, positive}, call), 0);
    EXPECT_EQ(text, "");
    EXPECT_EQ(answering.sent.size(), 3u);
  }
  EXPECT_EQ(value, 0u);
  EXPECT_EQ(byte, 0);
  EXPECT_EQ(run({failed}, [&] { return ssd_read_memory(kNode, 0, data.data(), 512); }), 0);
  EXPECT_EQ(text,
            "sata command 0xef return -1\n"
            "send ATA COMMAND SETFEATURES command, return -1\n"
            "enable_vendor error errno = 5\n");
  EXPECT_EQ(data, Bytes(512));
}

// librigcore's own commands. Other tests of this program take its operations' places.

template <typename Function>
Function of_library(Function, const char *name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

#define OF_LIBRARY(name) of_library(&name, #name)

TEST_F(AtaDisk, the_librarys_commands_wait_for_a_disk_that_spins_up) {
  std::array<std::uint8_t, 512> sector;
  const Bytes answer(512, 0x5C);
  struct {
    int (*read)(const char *path, void *sector);
    Bytes cdb;
  } const cases[] = {
      {OF_LIBRARY(rig_sata_read_identify_info),
       {0x85, 0x08, 0x0E, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0xEC, 0}},
      {OF_LIBRARY(rig_sata_read_smart_values),
       {0x85, 0x08, 0x0E, 0, 0xD0, 0, 1, 0, 0, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0}},
      {OF_LIBRARY(rig_sata_read_smart_thresholds),
       {0x85, 0x08, 0x0E, 0, 0xD1, 0, 1, 0, 0, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0}},
  };
  for (const auto &expected : cases) {
    sector.fill(0xEE);
    EXPECT_EQ(run({{.data = answer}}, [&] { return expected.read(kNode, sector.data()); }), 0);
    EXPECT_EQ(bytes_at(sector.data(), 512), answer);
    ASSERT_EQ(answering.sent.size(), 1u);
    const Sent &sent = answering.sent[0];
    EXPECT_EQ(sent.flags & (O_ACCMODE | O_NONBLOCK), O_RDONLY | O_NONBLOCK);
    EXPECT_EQ(sent.cdb, expected.cdb);
    EXPECT_EQ(sent.header.interface_id, 'S');
    EXPECT_EQ(sent.header.mx_sb_len, 32);
    EXPECT_EQ(sent.header.dxfer_direction, SG_DXFER_FROM_DEV);
    EXPECT_EQ(sent.header.dxfer_len, 512u);
    EXPECT_EQ(sent.header.timeout, 15000u);
  }
}

constexpr unsigned char kCheckCondition = 0x02;
constexpr unsigned char kBusy = 0x08;
constexpr unsigned short kDriverSense = 0x08;

// Sense data of each format that SCSI knows, with the key where the format has it. Where another
// format would have it, MEDIUM ERROR.
std::vector<Bytes> sense_data(std::uint8_t key) {
  constexpr std::uint8_t kMediumError = 3;
  std::vector<Bytes> formats;
  for (const int current_or_deferred : {0, 1}) {
    const auto code = [=](int format) {
      return static_cast<std::uint8_t>(format + current_or_deferred);
    };
    const auto with_flags = static_cast<std::uint8_t>(0xF0 | key);  // the flags above a key
    formats.push_back({code(0x70), kMediumError, key, 0, 0, 0, 0, 0});
    formats.push_back({code(0xF0), kMediumError, with_flags, 0, 0, 0, 0, 0});
    formats.push_back({code(0x70), kMediumError, key});
    formats.push_back({code(0x72), key, kMediumError, 0, 0, 0, 0, 0});
    formats.push_back({code(0xF2), with_flags, kMediumError, 0, 0, 0, 0, 0});
  }
  return formats;
}

TEST_F(AtaDisk, the_librarys_commands_have_the_reason_of_the_sense_key) {
  std::array<std::uint8_t, 512> sector;
  const auto read = [&] { return OF_LIBRARY(rig_sata_read_smart_values)(kNode, sector.data()); };
  for (int key = 0; key < 16; ++key) {
    SCOPED_TRACE(key);
    const int refused =
        key == 5 || key == 11 ? EOPNOTSUPP : EIO;  // ILLEGAL REQUEST, ABORTED COMMAND
    const bool succeeds = key <= 1;                // NO SENSE, RECOVERED ERROR
    for (const Bytes &sense : sense_data(static_cast<std::uint8_t>(key))) {
      SCOPED_TRACE(testing::PrintToString(sense));
      Answer answers[] = {{.status = kCheckCondition}, {.driver_status = kDriverSense}};
      for (Answer &answer : answers) {
        answer.data = Bytes(512, 0x5C);
        answer.sense = sense;
        sector.fill(0xEE);
        errno = 0;
        EXPECT_EQ(run({answer}, read), succeeds ? 0 : -1);
        EXPECT_EQ(errno, succeeds ? 0 : refused);
        EXPECT_EQ(bytes_at(sector.data(), 512), Bytes(512, succeeds ? 0x5C : 0xEE));
      }
    }
  }
}

TEST_F(AtaDisk, the_librarys_commands_have_the_hosts_reason_whatever_comes_after_it) {
  std::array<std::uint8_t, 512> sector;
  const Bytes recovered = {0x70, 0, 1};
  const Bytes illegal = {0x70, 0, 5};
  struct {
    Answer answer;
    int reason;
  } const cases[] = {
      {{.result = -1, .error = EACCES}, EACCES},
      {{.host_status = 1}, ENODEV},
      {{.host_status = 4}, ENODEV},
      {{.host_status = 3}, ETIMEDOUT},
      {{.host_status = 2}, EIO},
      {{.host_status = 5}, EIO},
      {{.host_status = 7, .status = kCheckCondition, .sense = recovered}, EIO},
      {{.host_status = 3, .status = kCheckCondition, .sense = illegal}, ETIMEDOUT},
      {{.status = kBusy}, EIO},
      {{.status = kBusy, .sense = illegal}, EIO},
      {{.status = kBusy, .sense = recovered}, EIO},
  };
  for (const auto &expected : cases) {
    sector.fill(0xEE);
    errno = 0;
    Answer answer = expected.answer;
    answer.closes = true;
    EXPECT_EQ(run({answer},
                  [&] { return OF_LIBRARY(rig_sata_read_identify_info)(kNode, sector.data()); }),
              -1);
    EXPECT_EQ(errno, expected.reason);
    EXPECT_EQ(bytes_at(sector.data(), 512), Bytes(512, 0xEE));
  }
}

// Sense data that hold no key, or one of another format than SCSI's.
TEST_F(AtaDisk, the_librarys_commands_succeed_when_the_sense_data_name_no_error) {
  std::array<std::uint8_t, 512> sector;
  for (const Bytes &sense : {Bytes{}, Bytes{0x70, 5}, Bytes{0x72, 5}, Bytes{0x6F, 5, 5},
                             Bytes{0x74, 5, 5}, Bytes{0x7F, 5, 5}}) {
    sector.fill(0xEE);
    EXPECT_EQ(run({{.data = Bytes(512, 0x5C), .status = kCheckCondition, .sense = sense}},
                  [&] { return OF_LIBRARY(rig_sata_read_smart_values)(kNode, sector.data()); }),
              0);
    EXPECT_EQ(bytes_at(sector.data(), 512), Bytes(512, 0x5C));
  }
  // Nor do sense data count that nothing announces, be it only that the kernel's driver was busy.
  EXPECT_EQ(run({{.data = Bytes(512, 0x5C), .driver_status = 1, .sense = {0x70, 0, 5}}},
                [&] { return OF_LIBRARY(rig_sata_read_smart_values)(kNode, sector.data()); }),
            0);
  EXPECT_EQ(run({{.data = Bytes(512, 0x5C), .sense = {0x70, 0, 5}}},
                [&] { return OF_LIBRARY(rig_sata_read_smart_values)(kNode, sector.data()); }),
            0);
}

TEST_F(AtaDisk, the_librarys_enabling_of_smart_is_two_commands_without_data) {
  EXPECT_EQ(run({}, [] { return OF_LIBRARY(rig_sata_enable_smart)(kNode); }), 0);
  ASSERT_EQ(answering.sent.size(), 2u);
  EXPECT_EQ(answering.sent[0].cdb,
            (Bytes{0x85, 0x06, 0, 0, 0xD8, 0, 0, 0, 0, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0}));
  EXPECT_EQ(answering.sent[1].cdb,
            (Bytes{0x85, 0x06, 0, 0, 0xD2, 0, 0xF1, 0, 0, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0}));
  for (const Sent &sent : answering.sent) {
    EXPECT_EQ(sent.header.dxfer_direction, SG_DXFER_NONE);
    EXPECT_EQ(sent.header.dxferp, nullptr);
    EXPECT_EQ(sent.header.timeout, 15000u);
  }
}

TEST_F(AtaDisk, what_the_library_does_not_get_leaves_the_callers_sector_alone) {
  const int before = count_descriptors();
  std::array<std::uint8_t, 512> sector;
  sector.fill(0xEE);
  const auto read = [&] { return OF_LIBRARY(rig_sata_read_smart_values)(kNode, sector.data()); };
  struct {
    Answer answer;
    int reason;
  } const cases[] = {
      {{.result = -1, .error = EACCES}, EACCES},
      {{.host_status = 1}, ENODEV},
      {{.host_status = 4}, ENODEV},
      {{.host_status = 3}, ETIMEDOUT},
      {{.host_status = 7}, EIO},
  };
  for (const auto &expected : cases) {
    errno = 0;
    EXPECT_EQ(run({expected.answer}, read), -1);
    EXPECT_EQ(errno, expected.reason);
    EXPECT_EQ(std::count(sector.begin(), sector.end(), 0xEE), 512);
  }
  EXPECT_EQ(count_descriptors(), before);
}

}  // namespace
