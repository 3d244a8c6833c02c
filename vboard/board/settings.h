// The settings of a device, as a table: what a node file may say, what it counts as when it is
// missing or makes no sense, and how to describe it to a person.

#ifndef VBOARD_BOARD_SETTINGS_H
#define VBOARD_BOARD_SETTINGS_H
#include "vboard/base/text.h"
#include "vboard/board/node.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vboard {

enum class SettingKind : std::uint8_t {
  kFlag,     // 0 or 1
  kNumber,   // decimal or hexadecimal, from `least` to `most`
  kDecimal,  // "1.0", not negative
  kDate,     // "YYYY-MM-DD hh:mm:ss", decimals allowed
  kWord,     // one of `words`
  kText,     // any
  kErrno,    // a name such as EIO
  kMedium,   // a file of media/
};

struct Setting {
  const char *key;  // "block#": with a number from 0 on in the place of "#"
  SettingKind kind;
  const char *otherwise;  // the default, as a node file would have it
  const char *help;       // one line
  std::int64_t least = 0;
  std::int64_t most = INT64_MAX;
  const char *words = "";  // separated by blanks
};

// What every node file of dev/ may say beside its model's settings.
std::span<const Setting> common_settings();

// The row of a key; null for a key that no row has.
const Setting *find_setting(std::span<const Setting> table, std::string_view key);

// Whether a node file may say this. An empty value counts as a missing one and is always right.
bool takes_value(const Setting &setting, std::string_view value);

// What a value may be: "0 or 1", "a number from 1 to 65535".
using AllowedText = FixedText<768>;
AllowedText allowed_values(const Setting &setting);

// The value, or the default in the place of one that is missing or wrong.
std::string_view setting_of(const Node &node, const Setting &setting, std::string_view key);
// The same as a number, of kErrno the errno; 0 for what is no number.
std::int64_t setting_number_of(const Node &node, const Setting &setting, std::string_view key);

}  // namespace vboard

#endif
