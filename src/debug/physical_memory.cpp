// Mappings of physical memory.

#include "debug/physical_memory.h"

#include "debug/memory_dump.h"

#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr std::uint64_t kWordSpan = 256;

std::uint32_t page_size() {
  return static_cast<std::uint32_t>(sysconf(_SC_PAGESIZE));
}

// Null when the kernel refuses, and for a length that no pointer of this machine can span.
unsigned char *mem_map_phys(int device, std::uint64_t length, std::uint32_t base) {
  if (length > SIZE_MAX)
    return nullptr;
  void *start = mmap(nullptr, static_cast<std::size_t>(length), PROT_READ | PROT_WRITE, MAP_SHARED,
                     device, static_cast<off_t>(base));
  return start == MAP_FAILED ? nullptr : static_cast<unsigned char *>(start);
}

bool map_span(int device, const PhysicalSpan &span, std::uint64_t length, Mapping &out_mapping) {
  length = length != 0 ? length : page_size();
  unsigned char *start = mem_map_phys(device, length, span.base);
  if (start == nullptr)
    return false;
  out_mapping = {
      .start = start,
      .region = start + span.offset,
      .length = static_cast<std::size_t>(length),
      .readable = static_cast<std::size_t>(round_up(length, page_size()) - span.offset),
      .asked = span.length,
  };
  return true;
}

}  // namespace

bool map_region(int device, std::uint32_t address, std::uint64_t size, Mapping &out_mapping) {
  PhysicalSpan span;
  return find_span(address, size, page_size(), span) &&
         map_span(device, span, span.length, out_mapping);
}

bool map_rows(int device, std::uint32_t address, std::uint32_t length, Mapping &out_mapping) {
  PhysicalSpan span;
  if (!find_span(address, length, page_size(), span))
    return false;
  const std::uint64_t rows =
      span.offset + clip_to_address_space(address, round_up(length, kDumpRow));
  if (rows > round_up(span.length, page_size()) && map_span(device, span, rows, out_mapping))
    return true;
  return map_span(device, span, span.length, out_mapping);
}

bool map_word(int device, std::uint32_t address, Mapping &out_mapping) {
  return map_region(device, address, clip_to_address_space(address, kWordSpan), out_mapping);
}

int mem_unmap(const Mapping &mapping) {
  return munmap(mapping.start, mapping.length);
}
