// The format: a header of big-endian words (magic, total size, offsets of the structure and of the
// strings, ..., sizes of the strings and of the structure), and a structure of tokens, each at a
// multiple of four bytes.

#include "vboard/board/device_tree_blob.h"

#include <errno.h>

#include <algorithm>

namespace vboard {
namespace {

constexpr std::uint32_t kMagic = 0xD00DFEED;
constexpr std::size_t kHeaderSize = 40;
constexpr std::size_t kMostPath = 256;

enum Token : std::uint32_t {
  kBeginNode = 1,
  kEndNode = 2,
  kProperty = 3,
  kNothing = 4,
  kEnd = 9,
};

std::uint32_t big_endian(const unsigned char *bytes) {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
         std::uint32_t{bytes[2]} << 8 | bytes[3];
}

// A part of the blob; reading past its end fails.
struct Reader {
  std::string_view bytes;
  std::size_t at;
};

bool take_word(Reader &reader, std::uint32_t &out) {
  if (reader.bytes.size() - reader.at < 4)
    return false;
  out = big_endian(reinterpret_cast<const unsigned char *>(reader.bytes.data()) + reader.at);
  reader.at += 4;
  return true;
}

bool take_bytes(Reader &reader, std::size_t size, std::string_view &out) {
  if (size > reader.bytes.size() - reader.at)
    return false;
  out = reader.bytes.substr(reader.at, size);
  reader.at = std::min(reader.bytes.size(), reader.at + (size + 3) / 4 * 4);
  return true;
}

// A text up to its NUL.
bool text_at(std::string_view bytes, std::size_t at, std::string_view &out) {
  if (at >= bytes.size())
    return false;
  const std::size_t end = bytes.find('\0', at);
  if (end == std::string_view::npos)
    return false;
  out = bytes.substr(at, end - at);
  return true;
}

struct Walk {
  Reader structure;
  std::string_view strings;
  int depth;  // of the current node; the root is 1, a fragment 2, its __overlay__ 3
  bool in_overlay;
  char path[kMostPath];  // of the node that the properties go to
  std::size_t length;
  std::size_t target_length;  // 0 while the fragment has told none
};

// A node below __overlay__ is one below the target.
bool enter(Walk &walk) {
  std::string_view name;
  std::string_view ignored;
  if (!text_at(walk.structure.bytes, walk.structure.at, name) ||
      !take_bytes(walk.structure, name.size() + 1, ignored))
    return false;
  ++walk.depth;
  if (walk.depth == 2)
    walk.target_length = 0;
  if (walk.depth == 3) {
    walk.in_overlay = name == "__overlay__";
    walk.length = walk.target_length;
    return !walk.in_overlay || walk.target_length > 0;
  }
  if (walk.depth > 3 && walk.in_overlay) {
    const bool slash = walk.path[walk.length - 1] != '/';
    if (walk.length + name.size() + 1 >= sizeof walk.path || name.empty())
      return false;
    if (slash)
      walk.path[walk.length++] = '/';
    walk.length += name.copy(walk.path + walk.length, name.size());
  }
  return true;
}

bool leave(Walk &walk) {
  if (walk.depth == 0)
    return false;
  if (walk.depth > 3 && walk.in_overlay) {
    const std::size_t slash = std::string_view(walk.path, walk.length).rfind('/');
    walk.length = std::max(slash, walk.target_length);
  }
  if (walk.depth == 3)
    walk.in_overlay = false;
  --walk.depth;
  return true;
}

bool take_target(Walk &walk, std::string_view value) {
  if (value.size() < 2 || value.back() != '\0' || value.front() != '/' ||
      value.size() > sizeof walk.path)
    return false;
  walk.target_length = value.copy(walk.path, value.size() - 1);
  return true;
}

}  // namespace

std::size_t blob_size(std::span<const unsigned char> blob) {
  if (blob.size() < kHeaderSize || big_endian(blob.data()) != kMagic)
    return 0;
  return big_endian(blob.data() + 4);
}

int read_overlay(std::span<const unsigned char> blob,
                 int (*take)(const OverlayProperty &property, void *context), void *context) {
  const std::size_t size = blob_size(blob);
  if (size < kHeaderSize || size > blob.size())
    return -EINVAL;
  const std::string_view whole(reinterpret_cast<const char *>(blob.data()), size);
  const std::size_t structure = big_endian(blob.data() + 8);
  const std::size_t strings = big_endian(blob.data() + 12);
  if (structure % 4 != 0 || structure > size || strings > size)
    return -EINVAL;

  Walk walk = {};
  walk.structure = {whole.substr(structure), 0};
  walk.strings = whole.substr(strings);
  for (;;) {
    std::uint32_t token;
    std::uint32_t length;
    std::uint32_t name_offset;
    OverlayProperty property;
    if (!take_word(walk.structure, token))
      return -EINVAL;
    switch (token) {
      case kBeginNode:
        if (!enter(walk))
          return -EINVAL;
        break;
      case kEndNode:
        if (!leave(walk))
          return -EINVAL;
        break;
      case kProperty:
        if (!take_word(walk.structure, length) || !take_word(walk.structure, name_offset) ||
            !take_bytes(walk.structure, length, property.value) ||
            !text_at(walk.strings, name_offset, property.name))
          return -EINVAL;
        if (walk.depth == 2 && property.name == "target-path" && !take_target(walk, property.value))
          return -EINVAL;
        if (walk.depth >= 3 && walk.in_overlay) {
          property.node = {walk.path, walk.length};
          if (const int error = take(property, context); error < 0)
            return error;
        }
        break;
      case kNothing:
        break;
      case kEnd:
        return walk.depth == 0 ? 0 : -EINVAL;
      default:
        return -EINVAL;
    }
  }
}

}  // namespace vboard
