// What a partition of flash does by itself: its type and sizes, programming, erasing, and the
// blocks that fail.

#ifndef VBOARD_INTERPOSER_MODELS_MTD_CHIP_H
#define VBOARD_INTERPOSER_MODELS_MTD_CHIP_H

#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/model.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vboard {

// What the words of "flash" mean.
struct FlashType {
  std::string_view name;
  std::uint8_t number;
  std::uint32_t flags;
  bool is_nand;    // whole pages are written; blocks may be bad
  bool sets_bits;  // a byte becomes what is written, without erasing
};

const FlashType &type_of(const OpenFile &file);

// In bytes.
std::uint64_t flash_size(const OpenFile &file);
std::uint64_t block_size(const OpenFile &file);
std::uint64_t page_size(const OpenFile &file);
// The spare bytes of a page; 0 for flash that has none.
std::uint64_t spare_size(const OpenFile &file);

bool is_protected(const OpenFile &file);
// Whether the block at an offset is marked bad.
bool is_bad(const OpenFile &file, std::uint64_t offset);
// Whether a list of numbers separated by blanks has this one.
bool is_listed(std::string_view list, std::uint64_t wanted);

// Pages are programmed one after the other, and blocks erased so; each takes its time. Power that
// fails meanwhile leaves the first half of one programmed or erased.

// The time that programming a page takes.
BoardTime program_time(const OpenFile &file);

// The range must be inside the flash. The bytes done, or a negated errno: NOR flash keeps and
// counts what came before an error, NAND keeps it and reports the error.
ssize_t program(OpenFile &file, const UserMemory &from, std::uint64_t at);
// Bytes inside one page, which is one of several: 0, or a negated errno. `done` counts those that
// are programmed.
int program_page(OpenFile &file, const UserMemory &from, std::uint64_t at, Progress progress,
                 std::size_t &done);
// Erases the block that begins at `at`, one of several, with its spare bytes. 0, or a negated
// errno.
int erase_block(OpenFile &file, std::uint64_t at, Progress progress);

}  // namespace vboard

#endif
