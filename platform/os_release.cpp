// os-release: NAME=value lines with a shell's quotes.

#include "platform/os_release.h"

namespace rigcore {

namespace {

void copy_unquoted(std::string_view quoted, char *value, std::size_t size) {
  while (!quoted.empty() &&
         (quoted.back() == ' ' || quoted.back() == '\t' || quoted.back() == '\r'))
    quoted.remove_suffix(1);
  bool is_literal = false;
  if (quoted.size() >= 2 && quoted.front() == quoted.back() &&
      (quoted.front() == '"' || quoted.front() == '\'')) {
    is_literal = quoted.front() == '\'';
    quoted.remove_prefix(1);
    quoted.remove_suffix(1);
  }
  std::size_t length = 0;
  for (std::size_t i = 0; i < quoted.size() && length + 1 < size; ++i) {
    if (quoted[i] == '\\' && !is_literal && i + 1 < quoted.size())
      ++i;
    value[length++] = quoted[i];
  }
  value[length] = '\0';
}

}  // namespace

bool find_assignment(std::string_view text, std::string_view name, char *value, std::size_t size) {
  bool found = false;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line(text.data(), end == text.npos ? text.size() : end);
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
    if (line.size() > name.size() && line.starts_with(name) && line[name.size()] == '=') {
      line.remove_prefix(name.size() + 1);
      copy_unquoted(line, value, size);
      found = true;
    }
  }
  return found;
}

}  // namespace rigcore
