// The trace: one line for each call that reaches the board, each written by one write() to a file
// that all processes of a run append to.

#ifndef VBOARD_INTERPOSER_CORE_TRACE_H
#define VBOARD_INTERPOSER_CORE_TRACE_H
#include "vboard/base/text.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vboard {

void open_trace(const char *file);
// Whether lines are wanted, by a trace or by a story.
bool tracing();

// A line under way. Nothing happens to it when no trace is asked for.
struct TraceLine {
  TextBuffer text;
  char *heap;
  char fixed[640];
};

// "TIME call node". `bytes`: how many bytes of data will follow at most.
void trace_begin(TraceLine &line, const char *call, std::string_view node, std::size_t bytes = 0);
void trace_word(TraceLine &line, std::string_view word);
void trace_number(TraceLine &line, std::string_view before, std::int64_t number);
void trace_hex(TraceLine &line, std::string_view before, std::uint64_t number);
// " in=..." or " out=..."; nothing for no bytes.
void trace_data(TraceLine &line, const char *label, const void *data, std::size_t size);
// " = RESULT", or the errno's name for -1; writes the line. `error` is an errno.
void trace_end(TraceLine &line, std::int64_t result, int error);
// Ends a line that has no result.
void trace_end(TraceLine &line);

// A whole line for calls without data.
void trace_call(const char *call, std::string_view node, std::int64_t result, int error);

}  // namespace vboard

#endif
