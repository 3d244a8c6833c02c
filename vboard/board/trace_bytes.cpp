#include "vboard/board/trace_bytes.h"

namespace vboard {

void append_bytes(TextBuffer &buffer, std::span<const unsigned char> bytes) {
  constexpr char digits[] = "0123456789abcdef";
  bool after_run = false;
  for (std::size_t at = 0; at < bytes.size();) {
    std::size_t end = at + 1;
    while (end < bytes.size() && bytes[end] == bytes[at])
      ++end;
    const std::size_t run = end - at;
    const bool is_run = run >= kShortestRun;
    if (at > 0 && (is_run || after_run))
      append_text(buffer, ".");
    char pair[2] = {digits[bytes[at] >> 4], digits[bytes[at] & 15]};
    for (std::size_t i = 0; i < (is_run ? 1 : run); ++i)
      append_text(buffer, {pair, 2});
    if (is_run) {
      append_text(buffer, "*");
      append_decimal(buffer, static_cast<std::int64_t>(run));
    }
    after_run = is_run;
    at = end;
  }
}

}  // namespace vboard
