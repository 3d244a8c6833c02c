// upgrade ssd: what ends it before a drive is asked for anything. The sequences with a drive are in
// tests/cli/test_upgrade_ssd.py.

#include "benchrig/ssd_update.h"
#include "no_disk_request.h"
#include "storage/ssd_image.h"
#include "storage/ssd_update.h"
#include "storage/storage.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace {

struct Outcome {
  int status;
  std::string text;
};

template <typename Call>
Outcome outcome(Call call) {
  testing::internal::CaptureStdout();
  const int status = call();
  return {status, testing::internal::GetCapturedStdout()};
}

Outcome run(std::vector<std::string> words) {
  std::vector<char *> argv;
  for (std::string &word : words)
    argv.push_back(word.data());
  const int argc = static_cast<int>(argv.size());
  argv.push_back(nullptr);
  return outcome([&] { return ssd_upgrade_applet(argc, argv.data()); });
}

constexpr const char *kNoDrive = "benchrig-test-no-such-drive";

class SsdUpgrade : public testing::Test {
 protected:
  void SetUp() override {
    directory = testing::TempDir() + "ssd-XXXXXX";
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
  }
  void TearDown() override {
    for (const std::string &file : files)
      unlink(file.c_str());
    rmdir(directory.c_str());
  }
  std::string file(const std::string &name, off_t size) {
    const std::string path = directory + "/" + name;
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
    EXPECT_EQ(ftruncate(fd, size), 0);
    close(fd);
    files.push_back(path);
    return path;
  }
  std::string directory;
  std::vector<std::string> files;
};

TEST_F(SsdUpgrade, wrong_counts_print_the_example_and_are_no_failure) {
  for (const auto &words :
       {std::vector<std::string>{"ssd"}, {"ssd", "sda"}, {"ssd", "a", "b", "c"}}) {
    const Outcome result = run(words);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.text, "Invalid params, eg. upgrade ssd  hda  fw.bin\n");
  }
}

TEST_F(SsdUpgrade, names_of_64_characters_are_refused) {
  Outcome result = run({"ssd", std::string(64, 'd'), "fw.bin"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.text, "Divice name too long(<63)");
  result = run({"ssd", "sda", std::string(64, 'p')});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.text.substr(0, 28), "File path name too long(<63)");
}

TEST_F(SsdUpgrade, names_of_63_characters_are_taken) {
  const std::string path(63, 'p');
  const Outcome result = run({"ssd", std::string(63, 'd'), path});
  EXPECT_EQ(result.status, -2);
  EXPECT_EQ(result.text, "FW from " + path + "\nopen bin fail\n");
}

TEST_F(SsdUpgrade, missing_image) {
  const std::string path = directory + "/none.bin";
  const Outcome result = run({"ssd", kNoDrive, path});
  EXPECT_EQ(result.status, -2);
  EXPECT_EQ(result.text, "FW from " + path + "\nopen bin fail\n");
}

TEST_F(SsdUpgrade, unreadable_image) {
  if (geteuid() == 0)
    GTEST_SKIP() << "root reads everything";
  const std::string path = file("locked.bin", 512);
  chmod(path.c_str(), 0);
  const Outcome result = run({"ssd", kNoDrive, path});
  EXPECT_EQ(result.status, -2);
  EXPECT_EQ(result.text, "FW from " + path + "\nopen bin fail\n");
}

TEST_F(SsdUpgrade, a_directory_opens_and_does_not_read) {
  const Outcome result = run({"ssd", kNoDrive, directory});
  EXPECT_EQ(result.status, -3);
  EXPECT_EQ(result.text, "FW from " + directory + "\nread bin fail\n");
}

TEST_F(SsdUpgrade, an_image_beyond_32_bits_is_not_opened) {
  const std::string path = file("huge.bin", off_t{1} << 32);
  const Outcome result = run({"ssd", kNoDrive, path});
  EXPECT_EQ(result.status, -2);
  EXPECT_EQ(result.text, "FW from " + path + "\nopen bin fail\n");
}

TEST_F(SsdUpgrade, missing_drive_fails_the_update_and_not_the_applet) {
  const std::string path = file("FIRMWAREABCDEFG2.bin", 8192);
  const Outcome result = run({"ssd", kNoDrive, path});
  const std::string node = std::string("/dev/") + kNoDrive;
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.text, "FW from " + path + "\nopen " + node + " failed\nsata[" + node +
                             "] read identify info fail!\nupdate fail(-1)\n");
}

TEST_F(SsdUpgrade, node_of_a_long_device_name_is_cut_to_63_characters) {
  const std::string path = file("FIRMWAREABCDEFG2.bin", 8192);
  const std::string name(63, 'd');
  EXPECT_NE(run({"ssd", name, path}).text.find("open /dev/" + std::string(58, 'd') + " failed\n"),
            std::string::npos);
}

TEST_F(SsdUpgrade, device_step_refuses_null_arguments) {
  std::array<std::uint8_t, 512> image = {};
  EXPECT_EQ(ssd_upgrade_device(nullptr, image.data(), 512, "ABCDEFG2"), -1);
  EXPECT_EQ(ssd_upgrade_device("/dev/null", nullptr, 512, "ABCDEFG2"), -1);
  EXPECT_EQ(ssd_upgrade_device("/dev/null", image.data(), 512, nullptr), -1);
}

// Exported steps.

// What the next call finds on the stack where it keeps its texts: no NUL.
[[gnu::noinline]] void fill_stack() {
  volatile unsigned char filler[16384];
  for (volatile unsigned char &byte : filler)
    byte = 0xA5;
}

Outcome guarded(std::vector<std::uint8_t> &image, const char *update, const char *current) {
  std::array<std::uint8_t, 512> identify = {};
  memcpy(&identify[46], current, 8);
  const std::size_t length = image.size();
  image.resize(static_cast<std::size_t>(image_buffer_size(length)));
  const Outcome result = outcome([&] {
    fill_stack();
    return korsata_download_microcode("/dev/null", image.data(), static_cast<std::uint32_t>(length),
                                      update, identify.data());
  });
  image.resize(length);
  return result;
}

TEST_F(SsdUpgrade, checksum_ends_it_first) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}}) {
    std::vector<std::uint8_t> image(size, 0);
    const Outcome result = guarded(image, "ABCDEFG2", "ABCDEFG2");
    EXPECT_EQ(result.status, -1);
    EXPECT_EQ(result.text, "sata[/dev/null] checksum fail!\n");
  }
  std::vector<std::uint8_t> image(8192, 0);
  image.back() = 1;
  const Outcome result = guarded(image, "ABCDEFG2", "ABCDEFG3");
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.text, "sata[/dev/null] checksum fail!\n");
}

TEST_F(SsdUpgrade, revision_rule_comes_second) {
  std::vector<std::uint8_t> image(8192, 0);
  Outcome result = guarded(image, "ABCDEFG2", "ABCDEFG3");
  EXPECT_EQ(result.status, -2);
  EXPECT_EQ(result.text, "fwver error(curFw:ABCDEFG3 updateFw:ABCDEFG2)");
  result = guarded(image, "ABCDEFH2", "ABCDEFG2");
  EXPECT_EQ(result.status, -2);
  EXPECT_EQ(result.text, "fwver error(curFw:ABCDEFG2 updateFw:ABCDEFH2)");
  result = guarded(image, "", "ABCDEFG2");  // of a name without a revision
  EXPECT_EQ(result.status, -2);
  EXPECT_EQ(result.text, "fwver error(curFw:ABCDEFG2 updateFw:)");
}

TEST_F(SsdUpgrade, a_revision_is_cut_to_eight_characters) {
  std::vector<std::uint8_t> image(8192, 0);
  EXPECT_EQ(guarded(image, "ABCDEFH2.bin", "ABCDEFG2").text,
            "fwver error(curFw:ABCDEFG2 updateFw:ABCDEFH2)");
}

TEST_F(SsdUpgrade, failed_ram_read_comes_third_and_the_image_stays_as_it_was) {
  for (const std::size_t size : {2u, 511u, 5000u, 8192u}) {
    std::vector<std::uint8_t> image(size, 0);
    const std::vector<std::uint8_t> before = image;
    const Outcome result = guarded(image, "ABCDEFG2", "ABCDEFG2");
    EXPECT_EQ(result.status, -2);
    EXPECT_EQ(result.text,
              "sata command 0xef return -1\n"
              "send ATA COMMAND SETFEATURES command, return -1\n"
              "enable_vendor error errno = " +
                  no_disk_errno_text() +
                  "\n"
                  "sata command 0x88 return -1\n"
                  "send ATA COMMAND VENDOR DMA WRITE command, return -1\n"
                  "enable_vendor write errno = " +
                  no_disk_errno_text() +
                  "\n"
                  "sata[/dev/null] read ram data fail!\n")
        << size;
    EXPECT_EQ(image, before);
  }
}

TEST_F(SsdUpgrade, guarded_update_refuses_null_arguments) {
  std::array<std::uint8_t, 8192> image = {};
  std::array<std::uint8_t, 512> identify = {};
  EXPECT_EQ(korsata_download_microcode(nullptr, image.data(), 8192, "ABCDEFG2", identify.data()),
            -1);
  EXPECT_EQ(korsata_download_microcode("/dev/null", nullptr, 8192, "ABCDEFG2", identify.data()),
            -1);
  EXPECT_EQ(korsata_download_microcode("/dev/null", image.data(), 8192, nullptr, identify.data()),
            -1);
  EXPECT_EQ(korsata_download_microcode("/dev/null", image.data(), 8192, "ABCDEFG2", nullptr), -1);
}

TEST_F(SsdUpgrade, download_reports_its_path) {
  std::array<std::uint8_t, 512> image = {};
  Outcome result =
      outcome([&] { return korsata_download_microcode_cmd(nullptr, image.data(), 512); });
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.text, "device name is NULL\n");
  result =
      outcome([&] { return korsata_download_microcode_cmd("/dev/none/x", image.data(), 512); });
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.text, "open /dev/none/x failed\n");
}

TEST_F(SsdUpgrade, download_of_nothing_succeeds) {
  std::array<std::uint8_t, 1> image = {};
  const Outcome result =
      outcome([&] { return korsata_download_microcode_cmd("/dev/null", image.data(), 0); });
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.text, "");
}

TEST_F(SsdUpgrade, download_beyond_the_offsets_reach_sends_nothing) {
  const std::uint32_t length = 32 * 1024 * 1024 + 1;
  std::array<std::uint8_t, 512> image = {};  // is not looked at
  const Outcome result =
      outcome([&] { return korsata_download_microcode_cmd("/dev/null", image.data(), length); });
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.text, "");
}

TEST_F(SsdUpgrade, download_to_the_last_offset_is_sent) {
  std::array<std::uint8_t, 4096> image = {};  // the first chunk, which /dev/null refuses
  const Outcome result = outcome(
      [&] { return korsata_download_microcode_cmd("/dev/null", image.data(), 32 * 1024 * 1024); });
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.text, "sata command 0x92 return -1\n");
}

TEST_F(SsdUpgrade, a_drive_may_be_descriptor_0) {
  const int input = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
  ASSERT_GE(input, 0);
  std::array<std::uint8_t, 512> image = {};
  const Outcome result = outcome([&] {
    close(STDIN_FILENO);
    const int sent = korsata_download_microcode_cmd("/dev/null", image.data(), 512);
    dup2(input, STDIN_FILENO);
    return sent;
  });
  close(input);
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.text, "sata command 0x92 return -1\n");
}

// The descriptors of this process.
int count_descriptors() {
  int count = 0;
  for (int fd = 0; fd < 1024; ++fd)
    count += fcntl(fd, F_GETFD) >= 0;
  return count;
}

// One descriptor is lost on purpose: the drive is in the middle of a transfer.
TEST_F(SsdUpgrade, failed_chunk_leaves_the_node_open) {
  std::array<std::uint8_t, 512> image = {};
  const int before = count_descriptors();
  const Outcome result =
      outcome([&] { return korsata_download_microcode_cmd("/dev/null", image.data(), 512); });
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.text, "sata command 0x92 return -1\n");
  EXPECT_EQ(count_descriptors(), before + 1);
}

TEST_F(SsdUpgrade, every_other_end_closes_the_node) {
  std::vector<std::uint8_t> image(8192, 0);
  const int before = count_descriptors();
  guarded(image, "ABCDEFG2", "ABCDEFG2");  // the drive's RAM does not answer
  outcome([&] { return korsata_download_microcode_cmd("/dev/null", image.data(), 0); });
  outcome([&] { return korsata_download_microcode_cmd("/dev/null", image.data(), UINT32_MAX); });
  run({"ssd", kNoDrive, file("FIRMWAREABCDEFG2.bin", 8192)});
  run({"ssd", kNoDrive, directory});
  EXPECT_EQ(count_descriptors(), before);
}

}  // namespace
