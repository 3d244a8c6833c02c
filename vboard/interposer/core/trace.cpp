#include "vboard/interposer/core/trace.h"

#include "vboard/base/kernel.h"
#include "vboard/board/trace_bytes.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/story.h"
#include "vboard/interposer/models/model.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>

namespace vboard {

namespace {

// Of a transfer larger than this the trace shows the beginning.
constexpr std::size_t kMostBytes = std::size_t{1} << 20;

int trace_fd = -1;

}  // namespace

void open_trace(const char *file) {
  if (file == nullptr || *file == '\0')
    return;
  const int fd = sys_open(file, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0666);
  if (fd < 0)
    return;
  trace_fd = sys_move_high(fd, kOwnDescriptors);
  add_own_descriptor(trace_fd);
}

bool tracing() {
  return trace_fd >= 0 || telling();
}

void trace_begin(TraceLine &line, const char *call, std::string_view node, std::size_t bytes) {
  line.heap = nullptr;
  line.text = {line.fixed, 0, 0, false};
  if (!tracing())
    return;
  line.text.capacity = sizeof line.fixed - 1;
  const std::size_t needed = trace_bytes_limit(bytes < kMostBytes ? bytes : kMostBytes) + 512;
  if (needed > line.text.capacity) {
    line.heap = static_cast<char *>(malloc(needed));
    if (line.heap != nullptr)
      line.text = {line.heap, needed - 1, 0, false};
  }
  append_seconds(line.text, current_time());
  append_text(line.text, " ");
  append_text(line.text, call);
  if (!node.empty()) {
    append_text(line.text, " ");
    append_text(line.text, node);
  }
}

void trace_word(TraceLine &line, std::string_view word) {
  if (line.text.capacity == 0)
    return;
  append_text(line.text, " ");
  append_text(line.text, word);
}

void trace_number(TraceLine &line, std::string_view before, std::int64_t number) {
  if (line.text.capacity == 0)
    return;
  trace_word(line, before);
  append_decimal(line.text, number);
}

void trace_hex(TraceLine &line, std::string_view before, std::uint64_t number) {
  if (line.text.capacity == 0)
    return;
  trace_word(line, before);
  append_hex(line.text, number);
}

void trace_data(TraceLine &line, const char *label, const void *data, std::size_t size) {
  if (line.text.capacity == 0 || size == 0)
    return;
  trace_word(line, label);
  const bool cut = size > kMostBytes;
  append_bytes(line.text, {static_cast<const unsigned char *>(data), cut ? kMostBytes : size});
  if (cut)
    append_text(line.text, "...");
}

void trace_end(TraceLine &line, std::int64_t result, int error) {
  if (line.text.capacity == 0)
    return;
  append_text(line.text, " = ");
  const char *name = result < 0 && error > 0 ? strerrorname_np(error) : nullptr;
  if (name != nullptr)
    append_text(line.text, name);
  else
    append_decimal(line.text, result);
  trace_end(line);
}

void trace_end(TraceLine &line) {
  if (line.text.capacity == 0)
    return;
  if (telling()) {
    const std::string_view text(line.text.data, line.text.length);
    tell(text.substr(text.find(' ') + 1));  // without the time
  }
  // The capacity is one less than the room.
  line.text.data[line.text.length++] = '\n';
  if (trace_fd >= 0)
    sys_write(trace_fd, line.text.data, line.text.length);
  free(line.heap);
}

void trace_call(const char *call, std::string_view node, std::int64_t result, int error) {
  if (!tracing())
    return;
  TraceLine line;
  trace_begin(line, call, node);
  trace_end(line, result, error);
}

}  // namespace vboard
