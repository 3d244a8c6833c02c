// /dev/mem: the board's physical memory. The medium is the memory, an address being an offset: a
// sparse file, which begins as zeros. There is memory, or a register, where a region says so, and
// only there may be mapped.

#include "vboard/base/text.h"
#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/models.h"

#include <stdio.h>

#include <algorithm>

namespace vboard {
namespace {

constexpr int kMostRegions = 32;
constexpr std::int64_t kPage = 4096;

constexpr Setting kSettings[] = {
    {.key = "region#",
     .kind = SettingKind::kText,
     .otherwise = "",
     .help = "NAME FIRST LAST, whole pages: ram 0x00000000 0x1fffffff"},
    {.key = "refuses",
     .kind = SettingKind::kErrno,
     .otherwise = "EINVAL",
     .help = "the error for what no region holds"},
};

// False when there is no region of that number.
bool find_region(const Node &node, int number, std::int64_t &first, std::int64_t &last) {
  char key[16];
  const int length = snprintf(key, sizeof key, "region%d", number);
  std::string_view region = node_text(node, {key, static_cast<std::size_t>(length)});
  take_word(region);
  return parse_number(take_word(region), first) && parse_number(take_word(region), last) &&
         first >= 0 && first <= last && last <= UINT32_MAX;
}

int phys_mem_open(OpenFile &file) {
  std::int64_t end = medium_size(file);
  std::int64_t first;
  std::int64_t last;
  for (int i = 0; i < kMostRegions && find_region(file.node, i, first, last); ++i)
    end = std::max(end, last + 1);
  return end > medium_size(file) ? resize_medium(file, end) : 0;
}

int phys_mem_map(OpenFile &file, std::size_t size, std::int64_t offset) {
  std::int64_t end = offset + static_cast<std::int64_t>(size);
  end = (end + kPage - 1) / kPage * kPage;
  // Regions may follow on one another, in any order.
  for (std::int64_t at = offset; at < end;) {
    std::int64_t first;
    std::int64_t last;
    std::int64_t reached = at;
    for (int i = 0; i < kMostRegions && find_region(file.node, i, first, last); ++i) {
      if (first <= at && at <= last)
        reached = last + 1;
    }
    if (reached == at)
      return -static_cast<int>(setting_number(file, "refuses"));
    at = reached;
  }
  return 0;
}

}  // namespace

extern constexpr Model kPhysMemModel = {
    .name = "phys_mem",
    .settings = kSettings,
    .medium_is_stream = true,
    .open = phys_mem_open,
    .map = phys_mem_map,
};

}  // namespace vboard
