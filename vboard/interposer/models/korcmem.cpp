// /dev/korcmem: numbered blocks of memory that are set aside for the media hardware. A block is
// mapped with its physical base as the offset; with the medium of /dev/mem both show the same
// bytes.
//
//   block10, block11, ...   NAME BASE SIZE: "video 0x18000000 0x00400000"
//   alias10, alias11, ...   the number that the answer about it carries, instead of its own
//   state10, state11, ...   what was done with it last: reserved, mapped, finished, released, freed

#include "platform/driver/korcmem.h"
#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace vboard {
namespace {

constexpr int kMostBlocks = 64;

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
  std::string_view block = node_text(file.node, numbered("block", id).text);
  out.name = take_word(block);
  return parse_number(take_word(block), out.base) && parse_number(take_word(block), out.size) &&
         out.base >= 0 && out.size > 0;
}

std::string_view state_of_block(const OpenFile &file, int id) {
  return node_text(file.node, numbered("state", id).text);
}

int store_state_of_block(OpenFile &file, int id, std::string_view state) {
  return store_text(file, numbered("state", id).text, state);
}

int korcmem_open(OpenFile &file) {
  std::int64_t end = sys_size(file.fd);
  Block block;
  for (int id = 0; id < kMostBlocks; ++id) {
    if (find_block(file, id, block))
      end = std::max(end, block.base + block.size);
  }
  return end > sys_size(file.fd) ? sys_ftruncate(file.fd, end) : 0;
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

int get_info(const OpenFile &file, void *argument) {
  CmemInfo info;
  memcpy(&info, argument, sizeof info);
  Block block;
  if (!find_block(file, info.id, block))
    return -EINVAL;
  const std::int64_t id = node_number(file.node, numbered("alias", info.id).text, info.id);
  info = {};
  info.id = static_cast<std::int32_t>(id);
  block.name.copy(info.name, sizeof info.name - 1);
  info.base = static_cast<std::uint64_t>(block.base);
  info.size = static_cast<std::uint64_t>(block.size);
  memcpy(argument, &info, sizeof info);
  return 0;
}

// Ends the use of every mapping.
int finish(OpenFile &file) {
  for (int id = 0; id < kMostBlocks; ++id) {
    if (state_of_block(file, id) == "mapped") {
      if (const int error = store_state_of_block(file, id, "finished"))
        return error;
    }
  }
  return 0;
}

int release(OpenFile &file, const void *argument) {
  CmemRange range;
  memcpy(&range, argument, sizeof range);
  Block block;
  if (!find_block(file, range.id, block) || range.base != static_cast<std::uint64_t>(block.base) ||
      range.size != static_cast<std::uint64_t>(block.size))
    return -EINVAL;
  if (state_of_block(file, range.id) == "mapped")
    return -EBUSY;
  return store_state_of_block(file, range.id, "released");
}

int free_pages(OpenFile &file, const void *argument) {
  CmemPages pages;
  memcpy(&pages, argument, sizeof pages);
  Block block;
  if (!find_block(file, pages.id, block))
    return -EINVAL;
  if (state_of_block(file, pages.id) == "mapped")
    return -EBUSY;
  return store_state_of_block(file, pages.id, "freed");
}

int korcmem_ioctl(OpenFile &file, std::uint32_t request, void *argument) {
  switch (request) {
    case KORCMEM_CMEMINFO:
      return get_info(file, argument);
    case KORCMEM_RELEASE:
      return release(file, argument);
    case KORCMEM_PAGE_FREE:
      return free_pages(file, argument);
    case KORCMEM_FINISH:
      return finish(file);
    default:
      return -ENOTTY;
  }
}

// clang-format off
constexpr Request kRequests[] = {
    {.number = KORCMEM_CMEMINFO,  .name = "KORCMEM_CMEMINFO",  .size = sizeof(CmemInfo),  .direction = Direction::kInOut},
    {.number = KORCMEM_RELEASE,   .name = "KORCMEM_RELEASE",   .size = sizeof(CmemRange), .direction = Direction::kIn},
    {.number = KORCMEM_PAGE_FREE, .name = "KORCMEM_PAGE_FREE", .size = sizeof(CmemPages), .direction = Direction::kIn},
    {.number = KORCMEM_FINISH,    .name = "KORCMEM_FINISH",    .size = 4,                 .direction = Direction::kIn},
};
// clang-format on

}  // namespace

extern constexpr Model kKorcmemModel = {
    .name = "korcmem",
    .requests = kRequests,
    .medium_size = 0,
    .medium_fill = 0,
    .open = korcmem_open,
    .close = nullptr,
    .read = nullptr,
    .write = nullptr,
    .ioctl = korcmem_ioctl,
    .readable_at = nullptr,
    .map = korcmem_map,
};

}  // namespace vboard
