// Attributes are files of the board's sys directory, read as they stand. Writes come through here,
// since most attributes do more with a value than keep it: they check it, clamp it, act on it.
//
// sys.wires of the board holds its wires, one a line: "/sys/FROM -> /sys/TO". A loop-back plug is
// one line for each input; deleting a line cuts that wire.

#include "vboard/board/attributes.h"

#include "vboard/base/text.h"
#include "vboard/board/attribute_families.h"
#include "vboard/board/node.h"
#include "vboard/board/overlays.h"

namespace vboard {
namespace {

constexpr int kMostHops = 4;  // of a value along wires that form a ring

ssize_t write_text(const AttributeWrite &write) {
  return store_value(write.board, write.path, attribute_value(write.bytes));
}

constexpr AttributeFamily kOrdinary = {
    .directory = {}, .name = {}, .form = AttributeForm::kText, .write = write_text};

const AttributeFamily *const kFamilies[] = {
    &kPinValue,    &kPinEdge,     &kLedBrightness, &kFirmwareLoading, &kFirmwareData,
    &kMemoryProbe, &kMemoryState, &kOverlayBlob,   &kPowerSwitch,     &kNvmem,
    &kNvmemDevice, &kEeprom,      &kEepromDevice,
};

const AttributeFamily &family_of(std::string_view path) {
  for (const AttributeFamily *family : kFamilies) {
    if (path.starts_with(family->directory) && path.ends_with(family->name))
      return *family;
  }
  return kOrdinary;
}

// Wires.

void follow_wires(const char *board, std::string_view from, std::string_view value, int hops) {
  BoardPath file;
  Node wires;
  if (hops == 0 || find_board_file(board, "sys.wires", file) < 0 ||
      load_node(file.c_str(), wires) < 0)
    return;
  std::string_view rest(wires.text, wires.length);
  std::string_view line;
  while (take_line(rest, line)) {
    const std::string_view source = take_word(line);
    const std::string_view arrow = take_word(line);
    const std::string_view target = take_word(line);
    if (source != from || arrow != "->" || !target.starts_with("/sys/"))
      continue;
    if (store_value(board, target, value) == 0)
      follow_wires(board, target, value, hops - 1);
  }
}

}  // namespace

ssize_t write_attribute(const char *board, const char *path, const void *data, std::size_t size,
                        std::int64_t offset) {
  AttributeWrite write = {.board = board,
                          .path = path,
                          .bytes = {static_cast<const char *>(data), size},
                          .offset = offset};
  const AttributeFamily &family = family_of(write.path);
  const bool is_text = family.form == AttributeForm::kText;
  if (is_text)  // a NUL ends it: programs write that too
    write.bytes = write.bytes.substr(0, write.bytes.find('\0'));
  const ssize_t result = family.write(write);
  if (result < 0 || !is_text)
    return result;
  char text[kPageSize];
  follow_wires(board, write.path, load_value(board, write.path, text), kMostHops);
  return static_cast<ssize_t>(size);
}

bool announces_change(const char *board, std::string_view path, std::string_view value) {
  const AttributeFamily &family = family_of(path);
  return family.announces == nullptr || family.announces(board, path, value);
}

int make_sys_directory(const char *board, const char *path) {
  return make_overlay(board, path);
}

int remove_sys_directory(const char *board, const char *path) {
  return remove_overlay(board, path);
}

}  // namespace vboard
