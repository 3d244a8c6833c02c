// /dev/mtdN: a partition of flash, as the kernel's MTD character device shows it. Programming
// clears bits only; erasing sets whole blocks to FF. The medium is the flash, byte for byte,
// without the spare bytes of NAND (mtd_spare.h).

#include "vboard/base/text.h"
#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/models.h"
#include "vboard/interposer/models/mtd_chip.h"
#include "vboard/interposer/models/mtd_spare.h"

#include <errno.h>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <string.h>
#include <sys/ioctl.h>

#include <algorithm>

namespace vboard {
namespace {

using enum Direction;
using enum SettingKind;

static_assert(MEMGETINFO == 0x80204D01 && sizeof(mtd_info_user) == 32 &&
              sizeof(erase_info_user) == 8);
// A program and its interposer have pointers of the same size.
static_assert(sizeof(mtd_oob_buf) == 8 + sizeof(void *) && sizeof(mtd_oob_buf64) == 24 &&
              sizeof(mtd_write_req) == 48 && sizeof(mtd_ecc_stats) == 16 &&
              sizeof(nand_ecclayout_user) == 328);

constexpr std::int64_t kMostSpare = 4096;  // bytes that one request for spare bytes may move

constexpr std::int64_t kMostTime = 1'000'000'000;  // of erase_ms and page_us

constexpr Setting kSettings[] = {
    // "type" is what stat() shows the node as.
    {.key = "flash",
     .kind = kWord,
     .otherwise = "nor",
     .help = "what it is",
     .words = "nor nand mlc-nand dataflash ram"},
    {.key = "erase_size",
     .kind = kNumber,
     .otherwise = "4096",
     .help = "bytes of an erase block",
     .least = 256,
     .most = 1 << 24},
    {.key = "write_size",
     .kind = kNumber,
     .otherwise = "1",
     .help = "bytes of the smallest write; of NAND, the page",
     .least = 1,
     .most = 1 << 24},
    {.key = "oob_size",
     .kind = kNumber,
     .otherwise = "0",
     .help = "spare bytes of a page of NAND, in the medium's name with .oob",
     .most = kMostSpare},
    {.key = "locks",
     .kind = kFlag,
     .otherwise = "0",
     .help = "1: the chip has a protection bit, for all of the partition"},
    {.key = "protected",
     .kind = kFlag,
     .otherwise = "0",
     .help = "that bit: 1 refuses programming and erasing (EROFS)"},
    {.key = "bad_blocks",
     .kind = kText,
     .otherwise = "",
     .help = "blocks of NAND, counted from 0, that are marked bad: no writing, no erasing (EIO)"},
    {.key = "worn_blocks",
     .kind = kText,
     .otherwise = "",
     .help = "blocks, counted from 0, that do not erase any more (EIO)"},
    {.key = "worn_block",
     .kind = kNumber,
     .otherwise = "-1",
     .help = "one more of them",
     .least = -1},
    {.key = "erase_ms",
     .kind = kNumber,
     .otherwise = "0",
     .help = "board milliseconds that erasing a block takes",
     .most = kMostTime},
    {.key = "page_us",
     .kind = kNumber,
     .otherwise = "0",
     .help = "board microseconds that programming a page takes; without pages, 256 bytes",
     .most = kMostTime},
};

bool is_for_writing(const OpenFile &file) {
  return (file.flags & O_ACCMODE) != O_RDONLY;
}

ssize_t mtd_write(OpenFile &file, const UserMemory &from, std::int64_t at) {
  if (is_protected(file))
    return -EROFS;
  const std::int64_t flash = medium_size(file);
  if (at >= flash)
    return from.size == 0 ? 0 : -ENOSPC;

  const std::size_t size = std::min(from.size, static_cast<std::size_t>(flash - at));
  const std::uint64_t offset = static_cast<std::uint64_t>(at);
  if (type_of(file).is_nand && (offset % page_size(file) != 0 || size % page_size(file) != 0))
    return -EINVAL;
  return program(file, {from.address, size}, offset);
}

int erase(OpenFile &file, std::uint64_t start, std::uint64_t length) {
  if (is_protected(file))
    return -EROFS;
  const std::uint64_t block = block_size(file);
  const std::uint64_t flash = flash_size(file);
  if (length == 0 || start % block != 0 || length % block != 0 || start > flash ||
      length > flash - start)
    return -EINVAL;
  Progress progress = {.done = 0, .all = length / block};
  for (; progress.done < progress.all; ++progress.done) {
    if (const int error = erase_block(file, start + progress.done * block, progress))
      return error;
  }
  return 0;
}

int erase_range(OpenFile &file, erase_info_user &range) {
  return erase(file, range.start, range.length);
}

int erase_long_range(OpenFile &file, erase_info_user64 &range) {
  return erase(file, range.start, range.length);
}

int set_protection(OpenFile &file, const erase_info_user &range, int on) {
  if (std::uint64_t{range.start} + range.length > flash_size(file))
    return -EINVAL;
  if (!setting_is_on(file, "locks"))
    return -EOPNOTSUPP;
  return store_number(file, "protected", on);
}

int protect(OpenFile &file, erase_info_user &range) {
  return set_protection(file, range, 1);
}

int unprotect(OpenFile &file, erase_info_user &range) {
  return set_protection(file, range, 0);
}

int ask_protection(OpenFile &file, erase_info_user &) {
  return setting_is_on(file, "locks") ? is_protected(file) : -EOPNOTSUPP;
}

int get_info(OpenFile &file, mtd_info_user &out) {
  const FlashType &type = type_of(file);
  out.type = type.number;
  out.flags = type.flags;
  out.size = static_cast<std::uint32_t>(flash_size(file));
  out.erasesize = static_cast<std::uint32_t>(setting_number(file, "erase_size"));
  out.writesize = static_cast<std::uint32_t>(setting_number(file, "write_size"));
  out.oobsize = static_cast<std::uint32_t>(spare_size(file));
  return 0;
}

// One kind of erase block, and so no regions.
int count_regions(OpenFile &, int &out) {
  out = 0;
  return 0;
}

// Bad blocks. Only NAND has any: of other flash no block is bad, and none can be marked.

bool is_in_flash(const OpenFile &file, std::int64_t offset) {
  return offset >= 0 && offset < medium_size(file);
}

int ask_bad_block(OpenFile &file, std::int64_t &offset) {
  return is_in_flash(file, offset) ? is_bad(file, static_cast<std::uint64_t>(offset)) : -EINVAL;
}

struct BadBlock {
  std::uint64_t number;
  bool fits;
};

// Another process may have marked a block since: the list that counts is that of `node`.
void add_bad_block(Node &node, void *context) {
  BadBlock &block = *static_cast<BadBlock *>(context);
  const std::string_view list = node_text(node, "bad_blocks");
  if (is_listed(list, block.number))
    return;
  FixedText<sizeof node.text> longer;
  append_text(longer, list, list.empty() ? "" : " ");
  append_decimal(longer, static_cast<std::int64_t>(block.number));
  block.fits = !longer.overflow && set_node_text(node, "bad_blocks", longer.view()) && block.fits;
}

int mark_bad_block(OpenFile &file, std::int64_t &offset) {
  if (!is_in_flash(file, offset))
    return -EINVAL;
  if (!type_of(file).is_nand)
    return -EOPNOTSUPP;
  if (!is_for_writing(file))
    return -EPERM;
  BadBlock block = {static_cast<std::uint64_t>(offset) / block_size(file), true};
  const int result = change_settings(file, add_bad_block, &block);
  return result == 0 && !block.fits ? -E2BIG : result;
}

// Nothing is ever corrected: what the medium holds is what is read.
int get_statistics(OpenFile &file, mtd_ecc_stats &out) {
  const std::uint64_t flash = flash_size(file);
  for (std::uint64_t at = 0; at < flash; at += block_size(file))
    out.badblocks += is_bad(file, at);
  return 0;
}

// Spare bytes.

// Where the spare bytes of `start` are: those of its page, and in these as far in as `start` is in
// the page. `length` may reach into the following pages.
int find_spare(const OpenFile &file, std::uint64_t start, std::uint64_t length,
               std::uint64_t &out) {
  const std::uint64_t spare = spare_size(file);
  if (spare == 0)
    return -EOPNOTSUPP;
  const std::uint64_t page = start / page_size(file);
  const std::uint64_t pages = flash_size(file) / page_size(file);
  const std::uint64_t in_page = start % page_size(file);
  if (page >= pages || in_page >= spare || (in_page > 0 && length > spare - in_page) ||
      length > (pages - page) * spare)
    return -EINVAL;
  out = page * spare + in_page;
  return 0;
}

int read_spare_of(OpenFile &file, std::uint64_t start, std::uint32_t length, std::uint64_t to) {
  unsigned char bytes[kMostSpare];
  if (length > sizeof bytes)
    return -EINVAL;
  std::uint64_t offset;
  int error = find_spare(file, start, length, offset);
  if (error == 0)
    error = read_spare(file, {bytes, length}, offset);
  return error < 0 ? error : copy_out(to, bytes, length);
}

// `alone`: without the page that they belong to, so that it takes a page's time. Power that fails
// meanwhile leaves them as they were.
int write_spare_of(OpenFile &file, std::uint64_t start, std::uint32_t length, std::uint64_t from,
                   bool alone) {
  unsigned char bytes[kMostSpare];
  if (!is_for_writing(file))
    return -EPERM;
  if (length > sizeof bytes)
    return -EINVAL;
  std::uint64_t offset;
  if (const int error = find_spare(file, start, length, offset))
    return error;
  // Reading goes on with the next page, writing does not.
  if (length > spare_size(file))
    return -EINVAL;
  if (is_protected(file))
    return -EROFS;
  if (is_bad(file, start))
    return -EIO;
  if (const int error = copy_in(bytes, from, length))
    return error;
  if (alone)
    take_time(file, program_time(file));
  return program_spare(file, {bytes, length}, offset);
}

std::uint64_t address_of(const unsigned char *pointer) {
  return reinterpret_cast<std::uintptr_t>(pointer);
}

// The number of bytes comes back in `start`, and for the other three requests in `length`.
int read_spare_bytes(OpenFile &file, mtd_oob_buf &record) {
  const int error = read_spare_of(file, record.start, record.length, address_of(record.ptr));
  if (error == 0)
    record.start = record.length;
  return error;
}

int write_spare_bytes(OpenFile &file, mtd_oob_buf &record) {
  return write_spare_of(file, record.start, record.length, address_of(record.ptr), true);
}

int read_spare_bytes_64(OpenFile &file, mtd_oob_buf64 &record) {
  return read_spare_of(file, record.start, record.length, record.usr_ptr);
}

int write_spare_bytes_64(OpenFile &file, mtd_oob_buf64 &record) {
  return write_spare_of(file, record.start, record.length, record.usr_ptr, true);
}

// Each page from `start` on, and then its spare bytes. There may be spare bytes for fewer pages;
// those for more are ignored.
int write_whole_pages(OpenFile &file, const mtd_write_req &record, std::uint64_t length,
                      std::uint64_t spare_length) {
  const std::uint64_t page = page_size(file);
  const std::uint64_t spare = spare_size(file);
  Progress progress = {.done = 0, .all = length / page};
  for (; progress.done < progress.all; ++progress.done) {
    const std::uint64_t data = progress.done * page;
    std::size_t count = 0;
    if (const int error =
            program_page(file, {record.usr_data + data, static_cast<std::size_t>(page)},
                         record.start + data, progress, count))
      return error;
    const std::uint64_t before = progress.done * spare;
    if (before >= spare_length)
      continue;
    const std::uint32_t rest = static_cast<std::uint32_t>(std::min(spare, spare_length - before));
    if (const int error =
            write_spare_of(file, record.start + data, rest, record.usr_oob + before, false))
      return error;
  }
  return 0;
}

// Pages with their spare bytes, pages without, or the spare bytes of one page. All modes are one
// here: no spare byte holds a checksum, so that every one is free.
int write_pages(OpenFile &file, mtd_write_req &record) {
  if (!is_for_writing(file))
    return -EPERM;
  const std::uint64_t spare = spare_size(file);
  if (spare == 0 || record.mode > MTD_OPS_RAW)
    return -EOPNOTSUPP;
  const std::uint64_t length = record.usr_data != 0 ? record.len & UINT32_MAX : 0;
  const std::uint64_t spare_length = record.usr_oob != 0 ? record.ooblen & UINT32_MAX : 0;
  const std::uint64_t flash = flash_size(file);
  if (record.start > flash || length > flash - record.start)
    return -EINVAL;
  const std::uint64_t page = page_size(file);
  if (length == 0)
    return spare_length > spare
               ? -EINVAL
               : write_spare_of(file, record.start - record.start % page,
                                static_cast<std::uint32_t>(spare_length), record.usr_oob, true);
  if (is_protected(file))
    return -EROFS;
  if (record.start % page != 0 || length % page != 0)
    return -EINVAL;
  return write_whole_pages(file, record, length, spare_length);
}

// Deprecated, and still how tools learn how many spare bytes are free: all of them.
int get_layout(OpenFile &file, nand_ecclayout_user &out) {
  const std::uint32_t spare = static_cast<std::uint32_t>(spare_size(file));
  if (spare == 0)
    return -EOPNOTSUPP;
  out.oobavail = spare;
  out.oobfree[0].length = spare;
  return 0;
}

// Reading without error correction is reading: the mode is taken and changes nothing.
int set_mode(OpenFile &file, Argument &argument) {
  switch (argument.address) {
    case MTD_FILE_MODE_NORMAL:
      return 0;
    case MTD_FILE_MODE_RAW:
      return spare_size(file) > 0 ? 0 : -EOPNOTSUPP;
    case MTD_FILE_MODE_OTP_FACTORY:
    case MTD_FILE_MODE_OTP_USER:
      return -EOPNOTSUPP;
    default:
      return -EINVAL;
  }
}

// clang-format off
constexpr Request kRequests[] = {
    {.number = MEMGETINFO,        .name = "MEMGETINFO",        .direction = kOut, .handler = answers<get_info>},
    {.number = MEMERASE,          .name = "MEMERASE",          .direction = kIn,  .handler = answers<erase_range>},
    {.number = MEMERASE64,        .name = "MEMERASE64",        .direction = kIn,  .handler = answers<erase_long_range>},
    {.number = MEMLOCK,           .name = "MEMLOCK",           .direction = kIn,  .handler = answers<protect>},
    {.number = MEMUNLOCK,         .name = "MEMUNLOCK",         .direction = kIn,  .handler = answers<unprotect>},
    {.number = MEMISLOCKED,       .name = "MEMISLOCKED",       .direction = kIn,  .handler = answers<ask_protection>},
    {.number = MEMGETREGIONCOUNT, .name = "MEMGETREGIONCOUNT", .direction = kOut, .handler = answers<count_regions>},
    {.number = MEMGETBADBLOCK,    .name = "MEMGETBADBLOCK",    .direction = kIn,  .handler = answers<ask_bad_block>},
    {.number = MEMSETBADBLOCK,    .name = "MEMSETBADBLOCK",    .direction = kIn,  .handler = answers<mark_bad_block>},
    {.number = ECCGETLAYOUT,      .name = "ECCGETLAYOUT",      .direction = kOut, .handler = answers<get_layout>},
    {.number = ECCGETSTATS,       .name = "ECCGETSTATS",       .direction = kOut, .handler = answers<get_statistics>},
    {.number = MTDFILEMODE,       .name = "MTDFILEMODE",       .direction = kNone, .handler = answers<set_mode>},
    // These hold addresses.
    {.number = MEMREADOOB,        .name = "MEMREADOOB",        .direction = kInOut, .handler = answers<read_spare_bytes>, .traced = false},
    {.number = MEMWRITEOOB,       .name = "MEMWRITEOOB",       .direction = kInOut, .handler = answers<write_spare_bytes>, .traced = false},
    {.number = MEMREADOOB64,      .name = "MEMREADOOB64",      .direction = kInOut, .handler = answers<read_spare_bytes_64>, .traced = false},
    {.number = MEMWRITEOOB64,     .name = "MEMWRITEOOB64",     .direction = kInOut, .handler = answers<write_spare_bytes_64>, .traced = false},
    {.number = MEMWRITE,          .name = "MEMWRITE",          .direction = kIn,  .handler = answers<write_pages>, .traced = false},
};
// clang-format on

}  // namespace

extern constexpr Model kMtdModel = {
    .name = "mtd",
    .settings = kSettings,
    .requests = kRequests,
    .medium_size = 64 << 10,
    .medium_fill = 0xFF,
    .medium_is_stream = true,
    .writes_in_pieces = true,
    .write = mtd_write,
};

}  // namespace vboard
