// /dev/mtdN: a partition of NOR flash, as the kernel's MTD character device shows it. Programming
// clears bits only; erasing sets whole blocks to FF. The medium is the flash, byte for byte.
//
//   erase_size   bytes of an erase block (4096)
//   write_size   bytes of the smallest write (1)
//   locks        1: the chip has a protection bit, for all of the partition; without it MEMLOCK and
//                MEMUNLOCK are EOPNOTSUPP
//   protected    that bit: 1 refuses programming and erasing (EROFS)
//   worn_block   a block that does not erase any more (EIO), counted from 0

#include "vboard/base/kernel.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <mtd/mtd-user.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

namespace vboard {
namespace {

static_assert(MEMGETINFO == 0x80204D01 && sizeof(mtd_info_user) == 32 &&
              sizeof(erase_info_user) == 8);

constexpr std::int64_t kDefaultEraseSize = 4096;

std::int64_t erase_size_of(const OpenFile &file) {
  const std::int64_t size = node_number(file.node, "erase_size", kDefaultEraseSize);
  return size >= 256 && size <= (1 << 24) ? size : kDefaultEraseSize;
}

bool is_protected(const OpenFile &file) {
  return node_number(file.node, "locks", 0) != 0 && node_number(file.node, "protected", 0) != 0;
}

ssize_t mtd_write(OpenFile &file, const void *buffer, std::size_t size) {
  if (is_protected(file))
    return -EROFS;
  const std::int64_t at = sys_lseek(file.fd, 0, SEEK_CUR);
  const std::int64_t flash = sys_size(file.fd);
  if (at < 0 || flash < 0)
    return -EIO;
  if (at >= flash)
    return size == 0 ? 0 : -ENOSPC;

  const unsigned char *bytes = static_cast<const unsigned char *>(buffer);
  const std::size_t left = std::min(size, static_cast<std::size_t>(flash - at));
  std::size_t done = 0;
  while (done < left) {
    unsigned char page[512];
    const std::size_t piece = std::min(left - done, sizeof page);
    const std::int64_t offset = at + static_cast<std::int64_t>(done);
    if (const int error = read_medium(file, page, piece, offset))
      return error;
    for (std::size_t i = 0; i < piece; ++i)
      page[i] = static_cast<unsigned char>(page[i] & bytes[done + i]);
    if (const int error = write_medium(file, page, piece, offset))
      return error;
    done += piece;
  }
  sys_lseek(file.fd, at + static_cast<std::int64_t>(done), SEEK_SET);
  return static_cast<ssize_t>(done);
}

int erase(OpenFile &file, std::uint64_t start, std::uint64_t length) {
  if (is_protected(file))
    return -EROFS;
  const std::uint64_t block = static_cast<std::uint64_t>(erase_size_of(file));
  const std::uint64_t flash =
      static_cast<std::uint64_t>(std::max<std::int64_t>(0, sys_size(file.fd)));
  if (length == 0 || start % block != 0 || length % block != 0 || start > flash ||
      length > flash - start)
    return -EINVAL;
  const std::int64_t worn = node_number(file.node, "worn_block", -1);
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

int set_protection(OpenFile &file, const erase_info_user &range, int on) {
  const std::uint64_t flash =
      static_cast<std::uint64_t>(std::max<std::int64_t>(0, sys_size(file.fd)));
  if (std::uint64_t{range.start} + range.length > flash)
    return -EINVAL;
  if (node_number(file.node, "locks", 0) == 0)
    return -EOPNOTSUPP;
  return store_number(file, "protected", on);
}

mtd_info_user info(const OpenFile &file) {
  mtd_info_user out = {};
  out.type = MTD_NORFLASH;
  out.flags = MTD_CAP_NORFLASH;
  out.size = static_cast<std::uint32_t>(sys_size(file.fd));
  out.erasesize = static_cast<std::uint32_t>(erase_size_of(file));
  out.writesize = static_cast<std::uint32_t>(node_number(file.node, "write_size", 1));
  return out;
}

// NOR flash has no bad blocks: none is bad, and none can be marked.
int bad_block(const OpenFile &file, const void *argument, int answer) {
  std::int64_t offset;
  memcpy(&offset, argument, sizeof offset);
  return offset < 0 || offset >= sys_size(file.fd) ? -EINVAL : answer;
}

int mtd_ioctl(OpenFile &file, std::uint32_t request, void *argument) {
  erase_info_user range;
  erase_info_user64 long_range;
  switch (request) {
    case MEMGETINFO: {
      mtd_info_user out = info(file);
      memcpy(argument, &out, sizeof out);
      return 0;
    }
    case MEMERASE:
      memcpy(&range, argument, sizeof range);
      return erase(file, range.start, range.length);
    case MEMERASE64:
      memcpy(&long_range, argument, sizeof long_range);
      return erase(file, long_range.start, long_range.length);
    case MEMLOCK:
    case MEMUNLOCK:
      memcpy(&range, argument, sizeof range);
      return set_protection(file, range, request == MEMLOCK);
    case MEMISLOCKED:
      return node_number(file.node, "locks", 0) == 0 ? -EOPNOTSUPP : is_protected(file);
    case MEMGETREGIONCOUNT:
      // One kind of erase block, and so no regions.
      memset(argument, 0, sizeof(int));
      return 0;
    case MEMGETBADBLOCK:
      return bad_block(file, argument, 0);
    case MEMSETBADBLOCK:
      return bad_block(file, argument, -EOPNOTSUPP);
    default:
      return -ENOTTY;
  }
}

using enum Direction;

// clang-format off
constexpr Request kRequests[] = {
    {.number = MEMGETINFO,        .name = "MEMGETINFO",        .size = 32, .direction = kOut},
    {.number = MEMERASE,          .name = "MEMERASE",          .size = 8,  .direction = kIn},
    {.number = MEMERASE64,        .name = "MEMERASE64",        .size = 16, .direction = kIn},
    {.number = MEMLOCK,           .name = "MEMLOCK",           .size = 8,  .direction = kIn},
    {.number = MEMUNLOCK,         .name = "MEMUNLOCK",         .size = 8,  .direction = kIn},
    {.number = MEMISLOCKED,       .name = "MEMISLOCKED",       .size = 8,  .direction = kIn},
    {.number = MEMGETREGIONCOUNT, .name = "MEMGETREGIONCOUNT", .size = 4,  .direction = kOut},
    {.number = MEMGETBADBLOCK,    .name = "MEMGETBADBLOCK",    .size = 8,  .direction = kIn},
    {.number = MEMSETBADBLOCK,    .name = "MEMSETBADBLOCK",    .size = 8,  .direction = kIn},
};
// clang-format on

}  // namespace

extern constexpr Model kMtdModel = {
    .name = "mtd",
    .requests = kRequests,
    .medium_size = 64 << 10,
    .medium_fill = 0xFF,
    .open = nullptr,
    .close = nullptr,
    .read = nullptr,
    .write = mtd_write,
    .ioctl = mtd_ioctl,
    .readable_at = nullptr,
};

}  // namespace vboard
