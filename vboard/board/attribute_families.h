// Families of attributes that do more with a write than keep it: a row and a file each.

#ifndef VBOARD_BOARD_ATTRIBUTE_FAMILIES_H
#define VBOARD_BOARD_ATTRIBUTE_FAMILIES_H
#include "vboard/board/attributes.h"
#include "vboard/board/board_files.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vboard {

inline constexpr std::size_t kPageSize = 4096;  // the most that a text attribute takes

struct AttributeWrite {
  const char *board;
  std::string_view path;  // "/sys/..."
  std::string_view bytes;
  std::int64_t offset;
};

enum class AttributeForm : std::uint8_t {
  kText,    // one value: a NUL ends what is written, and wires carry it on
  kBinary,  // bytes at an offset
};

struct AttributeFamily {
  std::string_view directory;  // the path begins with
  std::string_view name;       // and ends with
  AttributeForm form;
  // Bytes taken by a binary attribute, 0 for a text that was taken, or a negated errno.
  ssize_t (*write)(const AttributeWrite &write);
  // Whether the driver announces that the attribute says `value` now; null: it always does.
  bool (*announces)(const char *board, std::string_view path, std::string_view value) = nullptr;
};

extern const AttributeFamily kPinValue, kPinEdge;
extern const AttributeFamily kLedBrightness;
extern const AttributeFamily kFirmwareLoading, kFirmwareData;
extern const AttributeFamily kMemoryProbe, kMemoryState;
extern const AttributeFamily kOverlayBlob;
extern const AttributeFamily kPowerSwitch;
extern const AttributeFamily kNvmem, kNvmemDevice, kEeprom, kEepromDevice;

// What the families share. Paths are names on the board.

// Keeps a text with one line end. 0, or a negated errno.
int store_value(const char *board, std::string_view path, std::string_view value);
int store_decimal(const char *board, std::string_view path, std::int64_t value);
// The value without its line end; empty when the board lacks it.
std::string_view load_value(const char *board, std::string_view path, char (&text)[kPageSize]);
// The attribute `name` beside `path`.
BoardPath sibling(std::string_view path, std::string_view name);

}  // namespace vboard

#endif
