// One line of the block-trace log.

#ifndef BENCHRIG_STORAGE_BLOCK_EVENT_H
#define BENCHRIG_STORAGE_BLOCK_EVENT_H

#include "platform/driver/korstorage.h"

#include <cstddef>
#include <cstdint>

inline constexpr std::size_t kEventLineSize = 256;
inline constexpr std::size_t kProcessNameSize = 64;
inline constexpr std::size_t kRequestKindSize = 8;  // "FDFASM" at most

// The second word of the first line of a /proc/PID/status text; empty when there is none.
void parse_process_name(const char *status, char (&out)[kProcessNameSize]);

// Letters of an action word's code; empty for a code without any.
const char *action_letters(std::uint32_t action);

// What kind of request: flush, then what it moves, then its attributes.
void request_kind(std::uint32_t action, std::uint32_t bytes, char (&out)[kRequestKindSize]);

// The line, NUL included; how many bytes of `out` it takes with its NUL.
std::size_t format_event(const char *device, const char *process, const StorTraceEvent &event,
                         char (&out)[kEventLineSize]);

#endif
