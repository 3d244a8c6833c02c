#include "vboard/board/settings.h"

#include "vboard/base/calendar.h"
#include "vboard/base/decimal.h"
#include "vboard/base/text.h"

namespace vboard {

namespace {

using enum SettingKind;

constexpr Setting kCommon[] = {
    {.key = "model", .kind = kText, .otherwise = "", .help = "which model answers"},
    {.key = "medium", .kind = kMedium, .otherwise = "", .help = "its file in media/"},
    {.key = "medium_size",
     .kind = kNumber,
     .otherwise = "0",
     .help = "bytes of a medium that is made because it is missing"},
    {.key = "number",
     .kind = kText,
     .otherwise = "0:0",
     .help = "the device number that stat shows, MAJOR:MINOR"},
    {.key = "type",
     .kind = kWord,
     .otherwise = "character",
     .help = "what stat shows it as",
     .words = "character block"},
    {.key = "byte_us",
     .kind = kDecimal,
     .otherwise = "0",
     .help = "board microseconds that each byte of a read or a write takes"},
};

bool is_digit(char letter) {
  return letter >= '0' && letter <= '9';
}

// "block#" and "block12".
bool matches(std::string_view pattern, std::string_view key) {
  const std::size_t place = pattern.find('#');
  if (place == std::string_view::npos)
    return pattern == key;
  const std::string_view front = pattern.substr(0, place);
  const std::string_view back = pattern.substr(place + 1);
  if (key.size() <= front.size() + back.size() || !key.starts_with(front) || !key.ends_with(back))
    return false;
  key = key.substr(front.size(), key.size() - front.size() - back.size());
  for (const char letter : key) {
    if (!is_digit(letter))
      return false;
  }
  return true;
}

bool is_word(std::string_view value, std::string_view words) {
  for (std::string_view word = take_word(words); !word.empty(); word = take_word(words)) {
    if (word == value)
      return true;
  }
  return false;
}

// The limits of a number that has any.
void append_limits(AllowedText &out, const Setting &setting) {
  if (setting.most != INT64_MAX) {
    append_text(out, " from ");
    append_decimal(out, setting.least);
    append_text(out, " to ");
    append_decimal(out, setting.most);
  } else if (setting.least != INT64_MIN) {
    append_text(out, " of at least ");
    append_decimal(out, setting.least);
  }
}

}  // namespace

std::span<const Setting> common_settings() {
  return kCommon;
}

const Setting *find_setting(std::span<const Setting> table, std::string_view key) {
  for (const Setting &setting : table) {
    if (matches(setting.key, key))
      return &setting;
  }
  return nullptr;
}

bool takes_value(const Setting &setting, std::string_view value) {
  std::int64_t number;
  if (value.empty())
    return true;
  switch (setting.kind) {
    case kFlag:
      return value == "0" || value == "1";
    case kNumber:
      return parse_number(value, number) && number >= setting.least && number <= setting.most;
    case kDecimal:
      return decimal_or(value, -1) >= 0;
    case kDate:
      return parse_calendar(value, number);
    case kWord:
      return is_word(value, setting.words);
    case kErrno:
      return parse_errno(value) > 0;
    case kMedium:
      return value.find('/') == value.npos && !value.starts_with('.');
    case kText:
      break;
  }
  return true;
}

AllowedText allowed_values(const Setting &setting) {
  AllowedText out;
  switch (setting.kind) {
    case kFlag:
      append_text(out, "0 or 1");
      break;
    case kNumber:
      append_text(out, "a number");
      append_limits(out, setting);
      break;
    case kDecimal:
      append_text(out, "a number such as 1.5, not negative");
      break;
    case kDate:
      append_text(out, "a date as YYYY-MM-DD hh:mm:ss");
      break;
    case kWord:
      append_text(out, "one of: ", setting.words);
      break;
    case kErrno:
      append_text(out, "the name of an error, such as EIO");
      break;
    case kMedium:
      append_text(out, "the name of a file in media/");
      break;
    case kText:
      append_text(out, "any text");
  }
  return out;
}

std::string_view setting_of(const Node &node, const Setting &setting, std::string_view key) {
  const std::string_view value = node_text(node, key);
  return value.empty() || !takes_value(setting, value) ? setting.otherwise : value;
}

std::int64_t setting_number_of(const Node &node, const Setting &setting, std::string_view key) {
  const std::string_view value = setting_of(node, setting, key);
  if (setting.kind == kErrno)
    return parse_errno(value);
  std::int64_t number = 0;
  return parse_number(value, number) ? number : 0;
}

}  // namespace vboard
