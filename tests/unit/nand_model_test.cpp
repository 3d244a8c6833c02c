// The virtual board's NAND flash: pages, spare bytes, bad and worn blocks; and the other types of
// flash that are not NOR.

#include "model_harness.h"

#include <errno.h>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <string.h>
#include <sys/ioctl.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using namespace vboard;

namespace {

// 8 blocks of 4 pages of 512 bytes with 16 spare bytes each.
constexpr char kNand[] =
    "model = mtd\nmedium = flash\nflash = nand\nerase_size = 2048\nwrite_size = 512\n"
    "oob_size = 16\n";
constexpr std::uint32_t kBlock = 2048;
constexpr std::uint32_t kPage = 512;
constexpr std::uint32_t kSpare = 16;
constexpr std::uint32_t kSize = 16384;

struct Nand : ModelHarness {
  explicit Nand(const std::string &more = "", const char *base = kNand)
      : ModelHarness((base + more).c_str()) {
    write_file("media/flash", std::string(kSize, '\xff'));
    EXPECT_EQ(open(), 0);
    open_file.flags = O_RDWR;
  }
  ssize_t write_at(std::int64_t offset, const std::string &bytes) {
    position = offset;
    return write(bytes.data(), bytes.size());
  }
  int erase(std::uint32_t start, std::uint32_t length) {
    erase_info_user range = {.start = start, .length = length};
    return request(MEMERASE, range);
  }
  int is_bad(std::int64_t offset) {
    __kernel_loff_t record = offset;
    return request(MEMGETBADBLOCK, record);
  }
  int mark_bad(std::int64_t offset) {
    __kernel_loff_t record = offset;
    return request(MEMSETBADBLOCK, record);
  }
  int write_spare(std::uint64_t start, std::string bytes) {
    mtd_oob_buf64 record = {.start = start,
                            .pad = 0,
                            .length = static_cast<std::uint32_t>(bytes.size()),
                            .usr_ptr = reinterpret_cast<std::uintptr_t>(bytes.data())};
    const int result = request(MEMWRITEOOB64, record);
    EXPECT_TRUE(result < 0 || record.length == bytes.size());
    return result;
  }
  // The bytes, or the errno's number as a text.
  std::string read_spare(std::uint64_t start, std::uint32_t length) {
    std::string bytes(length, '?');
    mtd_oob_buf64 record = {.start = start,
                            .pad = 0,
                            .length = length,
                            .usr_ptr = reinterpret_cast<std::uintptr_t>(bytes.data())};
    const int result = request(MEMREADOOB64, record);
    EXPECT_TRUE(result < 0 || record.length == length);
    return result == 0 ? bytes : std::to_string(result);
  }
  int write_pages(std::uint64_t start, const std::string &data, const std::string &spare,
                  std::uint8_t mode = MTD_OPS_PLACE_OOB) {
    mtd_write_req record = {};
    record.start = start;
    record.len = data.size();
    record.ooblen = spare.size();
    record.usr_data = data.empty() ? 0 : reinterpret_cast<std::uintptr_t>(data.data());
    record.usr_oob = spare.empty() ? 0 : reinterpret_cast<std::uintptr_t>(spare.data());
    record.mode = mode;
    return request(MEMWRITE, record);
  }
};

std::string error_text(int error) {
  return std::to_string(-error);
}

}  // namespace

TEST(NandModel, reports_its_type_and_sizes) {
  Nand board;
  mtd_info_user info = {};
  ASSERT_EQ(board.request(MEMGETINFO, info), 0);
  EXPECT_EQ(info.type, 4);
  EXPECT_EQ(info.flags, 0x400u);
  EXPECT_EQ(info.size, 16384u);
  EXPECT_EQ(info.erasesize, 2048u);
  EXPECT_EQ(info.writesize, 512u);
  EXPECT_EQ(info.oobsize, 16u);
}

TEST(NandModel, other_types_report_theirs_and_have_no_spare_bytes) {
  const struct {
    const char *name;
    int type;
    std::uint32_t flags;
    std::uint32_t oobsize;
  } kTypes[] = {{"nor", 3, 0xC00, 0},
                {"nonsense", 3, 0xC00, 0},
                {"mlc-nand", 8, 0x400, 16},
                {"dataflash", 6, 0x400, 0},
                {"ram", 1, 0x1C00, 0}};
  for (const auto &type : kTypes) {
    Nand board(std::string("flash = ") + type.name + "\n",
               "model = mtd\nmedium = flash\nwrite_size = 512\noob_size = 16\n");
    mtd_info_user info = {};
    ASSERT_EQ(board.request(MEMGETINFO, info), 0);
    EXPECT_EQ(info.type, type.type) << type.name;
    EXPECT_EQ(info.flags, type.flags) << type.name;
    EXPECT_EQ(info.oobsize, type.oobsize) << type.name;
    EXPECT_EQ(board.read_spare(0, 1), type.oobsize == 0 ? error_text(EOPNOTSUPP) : "\xff");
  }
}

TEST(NandModel, writes_whole_pages_only) {
  Nand board;
  EXPECT_EQ(board.write_at(512, std::string(1024, 'a')), 1024);
  EXPECT_EQ(board.position, 1536);
  EXPECT_EQ(board.file("media/flash"),
            std::string(512, '\xff') + std::string(1024, 'a') + std::string(14848, '\xff'));
  EXPECT_EQ(board.write_at(2048, std::string(511, 'a')), -EINVAL);
  EXPECT_EQ(board.write_at(2049, std::string(512, 'a')), -EINVAL);
  EXPECT_EQ(board.write_at(2048, std::string(513, 'a')), -EINVAL);
  EXPECT_EQ(board.file("media/flash").substr(1536), std::string(14848, '\xff'));
}

// The kernel cuts a write at the end of the flash before it looks at pages.
TEST(NandModel, writes_end_at_the_end) {
  Nand board;
  EXPECT_EQ(board.write_at(kSize - 512, std::string(700, 'a')), 512);
  EXPECT_EQ(board.write_at(kSize, std::string(512, 'a')), -ENOSPC);
}

TEST(NandModel, programming_clears_bits) {
  Nand board;
  EXPECT_EQ(board.write_at(0, std::string(512, '\xF0')), 512);
  EXPECT_EQ(board.write_at(0, std::string(512, '\x3C')), 512);
  EXPECT_EQ(board.file("media/flash").substr(0, 513), std::string(512, '\x30') + "\xff");
}

TEST(NandModel, ram_and_dataflash_take_bytes_as_they_are) {
  for (const char *type : {"ram", "dataflash"}) {
    Nand board(std::string("flash = ") + type + "\n",
               "model = mtd\nmedium = flash\nwrite_size = 512\nbad_blocks = 0\n");
    EXPECT_EQ(board.write_at(3, "\x0F"), 1);
    EXPECT_EQ(board.write_at(3, "\xF0"), 1);
    EXPECT_EQ(board.file("media/flash").substr(2, 3), "\xFF\xF0\xFF") << type;
    EXPECT_EQ(board.erase(0, 4096), 0);
    EXPECT_EQ(board.file("media/flash").substr(3, 1), "\xFF") << type;
  }
}

TEST(NandModel, bad_blocks_take_neither_programming_nor_erasing) {
  Nand board("bad_blocks = 1 0x3  x\n");
  board.write_file("media/flash", std::string(kSize, 'z'));
  for (std::uint32_t block = 0; block < 8; ++block) {
    const bool bad = block == 1 || block == 3;
    EXPECT_EQ(board.is_bad(block * kBlock), bad) << block;
    EXPECT_EQ(board.is_bad(block * kBlock + kBlock - 1), bad) << block;
    EXPECT_EQ(board.write_at(block * kBlock + kPage, std::string(kPage, 'b')), bad ? -EIO : 512);
    EXPECT_EQ(board.write_spare(block * kBlock, "s"), bad ? -EIO : 0);
    EXPECT_EQ(board.erase(block * kBlock, kBlock), bad ? -EIO : 0);
  }
  const std::string flash = board.file("media/flash");
  EXPECT_EQ(flash.substr(kBlock, kBlock), std::string(kBlock, 'z'));
  EXPECT_EQ(flash.substr(2 * kBlock, kBlock), std::string(kBlock, '\xff'));
  EXPECT_EQ(board.is_bad(-1), -EINVAL);
  EXPECT_EQ(board.is_bad(kSize), -EINVAL);
}

TEST(NandModel, work_stops_at_a_bad_block_and_keeps_what_was_done) {
  Nand board("bad_blocks = 1\n");
  EXPECT_EQ(board.write_at(kBlock - kPage, std::string(2 * kPage, 'a')), -EIO);
  EXPECT_EQ(board.file("media/flash"), std::string(kBlock - kPage, '\xff') +
                                           std::string(kPage, 'a') +
                                           std::string(kSize - kBlock, '\xff'));
  EXPECT_EQ(board.erase(0, 3 * kBlock), -EIO);
  EXPECT_EQ(board.file("media/flash"), std::string(kSize, '\xff'));
}

TEST(NandModel, a_block_that_is_marked_bad_is_in_the_node) {
  Nand board("bad_blocks = 6\n");
  EXPECT_EQ(board.mark_bad(2 * kBlock + 5), 0);
  EXPECT_NE(board.node().find("bad_blocks = 6 2\n"), std::string::npos);
  EXPECT_EQ(board.is_bad(2 * kBlock), 1);
  EXPECT_EQ(board.mark_bad(6 * kBlock), 0);
  EXPECT_NE(board.node().find("bad_blocks = 6 2\n"), std::string::npos);
  EXPECT_EQ(board.mark_bad(kSize), -EINVAL);
  EXPECT_EQ(board.mark_bad(-1), -EINVAL);
  board.open_file.flags = O_RDONLY;
  EXPECT_EQ(board.mark_bad(0), -EPERM);
}

// Another process may have changed the node: its blocks stay.
TEST(NandModel, a_mark_is_added_to_the_list_of_the_file) {
  Nand board;
  board.write_file("dev/node", std::string(kNand) + "bad_blocks = 7\n");
  EXPECT_EQ(board.mark_bad(0), 0);
  EXPECT_NE(board.node().find("bad_blocks = 7 0\n"), std::string::npos);
}

TEST(NandModel, a_mark_that_the_node_has_no_room_for_is_e2big) {
  Nand board("# " + std::string(4095 - strlen(kNand) - 3 - 17, 'x') + "\n");
  EXPECT_EQ(board.mark_bad(5 * kBlock), 0);  // "bad_blocks = 5\n" fits
  EXPECT_EQ(board.mark_bad(6 * kBlock), 0);
  EXPECT_EQ(board.mark_bad(7 * kBlock), -E2BIG);
  EXPECT_NE(board.node().find("bad_blocks = 5 6\n"), std::string::npos);
}

TEST(NandModel, nor_flash_has_no_bad_blocks) {
  Nand board("", "model = mtd\nmedium = flash\nbad_blocks = 0\n");
  EXPECT_EQ(board.is_bad(0), 0);
  EXPECT_EQ(board.mark_bad(0), -EOPNOTSUPP);
  EXPECT_EQ(board.erase(0, 4096), 0);
}

TEST(NandModel, several_blocks_may_be_worn) {
  Nand board("worn_blocks = 1 2\nworn_block = 5\n");
  board.write_file("media/flash", std::string(kSize, 'z'));
  for (std::uint32_t block = 0; block < 8; ++block) {
    const bool worn = block == 1 || block == 2 || block == 5;
    EXPECT_EQ(board.erase(block * kBlock, kBlock), worn ? -EIO : 0) << block;
    EXPECT_EQ(board.file("media/flash")[block * kBlock], worn ? 'z' : '\xff') << block;
    EXPECT_EQ(board.is_bad(block * kBlock), 0);
  }
}

TEST(NandModel, statistics_count_the_bad_blocks_of_the_flash) {
  Nand board("bad_blocks = 3 3 7 8 x\n");
  mtd_ecc_stats stats = {};
  EXPECT_EQ(board.request(ECCGETSTATS, stats), 0);
  EXPECT_EQ(stats.badblocks, 2u);
  EXPECT_EQ(stats.corrected + stats.failed + stats.bbtblocks, 0u);
}

TEST(NandModel, all_spare_bytes_are_free) {
  Nand board;
  nand_ecclayout_user layout = {};
  EXPECT_EQ(board.request(ECCGETLAYOUT, layout), 0);
  EXPECT_EQ(layout.eccbytes, 0u);
  EXPECT_EQ(layout.oobavail, 16u);
  EXPECT_EQ(layout.oobfree[0].offset, 0u);
  EXPECT_EQ(layout.oobfree[0].length, 16u);
  EXPECT_EQ(layout.oobfree[1].length, 0u);
  Nand nor("", "model = mtd\nmedium = flash\noob_size = 16\n");
  EXPECT_EQ(nor.request(ECCGETLAYOUT, layout), -EOPNOTSUPP);
}

TEST(NandModel, spare_bytes_are_in_a_file_beside_the_medium) {
  Nand board;
  EXPECT_EQ(board.read_spare(kPage, 16), std::string(16, '\xff'));
  EXPECT_FALSE(std::filesystem::exists(board.directory + "/media/flash.oob"));
  EXPECT_EQ(board.write_spare(2 * kPage, "spare"), 0);
  EXPECT_EQ(board.file("media/flash.oob"), std::string(32, '\xff') + "spare");
  EXPECT_EQ(board.read_spare(2 * kPage, 7), "spare\xff\xff");
  EXPECT_EQ(board.file("media/flash"), std::string(kSize, '\xff'));
}

TEST(NandModel, spare_bytes_far_from_the_file_s_end_are_preceded_by_blank_ones) {
  Nand board("oob_size = 4096\n",
             "model = mtd\nmedium = flash\nflash = nand\nerase_size = 2048\nwrite_size = 512\n");
  EXPECT_EQ(board.write_spare(3 * kPage, std::string(4096, 'e')), 0);
  EXPECT_EQ(board.file("media/flash.oob"), std::string(12288, '\xff') + std::string(4096, 'e'));
  EXPECT_EQ(board.read_spare(3 * kPage, 4096), std::string(4096, 'e'));
}

TEST(NandModel, spare_bytes_are_programmed_and_erased_with_their_block) {
  Nand board;
  EXPECT_EQ(board.write_spare(kBlock, "\xF0"), 0);
  EXPECT_EQ(board.write_spare(kBlock, "\x3C"), 0);
  EXPECT_EQ(board.read_spare(kBlock, 1), "\x30");
  EXPECT_EQ(board.write_spare(kBlock - kPage, "before"), 0);
  EXPECT_EQ(board.write_spare(2 * kBlock, "after"), 0);
  EXPECT_EQ(board.erase(kBlock, kBlock), 0);
  EXPECT_EQ(board.file("media/flash.oob"), std::string(3 * kSpare, '\xff') + "before" +
                                               std::string(10 + 4 * kSpare, '\xff') + "after");
  // Erasing blank spare bytes leaves the file as long as it is.
  EXPECT_EQ(board.erase(7 * kBlock, kBlock), 0);
  EXPECT_EQ(board.file("media/flash.oob").size(), 8 * kSpare + 5);
}

TEST(NandModel, spare_bytes_are_addressed_by_page_and_place_in_the_page) {
  Nand board;
  EXPECT_EQ(board.write_spare(kPage + 3, "x"), 0);
  EXPECT_EQ(board.file("media/flash.oob"), std::string(kSpare + 3, '\xff') + "x");
  EXPECT_EQ(board.read_spare(kPage + 3, 13), "x" + std::string(12, '\xff'));
  EXPECT_EQ(board.read_spare(kPage + 3, 14), error_text(EINVAL));
  EXPECT_EQ(board.read_spare(kPage + 15, 1), "\xff");
  EXPECT_EQ(board.read_spare(kPage + 16, 1), error_text(EINVAL));
  EXPECT_EQ(board.read_spare(kPage + 17, 1), error_text(EINVAL));
  EXPECT_EQ(board.read_spare(kPage + 16, 0), error_text(EINVAL));
  EXPECT_EQ(board.write_spare(kPage + 3, std::string(14, 'a')), -EINVAL);
  EXPECT_EQ(board.write_spare(kPage + 16, "a"), -EINVAL);
}

TEST(NandModel, reading_spare_bytes_goes_on_with_the_next_page_and_writing_does_not) {
  Nand board;
  EXPECT_EQ(board.write_spare(kPage, "x"), 0);
  EXPECT_EQ(board.read_spare(0, 18), std::string(16, '\xff') + "x\xff");
  EXPECT_EQ(board.write_spare(0, std::string(17, 'a')), -EINVAL);
  EXPECT_EQ(board.write_spare(0, std::string(16, 'a')), 0);
  EXPECT_EQ(board.read_spare(kSize - kPage, 16), std::string(16, '\xff'));
  EXPECT_EQ(board.read_spare(kSize - kPage, 17), error_text(EINVAL));
  EXPECT_EQ(board.read_spare(kSize, 1), error_text(EINVAL));
  EXPECT_EQ(board.read_spare(0, 512), "aaaaaaaaaaaaaaaax" + std::string(495, '\xff'));
  EXPECT_EQ(board.read_spare(0, 513), error_text(EINVAL));
}

TEST(NandModel, a_request_for_spare_bytes_takes_4096_at_most) {
  Nand board("oob_size = 2048\n",
             "model = mtd\nmedium = flash\nflash = nand\nerase_size = 2048\nwrite_size = 512\n");
  EXPECT_EQ(board.read_spare(0, 4096), std::string(4096, '\xff'));
  EXPECT_EQ(board.read_spare(0, 4097), error_text(EINVAL));
  EXPECT_EQ(board.write_spare(0, std::string(4097, 'a')), -EINVAL);
}

TEST(NandModel, spare_bytes_of_protected_and_of_read_only_flash_are_not_written) {
  Nand board("locks = 1\nprotected = 1\n");
  EXPECT_EQ(board.write_spare(0, "x"), -EROFS);
  EXPECT_EQ(board.write_pages(0, std::string(kPage, 'a'), ""), -EROFS);
  board.open_file.flags = O_RDONLY;
  EXPECT_EQ(board.write_spare(0, "x"), -EPERM);
  EXPECT_EQ(board.write_pages(0, std::string(kPage, 'a'), ""), -EPERM);
  EXPECT_EQ(board.read_spare(0, 1), "\xff");
}

TEST(NandModel, flash_without_a_medium_has_no_pages) {
  Nand board;
  board.write_file("dev/node", "model = mtd\nflash = nand\nwrite_size = 512\noob_size = 16\n");
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(board.read_spare(0, 1), error_text(EINVAL));
}

// The older pair returns the number of bytes in different fields, as the kernel does.
TEST(NandModel, older_requests_for_spare_bytes) {
  Nand board;
  unsigned char bytes[] = "spare";
  mtd_oob_buf record = {.start = kPage, .length = 5, .ptr = bytes};
  EXPECT_EQ(board.request(MEMWRITEOOB, record), 0);
  EXPECT_EQ(record.length, 5u);
  EXPECT_EQ(record.start, kPage);
  unsigned char back[9] = "????????";
  record = {.start = kPage, .length = 7, .ptr = back};
  EXPECT_EQ(board.request(MEMREADOOB, record), 0);
  EXPECT_EQ(record.start, 7u);
  EXPECT_EQ(record.length, 7u);
  EXPECT_STREQ(reinterpret_cast<char *>(back), "spare\xff\xff?");
  record = {.start = kSize, .length = 7, .ptr = back};
  EXPECT_EQ(board.request(MEMREADOOB, record), -EINVAL);
  EXPECT_EQ(record.start, kSize);
}

TEST(NandModel, pages_are_written_with_their_spare_bytes) {
  Nand board;
  const std::string spare = std::string(16, '1') + std::string(16, '2');
  EXPECT_EQ(board.write_pages(kPage, std::string(2 * kPage, 'a'), spare, MTD_OPS_RAW), 0);
  EXPECT_EQ(board.file("media/flash").substr(kPage - 1, 2 * kPage + 2),
            "\xff" + std::string(2 * kPage, 'a') + "\xff");
  EXPECT_EQ(board.file("media/flash.oob"), std::string(16, '\xff') + spare);
  // The second page has fewer; a third one is not written.
  EXPECT_EQ(board.write_pages(kBlock, std::string(2 * kPage, 'a'), std::string(20, '3')), 0);
  EXPECT_EQ(board.read_spare(kBlock, 32), std::string(20, '3') + std::string(12, '\xff'));
  EXPECT_EQ(board.write_pages(3 * kBlock, std::string(3 * kPage, 'a'), std::string(16, '5')), 0);
  EXPECT_EQ(board.read_spare(3 * kBlock, 48), std::string(16, '5') + std::string(32, '\xff'));
  EXPECT_EQ(board.write_pages(2 * kBlock, std::string(kPage, 'a'), std::string(20, '4')), 0);
  EXPECT_EQ(board.read_spare(2 * kBlock, 32), std::string(16, '4') + std::string(16, '\xff'));
}

TEST(NandModel, pages_or_spare_bytes_are_written_alone) {
  Nand board;
  EXPECT_EQ(board.write_pages(0, std::string(kPage, 'a'), ""), 0);
  EXPECT_EQ(board.read_spare(0, 1), "\xff");
  EXPECT_EQ(board.write_pages(kPage + 7, "", "spare", MTD_OPS_AUTO_OOB), 0);
  EXPECT_EQ(board.read_spare(kPage, 6), "spare\xff");
  EXPECT_EQ(board.write_pages(0, "", std::string(17, 'x')), -EINVAL);
}

TEST(NandModel, refuses_pages_that_are_none) {
  Nand board("bad_blocks = 1\n");
  const std::string page(kPage, 'a');
  EXPECT_EQ(board.write_pages(1, page, ""), -EINVAL);
  EXPECT_EQ(board.write_pages(0, page + "a", ""), -EINVAL);
  EXPECT_EQ(board.write_pages(kSize, page, ""), -EINVAL);
  EXPECT_EQ(board.write_pages(kSize - kPage, page + page, ""), -EINVAL);
  EXPECT_EQ(board.write_pages(kSize + 1, page, ""), -EINVAL);
  EXPECT_EQ(board.write_pages(0, page, "", 3), -EOPNOTSUPP);
  EXPECT_EQ(board.write_pages(kBlock, page, ""), -EIO);
  EXPECT_EQ(board.write_pages(kBlock, "", "x"), -EIO);
  EXPECT_EQ(board.file("media/flash"), std::string(kSize, '\xff'));
  EXPECT_EQ(board.write_pages(kSize - kPage, page, ""), 0);
}

TEST(NandModel, nor_flash_does_not_write_pages) {
  Nand board("", "model = mtd\nmedium = flash\noob_size = 16\n");
  EXPECT_EQ(board.write_pages(0, std::string(kPage, 'a'), ""), -EOPNOTSUPP);
  EXPECT_EQ(board.write_spare(0, "a"), -EOPNOTSUPP);
}

TEST(NandModel, takes_the_mode_without_error_correction) {
  Nand board;
  auto set_mode = [&board](std::uintptr_t mode) {
    return board.ask(MTDFILEMODE, reinterpret_cast<void *>(mode));
  };
  EXPECT_EQ(set_mode(MTD_FILE_MODE_RAW), 0);
  EXPECT_EQ(set_mode(MTD_FILE_MODE_NORMAL), 0);
  EXPECT_EQ(set_mode(MTD_FILE_MODE_OTP_FACTORY), -EOPNOTSUPP);
  EXPECT_EQ(set_mode(MTD_FILE_MODE_OTP_USER), -EOPNOTSUPP);
  EXPECT_EQ(set_mode(4), -EINVAL);
  Nand nor("", "model = mtd\nmedium = flash\n");
  EXPECT_EQ(nor.ask(MTDFILEMODE, reinterpret_cast<void *>(MTD_FILE_MODE_RAW)), -EOPNOTSUPP);
}
