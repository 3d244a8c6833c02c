#include "vboard/board/process_events.h"

#include "vboard/base/text.h"

#include <string.h>

#include <algorithm>

namespace vboard {
namespace {

struct Kind {
  std::string_view name;
  std::uint32_t what;
};

// PROC_EVENT_... of linux/cn_proc.h
constexpr Kind kKinds[] = {
    {"fork", 0x00000001}, {"exec", 0x00000002},     {"uid", 0x00000004},
    {"gid", 0x00000040},  {"session", 0x00000080},  {"ptrace", 0x00000100},
    {"comm", 0x00000200}, {"coredump", 0x40000000}, {"exit", 0x80000000},
};

constexpr std::size_t kName = 60;  // of a rename
constexpr std::size_t kNameSize = 16;

void put(unsigned char *at, std::uint32_t value) {
  memcpy(at, &value, sizeof value);  // the kernel's own byte order
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

bool parse_datagram(std::string_view digits, ProcessEventLine &out) {
  out.size = 0;
  int high = -1;
  for (const char c : digits) {
    if (c == ' ' || c == '.')
      continue;
    const int digit = hex_digit(c);
    if (digit < 0 || out.size == sizeof out.datagram)
      return false;
    if (high >= 0)
      out.datagram[out.size++] = static_cast<unsigned char>(high << 4 | digit);
    high = high >= 0 ? -1 : digit;
  }
  return high < 0;
}

bool find_kind(std::string_view word, std::string_view &line, std::uint32_t &what) {
  for (const Kind &kind : kKinds) {
    if (kind.name == word) {
      what = kind.what;
      return true;
    }
  }
  std::int64_t number;
  if (word != "event" || !parse_number(take_word(line), number))
    return false;
  what = static_cast<std::uint32_t>(number);
  return true;
}

bool parse_event(std::string_view line, ProcessEventLine &out) {
  const std::string_view time = take_word(line);
  const std::string_view word = take_word(line);
  if (!parse_seconds(time, out.at))
    return false;
  if (word == "raw")
    return parse_datagram(line, out);
  std::uint32_t what;
  if (!find_kind(word, line, what))
    return false;
  std::int32_t data[4] = {};
  const int words = word == "comm" ? 2 : 4;
  for (int i = 0; i < words; ++i) {
    std::int64_t number;
    if (parse_number(take_word(line), number))
      data[i] = static_cast<std::int32_t>(number);
  }
  build_process_event(what, data, std::span(out.datagram).first<kEventMessage>());
  out.size = kEventMessage;
  const std::string_view name = trimmed(line);
  if (word == "comm")
    memcpy(out.datagram + kName, name.data(), std::min(name.size(), kNameSize));
  return true;
}

}  // namespace

void build_process_event(std::uint32_t what, const std::int32_t (&data)[4],
                         std::span<unsigned char, kEventMessage> out) {
  std::fill(out.begin(), out.end(), static_cast<unsigned char>(0));
  put(&out[0], kEventMessage);
  put(&out[4], 3);   // NLMSG_DONE
  put(&out[16], 1);  // CN_IDX_PROC
  put(&out[20], 1);  // CN_VAL_PROC
  put(&out[32], 40);
  put(&out[36], what);
  for (std::size_t i = 0; i < std::size(data); ++i)
    put(&out[52 + 4 * i], static_cast<std::uint32_t>(data[i]));
}

bool next_process_event(std::string_view &text, ProcessEventLine &out) {
  std::string_view line;
  while (take_line(text, line)) {
    if (parse_event(line.substr(0, line.find('#')), out))
      return true;
  }
  return false;
}

}  // namespace vboard
