// Memory blocks that come and change their states.

#include "vboard/board/memory_blocks.h"

#include "vboard/base/text.h"
#include "vboard/board/board_files.h"

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

}  // namespace

int write_memory_probe(const char *board, std::string_view value) {
  std::int64_t address;
  const std::int64_t size = block_size(board);
  if (!parse_number(as_text(value), address) || address < 0 || size <= 0 || address % size != 0)
    return -EINVAL;
  char text[32];
  const bool online = value_of(board, name_of(kMemory, "auto_online_blocks"), text) == "online";
  return make_block(board, address / size, online ? "online" : "offline");
}

int write_memory_state(const char *board, std::string_view path, std::string_view value) {
  std::string_view wanted = as_text(value);
  if (wanted == "online_movable" || wanted == "online_kernel")
    wanted = "online";
  if (wanted != "online" && wanted != "offline")
    return -EINVAL;
  const Name name = name_of(path.substr(0, path.rfind('/')), "state");
  char text[32];
  const std::string_view state = value_of(board, name, text);
  if (state.empty())
    return -ENOENT;
  // Nothing to change is an error of the kernel's too.
  return state == wanted ? -EINVAL : store_line(board, name, wanted);
}

}  // namespace vboard
