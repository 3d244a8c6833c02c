// The pieces of work of the virtual board's flash: how long each takes, which one of how many it
// is, and what is on the medium in the middle of it.

#include "model_harness.h"

#include <errno.h>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>

#include <gtest/gtest.h>

#include <string>

using namespace vboard;

namespace {

constexpr BoardTime kErase = 300'000'000;
constexpr BoardTime kProgram = 700'000;
constexpr std::uint32_t kSize = 16384;

// 8 blocks; of NAND, 4 pages of 512 bytes each.
constexpr char kNor[] =
    "model = mtd\nmedium = flash\nerase_size = 2048\nerase_ms = 300\npage_us = 700\n";
constexpr char kNand[] =
    "model = mtd\nmedium = flash\nerase_size = 2048\nerase_ms = 300\npage_us = 700\n"
    "flash = nand\nwrite_size = 512\noob_size = 16\n";

struct Flash : ModelHarness {
  Flash(const char *node, char fill) : ModelHarness(node) {
    write_file("media/flash", std::string(kSize, fill));
    EXPECT_EQ(open(), 0);
    open_file.flags = O_RDWR;
  }
  ssize_t write_at(std::int64_t offset, std::size_t size) {
    position = offset;
    const std::string bytes(size, 'p');
    return write(bytes.data(), bytes.size());
  }
  int erase(std::uint32_t start, std::uint32_t length) {
    erase_info_user range = {.start = start, .length = length};
    return request(MEMERASE, range);
  }
};

// A medium of `fill` with other bytes from `at` on.
std::string medium_with(char fill, std::size_t at, const std::string &bytes) {
  std::string medium(kSize, fill);
  return medium.replace(at, bytes.size(), bytes);
}

void expect_work(std::size_t number, BoardTime duration, Progress progress,
                 const std::string &medium) {
  ASSERT_LT(number, fake_core.work.size());
  const PieceOfWork &piece = fake_core.work[number];
  EXPECT_EQ(piece.duration, duration) << number;
  EXPECT_EQ(piece.progress.done, progress.done) << number;
  EXPECT_EQ(piece.progress.all, progress.all) << number;
  EXPECT_TRUE(piece.medium == medium) << number;
}

}  // namespace

TEST(FlashWork, blocks_are_erased_one_after_the_other) {
  Flash board(kNor, 'a');
  EXPECT_EQ(board.erase(2048, 6144), 0);
  ASSERT_EQ(fake_core.work.size(), 3u);
  for (std::size_t i = 0; i < 3; ++i)
    expect_work(i, kErase, {i, 3}, medium_with('a', 2048, std::string(2048 * i + 1024, '\xff')));
  EXPECT_EQ(board.file("media/flash"), medium_with('a', 2048, std::string(6144, '\xff')));
}

TEST(FlashWork, pages_of_flash_that_takes_bytes_have_256) {
  Flash board(kNor, '\xff');
  EXPECT_EQ(board.write_at(200, 400), 400);
  ASSERT_EQ(fake_core.work.size(), 3u);
  expect_work(0, kProgram, {0, 3}, medium_with('\xff', 200, std::string(28, 'p')));
  expect_work(1, kProgram, {1, 3}, medium_with('\xff', 200, std::string(56 + 128, 'p')));
  expect_work(2, kProgram, {2, 3}, medium_with('\xff', 200, std::string(56 + 256 + 44, 'p')));
  EXPECT_EQ(board.file("media/flash"), medium_with('\xff', 200, std::string(400, 'p')));
}

TEST(FlashWork, larger_units_are_pages_themselves) {
  Flash board("model = mtd\nmedium = flash\nflash = dataflash\nwrite_size = 1056\npage_us = 700\n",
              '\xff');
  EXPECT_EQ(board.write_at(1000, 100), 100);
  ASSERT_EQ(fake_core.work.size(), 2u);
  expect_work(0, kProgram, {0, 2}, medium_with('\xff', 1000, std::string(28, 'p')));
  expect_work(1, kProgram, {1, 2}, medium_with('\xff', 1000, std::string(56 + 22, 'p')));
}

TEST(FlashWork, pages_of_nand_are_its_own) {
  Flash board(kNand, '\xff');
  EXPECT_EQ(board.write_at(512, 1024), 1024);
  ASSERT_EQ(fake_core.work.size(), 2u);
  expect_work(0, kProgram, {0, 2}, medium_with('\xff', 512, std::string(256, 'p')));
  expect_work(1, kProgram, {1, 2}, medium_with('\xff', 512, std::string(512 + 256, 'p')));
}

TEST(FlashWork, small_pages_of_nand_stay_small) {
  Flash board("model = mtd\nmedium = flash\nflash = nand\nwrite_size = 64\npage_us = 700\n",
              '\xff');
  EXPECT_EQ(board.write_at(64, 128), 128);
  EXPECT_EQ(fake_core.work.size(), 2u);
}

TEST(FlashWork, pages_come_with_their_spare_bytes) {
  Flash board(kNand, '\xff');
  const std::string data(1536, 'p');
  const std::string spare(40, 's');
  mtd_write_req record = {};
  record.len = data.size();
  record.ooblen = spare.size();
  record.usr_data = reinterpret_cast<std::uintptr_t>(data.data());
  record.usr_oob = reinterpret_cast<std::uintptr_t>(spare.data());
  record.mode = MTD_OPS_RAW;
  EXPECT_EQ(board.request(MEMWRITE, record), 0);
  ASSERT_EQ(fake_core.work.size(), 3u);
  for (std::size_t i = 0; i < 3; ++i) {
    expect_work(i, kProgram, {i, 3}, medium_with('\xff', 0, std::string(512 * i + 256, 'p')));
    EXPECT_EQ(fake_core.work[i].spare, std::string(16 * i, 's')) << i;
  }
  EXPECT_EQ(board.file("media/flash.oob"), spare);
}

TEST(FlashWork, spare_bytes_alone_take_the_time_of_a_page) {
  Flash board(kNand, '\xff');
  unsigned char bytes[] = "spare";
  mtd_oob_buf record = {.start = 512, .length = 5, .ptr = bytes};
  EXPECT_EQ(board.request(MEMWRITEOOB, record), 0);
  ASSERT_EQ(fake_core.work.size(), 1u);
  expect_work(0, kProgram, {0, 1}, std::string(kSize, '\xff'));
  EXPECT_EQ(fake_core.work[0].spare, "");
  EXPECT_EQ(board.file("media/flash.oob"), std::string(16, '\xff') + "spare");
}

TEST(FlashWork, spare_bytes_are_erased_last) {
  Flash board(kNand, 'a');
  board.write_file("media/flash.oob", std::string(128, 's'));
  EXPECT_EQ(board.erase(0, 2048), 0);
  ASSERT_EQ(fake_core.work.size(), 1u);
  EXPECT_EQ(fake_core.work[0].spare, std::string(128, 's'));
  EXPECT_EQ(board.file("media/flash.oob"), std::string(64, '\xff') + std::string(64, 's'));
}

TEST(FlashWork, a_worn_block_works_in_vain_and_a_bad_one_not_at_all) {
  Flash board(kNand, 'a');
  board.write_file("dev/node", std::string(kNand) + "worn_block = 1\nbad_blocks = 3\n");
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(board.erase(2048, 2048), -EIO);
  ASSERT_EQ(fake_core.work.size(), 1u);
  expect_work(0, kErase, {0, 1}, std::string(kSize, 'a'));
  EXPECT_EQ(board.erase(3 * 2048, 2048), -EIO);
  EXPECT_EQ(fake_core.work.size(), 1u);
  EXPECT_EQ(board.file("media/flash"), std::string(kSize, 'a'));
}
