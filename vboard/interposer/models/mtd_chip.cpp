#include "vboard/interposer/models/mtd_chip.h"

#include "vboard/base/text.h"
#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/mtd_spare.h"

#include <errno.h>
#include <mtd/mtd-user.h>
#include <string.h>

#include <algorithm>

namespace vboard {
namespace {

constexpr std::size_t kPiece = 512;  // bytes that are programmed at a time

// Pages of flash that takes single bytes.
constexpr std::uint64_t kSerialPage = 256;

constexpr BoardTime kMicrosecond = 1000;
constexpr BoardTime kMillisecond = 1'000'000;

constexpr FlashType kTypes[] = {
    {"nor", MTD_NORFLASH, MTD_CAP_NORFLASH, false, false},
    {"nand", MTD_NANDFLASH, MTD_CAP_NANDFLASH, true, false},
    {"mlc-nand", MTD_MLCNANDFLASH, MTD_CAP_NANDFLASH, true, false},
    // The driver erases each page that it writes, and fills up a part of one by itself.
    {"dataflash", MTD_DATAFLASH, MTD_WRITEABLE, false, true},
    {"ram", MTD_RAM, MTD_CAP_RAM, false, true},
};

bool is_worn(const OpenFile &file, std::uint64_t offset) {
  const std::uint64_t block = offset / block_size(file);
  return is_listed(setting_text(file, "worn_blocks"), block) ||
         setting_number(file, "worn_block") == static_cast<std::int64_t>(block);
}

// Programs bytes inside one block, kPiece at most.
int program_piece(OpenFile &file, const UserMemory &from, std::uint64_t at) {
  unsigned char page[kPiece];
  unsigned char bytes[sizeof page];
  const std::int64_t offset = static_cast<std::int64_t>(at);
  if (const int error = copy_in(bytes, from.address, from.size))
    return error;
  if (is_bad(file, at))
    return -EIO;
  if (const int error = read_medium(file, page, from.size, offset))
    return error;
  const bool sets_bits = type_of(file).sets_bits;
  for (std::size_t i = 0; i < from.size; ++i)
    page[i] = static_cast<unsigned char>(sets_bits ? bytes[i] : page[i] & bytes[i]);
  return write_medium(file, page, from.size, offset);
}

// Programs bytes and counts them in `done`.
int program_bytes(OpenFile &file, const UserMemory &from, std::uint64_t at, std::size_t &done) {
  const std::uint64_t block = block_size(file);
  const bool is_nand = type_of(file).is_nand;
  for (std::size_t begin = 0; begin < from.size;) {
    const std::uint64_t offset = at + begin;
    std::uint64_t piece = std::min<std::uint64_t>(from.size - begin, kPiece);
    if (is_nand)
      piece = std::min(piece, block - offset % block);
    const std::size_t size = static_cast<std::size_t>(piece);
    if (const int error = program_piece(file, {from.address + begin, size}, offset))
      return error;
    begin += size;
    done += size;
  }
  return 0;
}

// The bytes that the chip programs at a time.
std::uint64_t program_size(const OpenFile &file) {
  return type_of(file).is_nand ? page_size(file) : std::max(page_size(file), kSerialPage);
}

int erase_bytes(OpenFile &file, std::uint64_t at, std::uint64_t size) {
  unsigned char page[256];
  memset(page, 0xFF, sizeof page);
  for (std::uint64_t done = 0; done < size; done += sizeof page) {
    const std::size_t piece =
        static_cast<std::size_t>(std::min<std::uint64_t>(sizeof page, size - done));
    if (const int error = write_medium(file, page, piece, static_cast<std::int64_t>(at + done)))
      return error;
  }
  return 0;
}

}  // namespace

const FlashType &type_of(const OpenFile &file) {
  const std::string_view name = setting_text(file, "flash");
  for (const FlashType &type : kTypes) {
    if (type.name == name)
      return type;
  }
  return kTypes[0];
}

bool is_protected(const OpenFile &file) {
  return setting_is_on(file, "locks") && setting_is_on(file, "protected");
}

std::uint64_t flash_size(const OpenFile &file) {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(0, medium_size(file)));
}

std::uint64_t block_size(const OpenFile &file) {
  return static_cast<std::uint64_t>(setting_number(file, "erase_size"));
}

std::uint64_t page_size(const OpenFile &file) {
  return static_cast<std::uint64_t>(setting_number(file, "write_size"));
}

std::uint64_t spare_size(const OpenFile &file) {
  return type_of(file).is_nand ? static_cast<std::uint64_t>(setting_number(file, "oob_size")) : 0;
}

bool is_bad(const OpenFile &file, std::uint64_t offset) {
  return type_of(file).is_nand &&
         is_listed(setting_text(file, "bad_blocks"), offset / block_size(file));
}

ssize_t program(OpenFile &file, const UserMemory &from, std::uint64_t at) {
  const std::uint64_t page = program_size(file);
  Progress progress = {.done = 0, .all = (at % page + from.size + page - 1) / page};
  std::size_t done = 0;
  for (; done < from.size; ++progress.done) {
    const std::uint64_t offset = at + done;
    const std::size_t piece =
        static_cast<std::size_t>(std::min<std::uint64_t>(from.size - done, page - offset % page));
    const int error = program_page(file, {from.address + done, piece}, offset, progress, done);
    if (error < 0)
      return done > 0 && !type_of(file).is_nand ? static_cast<ssize_t>(done) : error;
  }
  return static_cast<ssize_t>(done);
}

BoardTime program_time(const OpenFile &file) {
  return setting_number(file, "page_us") * kMicrosecond;
}

int program_page(OpenFile &file, const UserMemory &from, std::uint64_t at, Progress progress,
                 std::size_t &done) {
  const std::size_t half = from.size / 2;
  if (const int error = program_bytes(file, {from.address, half}, at, done))
    return error;
  take_time(file, program_time(file), progress);
  return program_bytes(file, {from.address + half, from.size - half}, at + half, done);
}

bool is_listed(std::string_view list, std::uint64_t wanted) {
  for (std::string_view word = take_word(list); !word.empty(); word = take_word(list)) {
    std::int64_t number;
    if (parse_number(word, number) && static_cast<std::uint64_t>(number) == wanted)
      return true;
  }
  return false;
}

int erase_block(OpenFile &file, std::uint64_t at, Progress progress) {
  if (is_bad(file, at))
    return -EIO;
  const std::uint64_t block = block_size(file);
  const std::uint64_t half = block / 2;
  const bool worn = is_worn(file, at);
  if (!worn) {
    if (const int error = erase_bytes(file, at, half))
      return error;
  }
  take_time(file, setting_number(file, "erase_ms") * kMillisecond, progress);
  if (worn)
    return -EIO;
  if (const int error = erase_bytes(file, at + half, block - half))
    return error;
  const std::uint64_t spare = spare_size(file);
  return spare == 0
             ? 0
             : erase_spare(file, block / page_size(file) * spare, at / page_size(file) * spare);
}

}  // namespace vboard
