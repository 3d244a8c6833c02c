// /dev/korcmem: numbered blocks of memory that are set aside for the media hardware. A block is
// mapped with its physical base as the offset; with the medium of /dev/mem both show the same
// bytes.

#include "platform/driver/korcmem.h"
#include "vboard/base/text.h"
#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <stdio.h>

#include <algorithm>

namespace vboard {
namespace {

using enum Direction;
using enum SettingKind;

constexpr int kMostBlocks = 64;

constexpr Setting kSettings[] = {
    {.key = "block#",
     .kind = kText,
     .otherwise = "",
     .help = "NAME BASE SIZE: video 0x18000000 0x00400000"},
    {.key = "alias#",
     .kind = kNumber,
     .otherwise = "",
     .help = "the number that the answer about it carries, instead of its own",
     .least = INT32_MIN,
     .most = INT32_MAX},
    {.key = "state#",
     .kind = kWord,
     .otherwise = "",
     .help = "what was done with it last",
     .words = "reserved mapped finished released freed"},
};

struct Block {
  std::string_view name;
  std::int64_t base;
  std::int64_t size;
};

struct Key {
  char text[16];
};

Key numbered(const char *word, int id) {
  Key key;
  snprintf(key.text, sizeof key.text, "%s%d", word, id);
  return key;
}

bool find_block(const OpenFile &file, int id, Block &out) {
  if (id < 0 || id >= kMostBlocks)
    return false;
  std::string_view block = setting_text(file, numbered("block", id).text);
  out.name = take_word(block);
  return parse_number(take_word(block), out.base) && parse_number(take_word(block), out.size) &&
         out.base >= 0 && out.size > 0;
}

std::string_view state_of_block(const OpenFile &file, int id) {
  return setting_text(file, numbered("state", id).text);
}

int store_state_of_block(OpenFile &file, int id, std::string_view state) {
  return store_text(file, numbered("state", id).text, state);
}

int korcmem_open(OpenFile &file) {
  std::int64_t end = medium_size(file);
  Block block;
  for (int id = 0; id < kMostBlocks; ++id) {
    if (find_block(file, id, block))
      end = std::max(end, block.base + block.size);
  }
  return end > medium_size(file) ? resize_medium(file, end) : 0;
}

int korcmem_map(OpenFile &file, std::size_t size, std::int64_t offset) {
  Block block;
  for (int id = 0; id < kMostBlocks; ++id) {
    if (!find_block(file, id, block) || offset < block.base)
      continue;
    if (offset - block.base + static_cast<std::int64_t>(size) <= block.size)
      return store_state_of_block(file, id, "mapped");
  }
  return -EINVAL;
}

int get_info(OpenFile &file, CmemInfo &info) {
  Block block;
  if (!find_block(file, info.id, block))
    return -EINVAL;
  const std::int64_t id = node_number(file.node, numbered("alias", info.id).text, info.id);
  info = {};
  info.id = static_cast<std::int32_t>(id);
  block.name.copy(info.name, sizeof info.name - 1);
  info.base = static_cast<std::uint64_t>(block.base);
  info.size = static_cast<std::uint64_t>(block.size);
  return 0;
}

// Ends the use of every mapping. The number that comes along says nothing.
int finish(OpenFile &file, std::int32_t &) {
  for (int id = 0; id < kMostBlocks; ++id) {
    if (state_of_block(file, id) == "mapped") {
      if (const int error = store_state_of_block(file, id, "finished"))
        return error;
    }
  }
  return 0;
}

int release(OpenFile &file, CmemRange &range) {
  Block block;
  if (!find_block(file, range.id, block) || range.base != static_cast<std::uint64_t>(block.base) ||
      range.size != static_cast<std::uint64_t>(block.size))
    return -EINVAL;
  if (state_of_block(file, range.id) == "mapped")
    return -EBUSY;
  return store_state_of_block(file, range.id, "released");
}

int free_pages(OpenFile &file, CmemPages &pages) {
  Block block;
  if (!find_block(file, pages.id, block))
    return -EINVAL;
  if (state_of_block(file, pages.id) == "mapped")
    return -EBUSY;
  return store_state_of_block(file, pages.id, "freed");
}

// clang-format off
constexpr Request kRequests[] = {
    {.number = KORCMEM_CMEMINFO,  .name = "KORCMEM_CMEMINFO",  .direction = kInOut, .handler = answers<get_info>},
    {.number = KORCMEM_RELEASE,   .name = "KORCMEM_RELEASE",   .direction = kIn,    .handler = answers<release>},
    {.number = KORCMEM_PAGE_FREE, .name = "KORCMEM_PAGE_FREE", .direction = kIn,    .handler = answers<free_pages>},
    {.number = KORCMEM_FINISH,    .name = "KORCMEM_FINISH",    .direction = kIn,    .handler = answers<finish>},
};
// clang-format on

}  // namespace

extern constexpr Model kKorcmemModel = {
    .name = "korcmem",
    .settings = kSettings,
    .requests = kRequests,
    .medium_is_stream = true,
    .open = korcmem_open,
    .map = korcmem_map,
};

}  // namespace vboard
