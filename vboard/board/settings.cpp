#include "vboard/board/settings.h"

#include "vboard/base/calendar.h"
#include "vboard/base/decimal.h"
#include "vboard/base/text.h"

#include <stdio.h>

namespace vboard {

namespace {

using enum SettingKind;

constexpr Setting kCommon[] = {
    {.key = "model", .kind = kText, .otherwise = "", .help = "which model answers"},
    {.key = "medium", .kind = kMedium, .otherwise = "", .help = "the file of media/ behind it"},
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

// What a value must be, when it is not that; empty for a value that is right.
std::string_view wanted(const Setting &setting, std::string_view value) {
  std::int64_t number;
  switch (setting.kind) {
    case kFlag:
      return value == "0" || value == "1" ? "" : "0 or 1";
    case kNumber:
      if (!parse_number(value, number))
        return "a number";
      return number < setting.least || number > setting.most ? "within its limits" : "";
    case kDecimal:
      return decimal_or(value, -1) >= 0 ? "" : "a number that is not negative";
    case kDate:
      return value.empty() || parse_calendar(value, number) ? "" : "YYYY-MM-DD hh:mm:ss";
    case kWord:
      return is_word(value, setting.words) ? "" : "one of its words";
    case kErrno:
      return parse_errno(value) > 0 ? "" : "the name of an error";
    case kMedium:
      return value.find('/') == value.npos && !value.starts_with('.') ? "" : "a file of media/";
    case kText:
      break;
  }
  return "";
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

bool is_valid_setting(const Setting &setting, std::string_view value, std::span<char> reason) {
  const std::string_view must_be = wanted(setting, value);
  if (must_be.empty())
    return true;
  const int shown = static_cast<int>(value.size());
  std::int64_t number;
  if (setting.kind == kNumber && parse_number(value, number))
    snprintf(reason.data(), reason.size(), "%.*s is not from %lld to %lld", shown, value.data(),
             static_cast<long long>(setting.least), static_cast<long long>(setting.most));
  else if (setting.kind == kWord)
    snprintf(reason.data(), reason.size(), "\"%.*s\" is none of: %s", shown, value.data(),
             setting.words);
  else
    snprintf(reason.data(), reason.size(), "\"%.*s\" is not %.*s", shown, value.data(),
             static_cast<int>(must_be.size()), must_be.data());
  return false;
}

std::string_view setting_of(const Node &node, const Setting &setting, std::string_view key) {
  const std::string_view value = node_text(node, key);
  return value.empty() || !wanted(setting, value).empty() ? setting.otherwise : value;
}

std::int64_t setting_number_of(const Node &node, const Setting &setting, std::string_view key) {
  const std::string_view value = setting_of(node, setting, key);
  if (setting.kind == kErrno)
    return parse_errno(value);
  std::int64_t number = 0;
  return parse_number(value, number) ? number : 0;
}

int check_settings(std::span<const Setting> table, const Node &node,
                   void (*wrong)(int line, const char *reason, void *context), void *context) {
  std::string_view rest(node.text, node.length);
  std::string_view line;
  int count = 0;
  for (int number = 1; take_line(rest, line); ++number) {
    line = trimmed(line);
    if (line.empty() || line[0] == '#')
      continue;
    char reason[256];
    const std::size_t equals = line.find('=');
    const std::string_view key = trimmed(line.substr(0, equals));
    const Setting *setting = find_setting(table, key);
    if (setting == nullptr)
      setting = find_setting(kCommon, key);
    if (equals == std::string_view::npos)
      snprintf(reason, sizeof reason, "not KEY = VALUE");
    else if (setting == nullptr)
      snprintf(reason, sizeof reason, "no such setting: %.*s", static_cast<int>(key.size()),
               key.data());
    else if (is_valid_setting(*setting, trimmed(line.substr(equals + 1)), reason))
      continue;
    wrong(number, reason, context);
    ++count;
  }
  return count;
}

}  // namespace vboard
