// The blocks of the board's memory, /sys/devices/system/memory.
//
//   block_size_bytes     hexadecimal, without 0x
//   probe                a block's start address written here makes memoryN
//   auto_online_blocks   online: a block that is made this way begins online, else offline
//   memoryN/state        online, offline; online_movable and online_kernel may be written as well

#include "vboard/base/text.h"
#include "vboard/board/attribute_families.h"

#include <errno.h>
#include <stdio.h>

namespace vboard {
namespace {

constexpr std::string_view kMemory = "/sys/devices/system/memory";

using Name = FixedText<128>;

Name name_of(std::string_view directory, std::string_view attribute) {
  Name name;
  append_text(name, directory, "/", attribute);
  return name;
}

// The text of an attribute, or what was written to one: a line end does not count, and a NUL that
// some programs write behind it ends it.
std::string_view as_text(std::string_view value) {
  return trimmed(value.substr(0, value.find_first_of({"\0\n", 2})));
}

std::string_view value_of(const char *board, const Name &name, std::span<char> room) {
  const ssize_t length = load_state(board, name.view(), room);
  return length > 0 ? as_text({room.data(), static_cast<std::size_t>(length)}) : std::string_view();
}

std::int64_t block_size(const char *board) {
  char text[32];
  FixedText<40> prefixed;
  append_text(prefixed, "0x", value_of(board, name_of(kMemory, "block_size_bytes"), text));
  std::int64_t size = 0;
  return parse_number(prefixed.view(), size) ? size : 0;
}

int store_line(const char *board, const Name &name, std::string_view value) {
  FixedText<64> line;
  append_text(line, value, "\n");
  return store_state(board, name.view(), line.view());
}

int make_block(const char *board, std::int64_t index, std::string_view state) {
  Name block;
  append_text(block, kMemory, "/memory");
  append_decimal(block, index);
  if (has_state(board, block.view()))
    return -EEXIST;
  char number[20];
  const int length = snprintf(number, sizeof number, "%08llx", static_cast<long long>(index));
  int error = make_state_directory(board, block.view());
  if (error == 0)
    error = store_line(board, name_of(block.view(), "phys_index"),
                       {number, static_cast<std::size_t>(length)});
  if (error == 0)
    error = store_line(board, name_of(block.view(), "removable"), "1");
  // The state comes last: with it the block is there.
  return error != 0 ? error : store_line(board, name_of(block.view(), "state"), state);
}

ssize_t write_probe(const AttributeWrite &write) {
  const char *board = write.board;
  std::int64_t address;
  const std::int64_t size = block_size(board);
  if (!parse_number(as_text(write.bytes), address) || address < 0 || size <= 0 ||
      address % size != 0)
    return -EINVAL;
  char text[32];
  const bool online = value_of(board, name_of(kMemory, "auto_online_blocks"), text) == "online";
  return make_block(board, address / size, online ? "online" : "offline");
}

ssize_t write_state(const AttributeWrite &write) {
  std::string_view wanted = as_text(write.bytes);
  if (wanted == "online_movable" || wanted == "online_kernel")
    wanted = "online";
  if (wanted != "online" && wanted != "offline")
    return -EINVAL;
  const Name name = name_of(write.path.substr(0, write.path.rfind('/')), "state");
  char text[32];
  const std::string_view state = value_of(write.board, name, text);
  if (state.empty())
    return -ENOENT;
  // Nothing to change is an error of the kernel's too.
  return state == wanted ? -EINVAL : store_line(write.board, name, wanted);
}

}  // namespace

extern constexpr AttributeFamily kMemoryProbe = {.directory = "/sys/devices/system/memory/",
                                                 .name = "/probe",
                                                 .form = AttributeForm::kText,
                                                 .write = write_probe};

extern constexpr AttributeFamily kMemoryState = {.directory = "/sys/devices/system/memory/",
                                                 .name = "/state",
                                                 .form = AttributeForm::kText,
                                                 .write = write_state};

}  // namespace vboard
