// /dev/mtdN: a partition of NOR flash, as the kernel's MTD character device shows it. Programming
// clears bits only; erasing sets whole blocks to FF. The medium is the flash, byte for byte.

#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
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

constexpr Setting kSettings[] = {
    {.key = "erase_size",
     .kind = kNumber,
     .otherwise = "4096",
     .help = "bytes of an erase block",
     .least = 256,
     .most = 1 << 24},
    {.key = "write_size",
     .kind = kNumber,
     .otherwise = "1",
     .help = "bytes of the smallest write",
     .least = 1,
     .most = 1 << 24},
    {.key = "locks",
     .kind = kFlag,
     .otherwise = "0",
     .help = "1: the chip has a protection bit, for all of the partition"},
    {.key = "protected",
     .kind = kFlag,
     .otherwise = "0",
     .help = "that bit: 1 refuses programming and erasing (EROFS)"},
    {.key = "worn_block",
     .kind = kNumber,
     .otherwise = "-1",
     .help = "a block, counted from 0, that does not erase any more (EIO)",
     .least = -1},
};

bool is_protected(const OpenFile &file) {
  return setting_is_on(file, "locks") && setting_is_on(file, "protected");
}

std::uint64_t flash_size(const OpenFile &file) {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(0, medium_size(file)));
}

ssize_t mtd_write(OpenFile &file, const UserMemory &from, std::int64_t at) {
  if (is_protected(file))
    return -EROFS;
  const std::int64_t flash = medium_size(file);
  if (at >= flash)
    return from.size == 0 ? 0 : -ENOSPC;

  const std::size_t left = std::min(from.size, static_cast<std::size_t>(flash - at));
  std::size_t done = 0;
  while (done < left) {
    unsigned char page[512];
    unsigned char bytes[sizeof page];
    const std::size_t piece = std::min(left - done, sizeof page);
    const std::int64_t offset = at + static_cast<std::int64_t>(done);
    int error = copy_in(bytes, from.address + done, piece);
    if (error == 0)
      error = read_medium(file, page, piece, offset);
    for (std::size_t i = 0; i < piece; ++i)
      page[i] = static_cast<unsigned char>(page[i] & bytes[i]);
    if (error == 0)
      error = write_medium(file, page, piece, offset);
    if (error < 0)
      return done > 0 ? static_cast<ssize_t>(done) : error;
    done += piece;
  }
  return static_cast<ssize_t>(done);
}

int erase(OpenFile &file, std::uint64_t start, std::uint64_t length) {
  if (is_protected(file))
    return -EROFS;
  const std::uint64_t block = static_cast<std::uint64_t>(setting_number(file, "erase_size"));
  const std::uint64_t flash = flash_size(file);
  if (length == 0 || start % block != 0 || length % block != 0 || start > flash ||
      length > flash - start)
    return -EINVAL;
  const std::int64_t worn = setting_number(file, "worn_block");
  unsigned char page[256];
  memset(page, 0xFF, sizeof page);
  for (std::uint64_t at = start; at < start + length; at += block) {
    if (worn >= 0 && at / block == static_cast<std::uint64_t>(worn))
      return -EIO;
    for (std::uint64_t in_block = 0; in_block < block; in_block += sizeof page) {
      const std::size_t piece =
          static_cast<std::size_t>(std::min<std::uint64_t>(sizeof page, block - in_block));
      if (const int error =
              write_medium(file, page, piece, static_cast<std::int64_t>(at + in_block)))
        return error;
    }
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
  out.type = MTD_NORFLASH;
  out.flags = MTD_CAP_NORFLASH;
  out.size = static_cast<std::uint32_t>(flash_size(file));
  out.erasesize = static_cast<std::uint32_t>(setting_number(file, "erase_size"));
  out.writesize = static_cast<std::uint32_t>(setting_number(file, "write_size"));
  return 0;
}

// One kind of erase block, and so no regions.
int count_regions(OpenFile &, int &out) {
  out = 0;
  return 0;
}

// NOR flash has no bad blocks: none is bad, and none can be marked.
bool is_in_flash(const OpenFile &file, std::int64_t offset) {
  return offset >= 0 && offset < medium_size(file);
}

int ask_bad_block(OpenFile &file, std::int64_t &offset) {
  return is_in_flash(file, offset) ? 0 : -EINVAL;
}

int mark_bad_block(OpenFile &file, std::int64_t &offset) {
  return is_in_flash(file, offset) ? -EOPNOTSUPP : -EINVAL;
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
    .write = mtd_write,
};

}  // namespace vboard
