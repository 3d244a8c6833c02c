// The fields of /proc/PID/stat, in the order of the file.

#ifndef BENCHRIG_DEBUG_STAT_FIELDS_H
#define BENCHRIG_DEBUG_STAT_FIELDS_H

#include <cstdint>

// How a field is read and printed. All numbers are decimal in the file and have 32 bits here: what
// exceeds them becomes the nearest limit, on every machine.
enum class StatFormat : std::uint8_t {
  kText,        // as it stands
  kSigned,      // %d
  kUnsigned,    // %d as well, of an unsigned number: 4294967295 shows as -1
  kLong,        // %lu
  kLongHex,     // 0x%lx
  kHex,         // 0x%x
  kUnsigned64,  // %llu, the one field of 64 bits
};

struct StatField {
  const char *label;
  StatFormat format;
  const char *suffix;  // unit or legend, null for none
};

// Prints one field as a line of its own. A missing token (null) is 0, or an empty text.
void print_stat_field(const StatField &field, const char *token);

// Prints every field of a stat file's text, whose blanks are replaced. Only blanks separate: a
// process name that holds one is two tokens, and every label behind it is one too late.
void print_stat_text(char *text);

#endif
