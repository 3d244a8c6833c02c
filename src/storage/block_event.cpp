// Formatting of block-trace events. Nothing here allocates: the trace loop calls it for every
// request of a busy disk.

#include "storage/block_event.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace {

constexpr const char *kActionLetters[16] = {"",  "Q", "M", "F",  "G", "S", "R", "D",
                                            "C", "P", "U", "UT", "I", "X", "B", "A"};
constexpr std::uint32_t kSectorSize = 512;

}  // namespace

void parse_process_name(const char *status, char (&out)[kProcessNameSize]) {
  out[0] = '\0';
  char line[128] = "";
  memcpy(line, status, std::min(strcspn(status, "\n"), sizeof line - 1));
  sscanf(line, "%*s %63s", out);
}

const char *action_letters(std::uint32_t action) {
  return (action & 0xF0) == 0 ? kActionLetters[action & 0x0F] : "";
}

void request_kind(std::uint32_t action, std::uint32_t bytes, char (&out)[kRequestKindSize]) {
  char *end = out;
  if ((action & STOR_TRACE_FLUSH) != 0)
    *end++ = 'F';
  if ((action & STOR_TRACE_DISCARD) != 0)
    *end++ = 'D';
  else if ((action & STOR_TRACE_WRITE) != 0)
    *end++ = 'W';
  else
    *end++ = bytes != 0 ? 'R' : 'N';
  if ((action & STOR_TRACE_FUA) != 0)
    *end++ = 'F';
  if ((action & STOR_TRACE_AHEAD) != 0)
    *end++ = 'A';
  if ((action & STOR_TRACE_SYNC) != 0)
    *end++ = 'S';
  if ((action & STOR_TRACE_META) != 0)
    *end++ = 'M';
  *end = '\0';
}

std::size_t format_event(const char *device, const char *process, const StorTraceEvent &event,
                         char (&out)[kEventLineSize]) {
  char kind[kRequestKindSize];
  request_kind(event.action, event.bytes, kind);
  const int length = snprintf(
      out, sizeof out, "%-20s%-20llu%-20s%-3s%-20llu%-10u%-16s%-5x\n", device,
      static_cast<unsigned long long>(event.time), process, action_letters(event.action),
      static_cast<unsigned long long>(event.sector), event.bytes / kSectorSize, kind, event.error);
  return std::min(static_cast<std::size_t>(length), sizeof out - 1) + 1;
}
