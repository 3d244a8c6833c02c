// The script that the stand-in librigcore follows.
//
// RIG_SCRIPT names a file with the calls that a test expects, one a line, in order:
//
//   # comment
//   rig_beep 7 = 0
//   rig_alarm_input -> 2 = 0
//   rig_bootparam_set hex:00*250.01.00*5 256 = -1 errno=5
//   rig_uenv_get "bootargs" 256 -> "console=ttyS0" = 0
//   rig_upgrade 1 1 0 0x12345678 "a.bin" verbose=1 -> 0x12345678 0 50 1 "writing" = 0
//
// That is NAME [ARGUMENT ...] [verbose=N] [-> OUTPUT ...] = RESULT [errno=N]. Numbers are decimal
// or 0x hexadecimal; texts are quoted, with \n \r \t \" \\ and \xHH; blocks are hexadecimal bytes
// where XX*N repeats a byte and '.' may separate pieces; a null pointer is the word null. verbose=N
// also compares rig_verbose as it stands at the call.
//
// RIG_REPORT names the file for what went wrong, one line. It is written when the library is loaded
// and after every call, so that it tells what is left over however the process ends; at the end of
// a good run it is there and empty. A call that was not expected, or a line that makes no sense,
// ends the process with status 99.

#ifndef TESTS_STANDIN_SCRIPT_H
#define TESTS_STANDIN_SCRIPT_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>

namespace standin {

inline constexpr int kFailureStatus = 99;

// One argument of a call, or one word of a line.
struct Value {
  enum class Kind : std::uint8_t { kNull, kNumber, kText, kBlock } kind;
  std::int64_t number;
  const unsigned char *bytes;  // of a text (without its NUL) or a block
  std::size_t size;
};

Value number(std::int64_t value);
Value text(const char *value);
Value block(const void *bytes, std::int64_t size);  // a negative size counts as 0

// Where one output goes. Outputs that a line does not give are left untouched.
struct Slot {
  enum class Kind : std::uint8_t { kByte, kWord, kLong, kText, kBlock, kPointer } kind;
  void *address;
  std::size_t size;  // room of a text or a block
};

Slot byte_slot(std::uint8_t *address);
Slot word_slot(void *address);  // int32_t or uint32_t
Slot long_slot(std::uint64_t *address);
// A text is stored with its NUL, which may be left out only where the room ends with the text.
Slot text_slot(char *address, std::int64_t size);
Slot block_slot(void *address, std::int64_t size);
Slot pointer_slot(const char **address);  // to a text that stays for good

inline constexpr std::size_t kMaxValues = 96;

struct Line {
  int index;  // in the file, from 1
  char name[64];
  Value arguments[kMaxValues];
  std::size_t argument_count;
  Value outputs[kMaxValues];
  std::size_t output_count;
  bool compares_verbose;
  std::int64_t verbose;
  std::int64_t result;
  int error;  // 0 for none
};

// Takes the next line, which must be this call. The operation then stores the outputs and returns
// finish().
const Line &expect(const char *name, std::span<const Value> arguments);
void store(const Line &line, std::size_t output, const Slot &slot);
// Sets errno and gives the result; -1 and 0xffffffff are one in its 32 bits.
int finish(const Line &line);

// All three for the usual operation.
int call(const char *name, std::initializer_list<Value> arguments,
         std::initializer_list<Slot> slots = {});

// Ends the process: "unexpected: NAME <what>".
[[noreturn]] void fail_call(const char *name, const char *what);
// Ends the process: "script line N: <what>".
[[noreturn]] void fail_line(const Line &line, const char *what);

// Fails the call when the record that the caller had to zero is not.
void require_zero(const char *name, const char *what, const void *record, std::size_t size);

}  // namespace standin

#endif
