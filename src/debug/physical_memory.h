// Arithmetic of the physical memory tool: where a request lies among the pages that have to be
// mapped for it, and one bit of a word.
//
// Physical addresses have 32 bits on every machine that this program runs on: a mapping never
// reaches beyond the last of them, even where the machine has memory there.

#ifndef BENCHRIG_DEBUG_PHYSICAL_MEMORY_H
#define BENCHRIG_DEBUG_PHYSICAL_MEMORY_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

constexpr std::uint64_t kAddressSpace = std::uint64_t{1} << 32;

struct PhysicalSpan {
  std::uint32_t base;    // the first page's address
  std::uint32_t offset;  // of the request in that page
  std::uint64_t length;  // from the base to the request's end; 0 for nothing at a page's start
};

// False when the request reaches beyond the last address. `page` is a power of two.
constexpr bool find_span(std::uint32_t address, std::uint64_t size, std::uint32_t page,
                         PhysicalSpan &out_span) {
  if (size > kAddressSpace - address)
    return false;
  const std::uint32_t offset = address & (page - 1);
  out_span = {.base = address - offset, .offset = offset, .length = offset + size};
  return true;
}

// `size`, or what is left from `address` to the end of the address space.
constexpr std::uint64_t clip_to_address_space(std::uint32_t address, std::uint64_t size) {
  return std::min(size, kAddressSpace - address);
}

constexpr std::uint64_t round_up(std::uint64_t value, std::uint64_t multiple) {
  return (value + multiple - 1) / multiple * multiple;
}

// The word with one bit set or cleared. There is no bit 32 and above: such a number changes
// nothing.
constexpr std::uint32_t with_bit(std::uint32_t word, std::uint32_t bit, std::uint32_t value) {
  if (bit >= 32)
    return word;
  return (word & ~(std::uint32_t{1} << bit)) | value << bit;
}

// Mappings.

struct Mapping {
  unsigned char *start;   // of the first page
  unsigned char *region;  // what was asked for
  std::size_t length;     // as mapped, and so as unmapped
  std::size_t readable;   // bytes from the region to the end of the last page
  std::uint64_t asked;    // from the first page to the region's end
};

// These return false when the kernel refuses and when the region reaches beyond the last address.
// A region of no bytes has one page mapped, so that an operation on it succeeds.
bool map_region(int device, std::uint32_t address, std::uint64_t size, Mapping &out_mapping);

// For a dump, which shows whole rows: when the last row runs into a further page, that page is
// mapped too, if it can be.
bool map_rows(int device, std::uint32_t address, std::uint32_t length, Mapping &out_mapping);

// For one word: 256 bytes, but not beyond the last address.
bool map_word(int device, std::uint32_t address, Mapping &out_mapping);

int mem_unmap(const Mapping &mapping);

#endif
