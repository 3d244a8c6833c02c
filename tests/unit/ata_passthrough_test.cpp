// What the exported entry points refuse without a disk, and the digit functions.

#include "benchrig/sata.h"
#include "no_disk_request.h"
#include "storage/sata_device.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

template <typename Call>
std::string printed(int expected, Call call) {
  testing::internal::CaptureStdout();
  const int result = call();
  const int reason = errno;
  const std::string text = testing::internal::GetCapturedStdout();
  EXPECT_EQ(result, expected) << text;
  errno = reason;
  return text;
}

// A descriptor that takes no request of a disk.
class NoDisk : public testing::Test {
 protected:
  void SetUp() override {
    fd = open("/dev/null", O_RDWR);
    ASSERT_GE(fd, 0);
  }
  void TearDown() override {
    close(fd);
  }
  int fd = -1;
  std::array<std::uint8_t, 512> sector = {};
};

TEST_F(NoDisk, hdio_refuses_codes_that_it_does_not_know) {
  for (const int code : {215, 211, 134, 146, 239, -1}) {
    errno = 0;
    EXPECT_EQ(printed(-1, [&] { return sata_command_execute(fd, code, sector.data()); }),
              "Unrecognized command " + std::to_string(code) + "\n");
    EXPECT_EQ(errno, ENOSYS);
  }
}

TEST_F(NoDisk, hdio_returns_minus_one_when_the_request_fails) {
  for (const int code : {208, 209, 212, 213, 216, 217, 224, 231, 236, 214, 0})
    EXPECT_EQ(printed(-1, [&] { return sata_command_execute(fd, code, sector.data()); }), "");
  for (const int code : {210, 218, 219})
    EXPECT_EQ(printed(-1, [&] { return sata_command_execute(fd, code, sector.data()); }),
              "Error SMART Status command failed\n");
  EXPECT_EQ(printed(-1, [&] { return sata_command_execute(-1, 236, sector.data()); }), "");
}

TEST_F(NoDisk, hdio_refuses_a_null_buffer_where_it_needs_one) {
  for (const int code : {208, 209, 213, 236, 214, 0}) {
    errno = 0;
    EXPECT_EQ(printed(-1, [&] { return sata_command_execute(fd, code, nullptr); }), "");
    EXPECT_EQ(errno, 0) << code << " was sent";
  }
}

TEST_F(NoDisk, hdio_sends_a_command_without_data_also_without_a_buffer) {
  for (const int code : {210, 212, 216, 217, 218, 219, 224, 231}) {
    errno = 0;
    printed(-1, [&] { return sata_command_execute(fd, code, nullptr); });
    EXPECT_NE(errno, 0) << code << " was not sent";
  }
}

TEST_F(NoDisk, sg_io_refuses_a_negative_descriptor_first) {
  EXPECT_EQ(printed(-1, [] { return sata_command_execute_esata(-1, 224, nullptr); }),
            "file description error -1\n");
  EXPECT_EQ(printed(-1, [] { return sata_command_execute_esata(-7, 1, nullptr); }),
            "file description error -7\n");
  EXPECT_EQ(printed(-1, [] { return sata_command_execute_esata(-1, 208, nullptr); }),
            "file description error -1\n");
}

TEST_F(NoDisk, sg_io_refuses_codes_that_it_does_not_know) {
  for (const int code : {0, 133, 240, 1000, -1, 213, 214, 215, 211, 219, 135})
    EXPECT_EQ(printed(-1, [&] { return sata_command_execute_esata(fd, code, nullptr); }),
              "vailable scsi_cmnd_io\n");
}

TEST_F(NoDisk, sg_io_reports_a_failed_request_with_the_code_in_hexadecimal) {
  std::uint8_t byte = 1;
  EXPECT_EQ(printed(-1, [&] { return sata_command_execute_esata(fd, 224, nullptr); }),
            "sata command 0xe0 return -1\n");
  const int reason = errno;
  EXPECT_EQ(reason, no_disk_errno());
  EXPECT_EQ(printed(-1, [&] { return sata_command_execute_esata(fd, 236, sector.data()); }),
            "sata command 0xec return -1\n");
  EXPECT_EQ(printed(-1,
                    [&] {
                      return sata_command_execute_esata(fd, 134, &byte, 0x86u,
                                                        static_cast<void *>(sector.data()));
                    }),
            "sata command 0x86 return -1\n");
  EXPECT_EQ(
      printed(-1, [&] { return sata_command_execute_esata(fd, 146, sector.data(), 512u, 0u); }),
      "sata command 0x92 return -1\n");
}

TEST_F(NoDisk, sg_io_refuses_null_data) {
  std::uint8_t one = 1;
  void *const null = nullptr;
  EXPECT_EQ(printed(-1, [&] { return sata_command_execute_esata(fd, 134, &one, 1u, null); }), "");
  EXPECT_EQ(printed(-1, [&] { return sata_command_execute_esata(fd, 136, &one, 1u, null); }), "");
  EXPECT_EQ(printed(-1, [&] { return sata_command_execute_esata(fd, 146, nullptr, 512u, 0u); }),
            "");
}

TEST_F(NoDisk, sg_io_refuses_a_vendor_read_without_a_count) {
  void *const data = sector.data();
  errno = 0;
  EXPECT_EQ(printed(-1, [&] { return sata_command_execute_esata(fd, 134, nullptr, 1u, data); }),
            "");
  EXPECT_EQ(errno, 0);
}

// The release build as well: this program is compiled with NDEBUG there.
TEST_F(NoDisk, sg_io_aborts_on_a_null_argument) {
  const char *text =
      "^benchrig: app/test/ssdupgrade/ssdupgrade:[1-9][0-9]*: sata_command_execute_esata: "
      "Assertion `arg!=NULL' failed\\.\n";
  for (const int code : {208, 209, 236, 210, 212})
    EXPECT_EXIT(sata_command_execute_esata(fd, code, nullptr), testing::KilledBySignal(SIGABRT),
                text);
  EXPECT_EXIT(sata_command_execute_esata(fd, 136, nullptr, 0xFFu, static_cast<void *>(&sector)),
              testing::KilledBySignal(SIGABRT), text);
}

TEST(AtaDigits, values_of_digits) {
  for (int i = 0; i < 10; ++i)
    EXPECT_EQ(ctoi(static_cast<std::uint8_t>('0' + i)), i);
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(ctoi(static_cast<std::uint8_t>('A' + i)), 10 + i);
    EXPECT_EQ(ctoi(static_cast<std::uint8_t>('a' + i)), 10 + i);
  }
}

TEST(AtaDigits, other_characters_are_not_refused) {
  EXPECT_EQ(ctoi('g'), 55);
  EXPECT_EQ(ctoi('G'), 23);
  EXPECT_EQ(ctoi('@'), 16);
  EXPECT_EQ(ctoi(':'), 10);
  EXPECT_EQ(ctoi(0), 0xD0);
  EXPECT_EQ(ctoi(' '), 0xF0);
}

TEST(AtaDigits, digits_of_values) {
  const char digits[] = "0123456789ABCDEF";
  for (int i = 0; i < 16; ++i)
    EXPECT_EQ(hex_to_ascii(i), digits[i]);
  EXPECT_EQ(hex_to_ascii(16), 'G');
  EXPECT_EQ(hex_to_ascii(-1), '/');
}

// Commands by path.

constexpr const char *kMissing = "/nonexistent/disk";

struct Wrapper {
  const char *command;
  int (*call)(const char *path);
};

std::uint8_t buffer[512];
const std::uint8_t kOne = 1;

const Wrapper kWrappers[] = {
    {"STANDBY IMMEDIATE", sata_standby_immediate},
    {"FLUSH CACHE", sata_flush_cache},
    {"SMART READ VALUES", [](const char *path) { return sata_read_smart_values(path, buffer); }},
    {"SMART READ THRESHOLDS",
     [](const char *path) { return sata_read_smart_thresholds(path, buffer); }},
    {"SMART RETURN STATUS", sata_smart_return_status},
    {"SMART ENABLE", sata_enable_smart},
    {"SMART DISABLE", sata_disable_smart},
    {"IDENTIFY DEVICE", [](const char *path) { return sata_read_identify_info(path, buffer); }},
    {"ATA COMMAND SETFEATURES", sata_enable_vendor_mode},
    {"ATA COMMAND VENDOR DMA READ",
     [](const char *path) { return sata_vendor_dma_read(path, &kOne, 0x86, buffer); }},
    {"ATA COMMAND VENDOR DMA WRITE",
     [](const char *path) { return sata_vendor_dma_write(path, &kOne, 0xFF, buffer); }},
};

int count_descriptors() {
  int count = 0;
  for (int fd = 0; fd < 1024; ++fd)
    count += fcntl(fd, F_GETFD) >= 0;
  return count;
}

TEST(SataDevice, null_path_is_named_except_by_identify) {
  for (const Wrapper &wrapper : kWrappers) {
    const bool silent = strcmp(wrapper.command, "IDENTIFY DEVICE") == 0;
    EXPECT_EQ(printed(-1, [&] { return wrapper.call(nullptr); }),
              silent ? "" : "device name is NULL\n")
        << wrapper.command;
  }
}

TEST(SataDevice, failed_open_is_reported) {
  for (const Wrapper &wrapper : kWrappers)
    EXPECT_EQ(printed(-1, [&] { return wrapper.call(kMissing); }),
              "open /nonexistent/disk failed\n")
        << wrapper.command;
}

TEST(SataDevice, failed_command_is_reported_with_its_name_and_leaves_no_descriptor) {
  const int before = count_descriptors();
  for (const Wrapper &wrapper : kWrappers) {
    const std::string text = printed(-1, [&] { return wrapper.call("/dev/null"); });
    const std::string line = std::string("send ") + wrapper.command + " command, return -1\n";
    ASSERT_GE(text.size(), line.size()) << wrapper.command;
    EXPECT_EQ(text.substr(text.size() - line.size()), line);
  }
  EXPECT_EQ(count_descriptors(), before);
}

// A program that is started without standard input gets descriptor 0 from its first open().
TEST(SataDevice, a_disk_may_be_descriptor_0) {
  const int input = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
  ASSERT_GE(input, 0);
  for (const Wrapper &wrapper : kWrappers) {
    const std::string usual = printed(-1, [&] { return wrapper.call("/dev/null"); });
    const std::string without = printed(-1, [&] {
      close(STDIN_FILENO);
      const int result = wrapper.call("/dev/null");
      dup2(input, STDIN_FILENO);
      return result;
    });
    EXPECT_EQ(without, usual);
  }
  close(input);
}

// Each line is a write that fails, with a reason of its own.
TEST(SataDevice, a_failed_command_s_reason_outlives_the_message) {
  const auto reason_without_messages = [] {
    setvbuf(stdout, nullptr, _IONBF, 0);
    dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
    const int result = sata_standby_immediate("/dev/null");
    _exit(result == -1 && errno == no_disk_errno() ? 0 : 1);
  };
  EXPECT_EXIT(reason_without_messages(), testing::ExitedWithCode(0), "");
}

TEST(SataDevice, null_buffers_are_named_except_by_identify) {
  const char *null_buffer = "data buffer is NULL\n";
  EXPECT_EQ(printed(-1, [] { return sata_read_smart_values("/dev/null", nullptr); }), null_buffer);
  EXPECT_EQ(printed(-1, [] { return sata_read_smart_thresholds("/dev/null", nullptr); }),
            null_buffer);
  EXPECT_EQ(printed(-1, [] { return sata_vendor_dma_read("/dev/null", &kOne, 1, nullptr); }),
            null_buffer);
  EXPECT_EQ(printed(-1, [] { return sata_vendor_dma_write("/dev/null", &kOne, 1, nullptr); }),
            null_buffer);
  EXPECT_EQ(printed(-1, [] { return sata_read_identify_info("/dev/null", nullptr); }), "");
}

TEST(SataDevice, failed_enable_sends_no_autosave) {
  EXPECT_EQ(printed(-1, [] { return sata_enable_smart("/dev/null"); }),
            "sata command 0xd8 return -1\nsend SMART ENABLE command, return -1\n");
}

TEST(SataDevice, smart_retry_gives_up_after_three_attempts) {
  std::array<std::uint8_t, 512> sector;
  sector.fill(0xEE);
  const std::string attempt =
      "send SMART READ VALUES command, return -1\nsata_read_smart_values error, retry!\n";
  EXPECT_EQ(printed(-1, [&] { return sata_read_smart_retry("/dev/null", sector.data()); }),
            "sata command 0xd8 return -1\nsend SMART ENABLE command, return -1\n"
            "enable_smart error errno = " +
                no_disk_errno_text() + "\n" + attempt + attempt + attempt +
                "sata_read_smart_values failed!\n");
  EXPECT_EQ(sector[0], 0);  // cleared before the first attempt
  EXPECT_EQ(sector[511], 0);
}

TEST(SataDevice, smart_retry_refuses_null_arguments_without_a_word) {
  EXPECT_EQ(printed(-14, [] { return sata_read_smart_retry(nullptr, buffer); }), "");
  EXPECT_EQ(printed(-14, [] { return sata_read_smart_retry("/dev/null", nullptr); }), "");
}

TEST(SataDevice, identify_swaps_three_texts_and_nothing_else) {
  std::array<std::uint8_t, 512> sector;
  for (std::size_t i = 0; i < sector.size(); ++i)
    sector[i] = static_cast<std::uint8_t>(i);
  swap_identify_texts(sector.data());
  for (std::size_t i = 0; i < sector.size(); ++i) {
    const bool text = (i >= 20 && i <= 39) || (i >= 46 && i <= 53) || (i >= 54 && i <= 93);
    EXPECT_EQ(sector[i], static_cast<std::uint8_t>(text ? (i ^ 1) : i)) << i;
  }
}

TEST(SataDevice, identify_swaps_after_a_failure_too) {
  std::array<std::uint8_t, 512> sector = {};
  sector[20] = 'B';
  sector[21] = 'A';
  printed(-1, [&] { return sata_read_identify_info("/dev/null", sector.data()); });
  EXPECT_EQ(sector[20], 'A');
  EXPECT_EQ(sector[21], 'B');
}

}  // namespace
