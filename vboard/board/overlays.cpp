// Overlays of the board's device tree.

#include "vboard/board/overlays.h"

#include "vboard/base/text.h"
#include "vboard/board/attribute_families.h"
#include "vboard/board/device_tree_blob.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace vboard {
namespace {

constexpr std::string_view kOverlays = "/sys/kernel/config/device-tree/overlays/";
constexpr std::string_view kTree = "/proc/device-tree";
constexpr std::size_t kMostBlob = 16 << 10;
constexpr std::size_t kMostValue = 1024;
constexpr std::size_t kMostRecord = 8 << 10;

using Name = FixedText<512>;

// A name that is too long becomes an empty one, which no call takes.
Name joined(std::string_view first, std::string_view second, std::string_view third = {}) {
  Name name;
  append_text(name, first, second, third);
  return name.overflow ? Name() : name;
}

// "NAME" of ".../overlays/NAME" or of an attribute in it; empty for another path.
std::string_view overlay_name(std::string_view path) {
  if (!path.starts_with(kOverlays))
    return {};
  path.remove_prefix(kOverlays.size());
  return path.substr(0, path.find('/'));
}

Name property_file(std::string_view node, std::string_view property) {
  Name name = joined(kTree, node == "/" ? std::string_view() : node, "/");
  return joined(name.view(), property);
}

// What an overlay changed.

struct Application {
  const char *board;
  FixedText<kMostRecord> record;
};

void append_value(FixedText<kMostRecord> &record, std::string_view bytes) {
  constexpr char digits[] = "0123456789abcdef";
  for (const char byte : bytes) {
    const unsigned int value = static_cast<unsigned char>(byte);
    const char pair[] = {digits[value >> 4], digits[value & 0xF]};
    append_text(record, std::string_view(pair, sizeof pair));
  }
  if (bytes.empty())
    append_text(record, "empty");
}

// Nodes below the target that the overlay brings along.
int make_node(const char *board, std::string_view node) {
  for (std::size_t at = 1; at <= node.size(); ++at) {
    if (at < node.size() && node[at] != '/')
      continue;
    if (const int error = make_state_directory(board, joined(kTree, node.substr(0, at)).view());
        error < 0)
      return error;
  }
  return 0;
}

int apply_property(const OverlayProperty &property, void *context) {
  Application &application = *static_cast<Application *>(context);
  Name file = property_file(property.node, property.name);
  char old[kMostValue];
  const ssize_t length = load_state(application.board, file.view(), old);
  if (const int error = make_node(application.board, property.node); error < 0)
    return error;
  append_text(application.record, property.node, " ", property.name, " ");
  append_value(application.record, property.value);
  append_text(application.record, " ");
  if (length < 0)
    append_text(application.record, "-");
  else
    append_value(application.record, {old, static_cast<std::size_t>(length)});
  append_text(application.record, "\n");
  return store_state(application.board, file.view(), property.value);
}

int check_target(const OverlayProperty &property, void *context) {
  const char *board = static_cast<const char *>(context);
  // The first component is the target's or one above it: a new one hangs in the air.
  const std::string_view top = property.node.substr(0, property.node.find('/', 1));
  return has_state(board, joined(kTree, top == "/" ? std::string_view() : top).view()) ? 0
                                                                                       : -ENOENT;
}

int apply(const char *board, std::string_view name, std::span<const unsigned char> blob) {
  if (const int error = read_overlay(blob, check_target, const_cast<char *>(board)); error < 0)
    return error;
  Application application;
  application.board = board;
  const int error = read_overlay(blob, apply_property, &application);
  make_state_directory(board, "/overlays");
  store_state(board, joined("/overlays/", name).view(), application.record.view());
  return error;
}

std::size_t parse_value(std::string_view word, char (&out)[kMostValue]) {
  auto digit = [](char c) { return c <= '9' ? c - '0' : c - 'a' + 10; };
  std::size_t size = 0;
  if (word == "empty")
    return 0;
  for (std::size_t at = 0; at + 1 < word.size() && size < sizeof out; at += 2)
    out[size++] = static_cast<char>(digit(word[at]) << 4 | digit(word[at + 1]));
  return size;
}

// The last change is taken back first.
void take_back(const char *board, std::string_view record) {
  while (!record.empty()) {
    std::string_view line = record.substr(0, record.size() - 1);  // without its end
    line.remove_prefix(line.rfind('\n') + 1);                     // 0 when it is the first
    record.remove_suffix(line.size() + 1);
    const std::string_view node = take_word(line);
    const std::string_view property = take_word(line);
    take_word(line);
    const std::string_view old = take_word(line);
    Name file = property_file(node, property);
    char value[kMostValue];
    if (old == "-")
      remove_state(board, file.view());
    else
      store_state(board, file.view(), {value, parse_value(old, value)});
  }
}

}  // namespace

int make_overlay(const char *board, std::string_view path) {
  const std::string_view name = overlay_name(path);
  if (name.empty() || path.size() != kOverlays.size() + name.size())
    return -EPERM;
  if (has_state(board, path))
    return -EEXIST;
  int error = make_state_directory(board, path);
  if (error == 0)
    error = store_state(board, joined(path, "/path").view(), "\n");
  if (error == 0)
    error = store_state(board, joined(path, "/dtbo").view(), "");
  return error != 0 ? error : store_state(board, joined(path, "/status").view(), "unapplied\n");
}

int remove_overlay(const char *board, std::string_view path) {
  const std::string_view name = overlay_name(path);
  if (name.empty() || path.size() != kOverlays.size() + name.size())
    return -EPERM;
  if (!has_state(board, path))
    return -ENOENT;
  Name record = joined("/overlays/", name);
  static char text[kMostRecord];
  const ssize_t length = load_state(board, record.view(), text);
  if (length > 0)
    take_back(board, {text, static_cast<std::size_t>(length)});
  remove_state(board, record.view());
  for (const char *attribute : {"/path", "/dtbo", "/status"})
    remove_state(board, joined(path, attribute).view());
  return remove_state_directory(board, path);
}

namespace {

ssize_t write_blob(const AttributeWrite &write) {
  const auto &[board, path, bytes, offset] = write;
  static char blob[kMostBlob];
  const std::string_view name = overlay_name(path);
  if (offset < 0 || static_cast<std::size_t>(offset) + bytes.size() > sizeof blob)
    return -ENOSPC;
  const std::size_t at = static_cast<std::size_t>(offset);
  const ssize_t before = load_state(board, path, blob);
  if (before < 0)
    return before;
  if (at > static_cast<std::size_t>(before))
    return -EINVAL;
  memcpy(blob + at, bytes.data(), bytes.size());
  const std::size_t size = at + bytes.size();
  if (const int error = store_state(board, path, {blob, size}); error < 0)
    return error;

  // The kernel applies it when the file is closed; here it is as soon as it is whole. A blob that
  // it does not like leaves the status as it is.
  const std::span<const unsigned char> whole(reinterpret_cast<const unsigned char *>(blob), size);
  const std::size_t wanted = blob_size(whole);
  if (wanted != 0 && size >= wanted && apply(board, name, whole) == 0)
    store_state(board, joined(path.substr(0, path.rfind('/')), "/status").view(), "applied\n");
  return static_cast<ssize_t>(bytes.size());
}

}  // namespace

extern constexpr AttributeFamily kOverlayBlob = {
    .directory = kOverlays, .name = "/dtbo", .form = AttributeForm::kBinary, .write = write_blob};

}  // namespace vboard
