// Reads the script, compares calls with it and keeps the report.
//
// Files are reached through syscall(): the library is loaded under the virtual board's interposer,
// possibly before that is ready, and a test's own files are no calls of the program.

#include "tests/standin/script.h"

#include "platform/verbose.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

namespace standin {
namespace {

char script[1 << 18];            // the file, NUL-terminated
const char *next_text = script;  // what of it has not been called yet
int next_index = 1;              // line number of next_text
unsigned char arena[8 << 20];    // texts and blocks of all lines that were parsed
std::size_t arena_used = 0;
Line current;

// Reports.

void write_report(const char *message) {
  const char *path = getenv("RIG_REPORT");
  if (path == nullptr)
    return;
  const long fd =
      syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) {
    fprintf(stderr, "librigcore stand-in: cannot write RIG_REPORT %s: %s\n", path, strerror(errno));
    _exit(kFailureStatus);
  }
  const std::size_t length = strlen(message);
  std::size_t done = 0;
  while (done < length) {
    const long count = syscall(SYS_write, fd, message + done, length - done);
    if (count <= 0)
      break;
    done += static_cast<std::size_t>(count);
  }
  syscall(SYS_close, fd);
}

[[noreturn, gnu::format(printf, 1, 2)]] void fail(const char *format, ...) {
  static char message[16384];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(message, sizeof message - 1, format, arguments);
  va_end(arguments);
  fflush(nullptr);  // what the program printed belongs before this
  fprintf(stderr, "librigcore stand-in: %s\n", message);
  strcat(message, "\n");
  write_report(message);
  _exit(kFailureStatus);
}

// A text that is cut with "..." where its room ends.
struct Writer {
  char *at;
  std::size_t room;
};

[[gnu::format(printf, 2, 3)]] void append(Writer &writer, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int count = vsnprintf(writer.at, writer.room, format, arguments);
  va_end(arguments);
  if (count < 0)
    return;
  auto wanted = static_cast<std::size_t>(count);
  if (wanted >= writer.room) {
    if (writer.room > 4)
      memcpy(writer.at + writer.room - 4, "...", 4);
    wanted = writer.room > 0 ? writer.room - 1 : 0;
  }
  writer.at += wanted;
  writer.room -= wanted;
}

void append_block(Writer &writer, const unsigned char *bytes, std::size_t size) {
  append(writer, "hex:");
  bool after_run = false;
  for (std::size_t i = 0; i < size && writer.room > 1;) {
    std::size_t run = 1;
    while (i + run < size && bytes[i + run] == bytes[i])
      ++run;
    const bool is_run = run >= 4;
    append(writer, i > 0 && (is_run || after_run) ? ".%02x" : "%02x", bytes[i]);
    if (is_run)
      append(writer, "*%zu", run);
    after_run = is_run;
    i += is_run ? run : 1;
  }
}

void append_text(Writer &writer, const unsigned char *bytes, std::size_t size) {
  append(writer, "\"");
  for (std::size_t i = 0; i < size; ++i) {
    if (bytes[i] == '"' || bytes[i] == '\\')
      append(writer, "\\%c", bytes[i]);
    else if (bytes[i] == '\n')
      append(writer, "\\n");
    else if (bytes[i] < 0x20 || bytes[i] == 0x7F)
      append(writer, "\\x%02x", bytes[i]);
    else
      append(writer, "%c", bytes[i]);
  }
  append(writer, "\"");
}

void append_call(Writer &writer, const char *name, std::span<const Value> arguments) {
  append(writer, "%s", name);
  for (const Value &value : arguments) {
    append(writer, " ");
    switch (value.kind) {
      case Value::Kind::kNull:
        append(writer, "null");
        break;
      case Value::Kind::kNumber:
        append(writer, "%lld", static_cast<long long>(value.number));
        break;
      case Value::Kind::kText:
        append_text(writer, value.bytes, value.size);
        break;
      case Value::Kind::kBlock:
        append_block(writer, value.bytes, value.size);
        break;
    }
  }
}

// The file.

std::size_t line_length(const char *line) {
  return strcspn(line, "\n");
}

// Moves next_text to the next line that is neither empty nor a comment, or to the script's end.
void skip_to_call() {
  while (*next_text != '\0') {
    const char *first = next_text + strspn(next_text, " \t\r");
    if (*first != '\n' && *first != '#' && *first != '\0')
      return;
    next_text = first + line_length(first);
    if (*next_text == '\n') {
      ++next_text;
      ++next_index;
    }
  }
}

void report_left_over() {
  if (*next_text == '\0') {
    write_report("");
    return;
  }
  static char message[16384];
  Writer writer{message, sizeof message - 1};
  append(writer, "left over: %.*s", static_cast<int>(line_length(next_text)), next_text);
  int more = 0;
  for (const char *at = next_text + line_length(next_text); *at != '\0'; at += line_length(at)) {
    at += strspn(at, "\n \t\r");
    more += *at != '\0' && *at != '#';
  }
  if (more > 0)
    append(writer, " (and %d more)", more);
  strcat(message, "\n");
  write_report(message);
}

[[gnu::constructor]] void load_script() {
  const char *path = getenv("RIG_SCRIPT");
  if (path != nullptr) {
    const long fd = syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC, 0);
    if (fd < 0)
      fail("cannot read RIG_SCRIPT %s: %s", path, strerror(errno));
    std::size_t used = 0;
    long count = 0;
    while ((count = syscall(SYS_read, fd, script + used, sizeof script - used)) > 0)
      used += static_cast<std::size_t>(count);
    syscall(SYS_close, fd);
    if (count < 0 || used == sizeof script)
      fail("RIG_SCRIPT %s is too long or cannot be read", path);
    script[used] = '\0';
  }
  skip_to_call();
  report_left_over();
}

// One line.

[[noreturn]] void fail_syntax(const char *what, const char *at) {
  const int length = static_cast<int>(std::min<std::size_t>(line_length(at), 60));
  fail("script line %d: %s: %.*s", next_index, what, length, at);
}

void put_byte(unsigned char byte) {
  if (arena_used == sizeof arena)
    fail("script line %d: more than %zu bytes of texts and blocks", next_index, sizeof arena);
  arena[arena_used++] = byte;
}

int hex_digit(char digit) {
  if (digit >= '0' && digit <= '9')
    return digit - '0';
  if (digit >= 'a' && digit <= 'f')
    return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F')
    return digit - 'A' + 10;
  return -1;
}

// The value of two digits, -1 when they are none.
int hex_byte(const char *digits) {
  const int high = hex_digit(digits[0]);
  const int low = high < 0 ? -1 : hex_digit(digits[1]);
  return low < 0 ? -1 : high * 16 + low;
}

bool ends_word(char character) {
  return character == '\0' || strchr(" \t\r\n", character) != nullptr;
}

// Each of these reads a word at `at` and returns what follows it.

const char *parse_text(const char *at, Value &out) {
  const char *word = at;
  const std::size_t start = arena_used;
  for (++at; *at != '"'; ++at) {
    if (*at == '\n' || *at == '\0')
      fail_syntax("a text without its end", word);
    if (*at != '\\') {
      put_byte(static_cast<unsigned char>(*at));
      continue;
    }
    ++at;
    int byte = 0;
    switch (*at) {
      case 'n':
        put_byte('\n');
        break;
      case 'r':
        put_byte('\r');
        break;
      case 't':
        put_byte('\t');
        break;
      case '"':
      case '\\':
        put_byte(static_cast<unsigned char>(*at));
        break;
      case 'x':
        byte = hex_byte(at + 1);
        if (byte < 0)
          fail_syntax("\\x without two digits", word);
        put_byte(static_cast<unsigned char>(byte));
        at += 2;
        break;
      default:
        fail_syntax("an unknown escape", word);
    }
  }
  out = {Value::Kind::kText, 0, arena + start, arena_used - start};
  put_byte('\0');
  return at + 1;
}

const char *parse_block(const char *at, Value &out) {
  const char *word = at;
  const std::size_t start = arena_used;
  at += strlen("hex:");
  while (!ends_word(*at)) {
    if (*at == '.') {
      ++at;
      continue;
    }
    const int byte = hex_byte(at);
    if (byte < 0)
      fail_syntax("a block is pairs of hexadecimal digits", word);
    at += 2;
    unsigned long count = 1;
    if (*at == '*') {
      char *end = nullptr;
      count = strtoul(at + 1, &end, 10);
      if (end == at + 1 || (*end != '.' && !ends_word(*end)))
        fail_syntax("a run is XX*N, followed by '.' or a blank", word);
      at = end;
    }
    for (; count > 0; --count)
      put_byte(static_cast<unsigned char>(byte));
  }
  out = {Value::Kind::kBlock, 0, arena + start, arena_used - start};
  return at;
}

const char *parse_number(const char *at, std::int64_t &out) {
  errno = 0;
  char *end = nullptr;
  const bool negative = *at == '-';
  const char *digits = negative ? at + 1 : at;
  // Base 16 only with 0x: a leading 0 does not mean octal here.
  const bool hexadecimal = digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X');
  const unsigned long long magnitude = strtoull(digits, &end, hexadecimal ? 16 : 10);
  if (hex_digit(digits[0]) < 0 || end == digits || !ends_word(*end) || errno != 0)
    fail_syntax("neither a number, a \"text\", a hex:block nor null", at);
  out = static_cast<std::int64_t>(negative ? 0 - magnitude : magnitude);
  return end;
}

const char *parse_value(const char *at, Value &out) {
  if (*at == '"')
    return parse_text(at, out);
  if (strncmp(at, "hex:", 4) == 0)
    return parse_block(at, out);
  if (strncmp(at, "null", 4) == 0 && ends_word(at[4])) {
    out = {Value::Kind::kNull, 0, nullptr, 0};
    return at + 4;
  }
  out = {Value::Kind::kNumber, 0, nullptr, 0};
  return parse_number(at, out.number);
}

const char *skip_blanks(const char *at) {
  return at + strspn(at, " \t\r");
}

bool is_word(const char *at, const char *word) {
  const std::size_t length = strlen(word);
  return strncmp(at, word, length) == 0 && ends_word(at[length]);
}

// Parses the line at next_text into `current`.
void parse_line() {
  current = {};
  current.index = next_index;
  const char *at = skip_blanks(next_text);
  const std::size_t length = strcspn(at, " \t\r\n");
  if (length >= sizeof current.name)
    fail_syntax("no operation has such a name", at);
  memcpy(current.name, at, length);
  at += length;

  bool outputs = false;
  for (at = skip_blanks(at); !is_word(at, "="); at = skip_blanks(at)) {
    if (*at == '\n' || *at == '\0')
      fail_syntax("no \"= RESULT\"", next_text);
    if (is_word(at, "->") && !outputs) {
      outputs = true;
      at += 2;
      continue;
    }
    if (!outputs && strncmp(at, "verbose=", 8) == 0) {
      current.compares_verbose = true;
      at = parse_number(at + 8, current.verbose);
      continue;
    }
    std::size_t &count = outputs ? current.output_count : current.argument_count;
    if (count == kMaxValues)
      fail_syntax("too many words", next_text);
    at = parse_value(at, (outputs ? current.outputs : current.arguments)[count]);
    ++count;
    if (!ends_word(*at))
      fail_syntax("no blank after a word", at);
  }
  at = parse_number(skip_blanks(at + 1), current.result);
  at = skip_blanks(at);
  if (strncmp(at, "errno=", 6) == 0) {
    std::int64_t error = 0;
    at = skip_blanks(parse_number(at + 6, error));
    current.error = static_cast<int>(error);
  }
  if (*at != '\n' && *at != '\0')
    fail_syntax("more behind the result", at);
  next_text = *at == '\n' ? at + 1 : at;
  next_index += *at == '\n';
  skip_to_call();
}

bool equal(const Value &a, const Value &b) {
  using Kind = Value::Kind;
  if (a.kind == Kind::kNull || b.kind == Kind::kNull || a.kind == Kind::kNumber ||
      b.kind == Kind::kNumber)
    return a.kind == b.kind && a.number == b.number;
  // A text may stand for a block and the other way round.
  return a.size == b.size && (a.size == 0 || memcmp(a.bytes, b.bytes, a.size) == 0);
}

[[noreturn]] void fail_unexpected(const char *name, std::span<const Value> arguments,
                                  const Line *expected, const char *hint) {
  static char actual[4096];
  static char wanted[4096];
  Writer writer{actual, sizeof actual};
  append_call(writer, name, arguments);
  if (expected == nullptr)
    fail("unexpected: %s, expected: no further call", actual);
  writer = {wanted, sizeof wanted};
  append_call(writer, expected->name, {expected->arguments, expected->argument_count});
  fail("unexpected: %s, expected: %s (script line %d%s)", actual, wanted, expected->index, hint);
}

}  // namespace

// Values and slots.

Value number(std::int64_t value) {
  return {Value::Kind::kNumber, value, nullptr, 0};
}

Value text(const char *value) {
  if (value == nullptr)
    return {Value::Kind::kNull, 0, nullptr, 0};
  return {Value::Kind::kText, 0, reinterpret_cast<const unsigned char *>(value), strlen(value)};
}

Value block(const void *bytes, std::int64_t size) {
  if (bytes == nullptr)
    return {Value::Kind::kNull, 0, nullptr, 0};
  return {Value::Kind::kBlock, 0, static_cast<const unsigned char *>(bytes),
          size < 0 ? 0 : static_cast<std::size_t>(size)};
}

Slot byte_slot(std::uint8_t *address) {
  return {Slot::Kind::kByte, address, 1};
}

Slot word_slot(void *address) {
  return {Slot::Kind::kWord, address, 4};
}

Slot long_slot(std::uint64_t *address) {
  return {Slot::Kind::kLong, address, 8};
}

Slot text_slot(char *address, std::int64_t size) {
  return {Slot::Kind::kText, address, size < 0 ? 0 : static_cast<std::size_t>(size)};
}

Slot block_slot(void *address, std::int64_t size) {
  return {Slot::Kind::kBlock, address, size < 0 ? 0 : static_cast<std::size_t>(size)};
}

Slot pointer_slot(const char **address) {
  return {Slot::Kind::kPointer, static_cast<void *>(address), sizeof(*address)};
}

// Calls.

void fail_call(const char *name, const char *what) {
  fail("unexpected: %s %s", name, what);
}

void fail_line(const Line &line, const char *what) {
  fail("script line %d: %s: %s", line.index, line.name, what);
}

void require_zero(const char *name, const char *what, const void *record, std::size_t size) {
  const auto *bytes = static_cast<const unsigned char *>(record);
  if (std::any_of(bytes, bytes + size, [](unsigned char byte) { return byte != 0; }))
    fail_call(name, what);
}

const Line &expect(const char *name, std::span<const Value> arguments) {
  if (*next_text == '\0')
    fail_unexpected(name, arguments, nullptr, "");
  parse_line();
  char hint[128] = "";
  if (strcmp(name, current.name) != 0)
    fail_unexpected(name, arguments, &current, hint);
  if (arguments.size() != current.argument_count) {
    snprintf(hint, sizeof hint, "; %zu arguments, %zu expected", arguments.size(),
             current.argument_count);
    fail_unexpected(name, arguments, &current, hint);
  }
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const Value &actual = arguments[i];
    const Value &wanted = current.arguments[i];
    if (equal(actual, wanted))
      continue;
    const std::size_t shared = std::min(actual.size, wanted.size);
    std::size_t at = 0;
    while (at < shared && actual.bytes[at] == wanted.bytes[at])
      ++at;
    if (shared > 0 && at < shared)
      snprintf(hint, sizeof hint, "; argument %zu differs at byte %zu: %02x, expected %02x", i + 1,
               at, actual.bytes[at], wanted.bytes[at]);
    else if (shared > 0)
      snprintf(hint, sizeof hint, "; argument %zu has %zu bytes, expected %zu", i + 1, actual.size,
               wanted.size);
    else
      snprintf(hint, sizeof hint, "; argument %zu differs", i + 1);
    fail_unexpected(name, arguments, &current, hint);
  }
  if (current.compares_verbose && current.verbose != rig_verbose) {
    snprintf(hint, sizeof hint, "; rig_verbose is %d", rig_verbose);
    fail_unexpected(name, arguments, &current, hint);
  }
  return current;
}

void store(const Line &line, std::size_t output, const Slot &slot) {
  if (slot.address == nullptr)
    fail_call(line.name, "with a null pointer for an output");
  const Value &value = line.outputs[output];
  const bool is_number = value.kind == Value::Kind::kNumber;
  const bool is_bytes = value.kind == Value::Kind::kText || value.kind == Value::Kind::kBlock;
  switch (slot.kind) {
    case Slot::Kind::kByte:
    case Slot::Kind::kWord:
    case Slot::Kind::kLong:
      if (!is_number)
        fail_line(line, "this output is a number");
      // Little-endian on every machine that this system knows.
      memcpy(slot.address, &value.number, slot.size);
      break;
    case Slot::Kind::kText:
      if (value.kind != Value::Kind::kText || value.size > slot.size)
        fail_line(line, "this output is a text that fits the caller's buffer");
      memcpy(slot.address, value.bytes, std::min(value.size + 1, slot.size));
      break;
    case Slot::Kind::kBlock:
      if (!is_bytes || value.size > slot.size)
        fail_line(line, "this output is a block that fits the caller's buffer");
      memcpy(slot.address, value.bytes, value.size);
      break;
    case Slot::Kind::kPointer:
      if (value.kind != Value::Kind::kText)
        fail_line(line, "this output is a text");
      *static_cast<const char **>(slot.address) = reinterpret_cast<const char *>(value.bytes);
      break;
  }
}

int finish(const Line &line) {
  report_left_over();
  if (line.error != 0)
    errno = line.error;
  return static_cast<int>(line.result);
}

int call(const char *name, std::initializer_list<Value> arguments,
         std::initializer_list<Slot> slots) {
  const Line &line = expect(name, {arguments.begin(), arguments.size()});
  if (line.output_count > slots.size())
    fail_line(line, "more outputs than the operation has");
  for (std::size_t i = 0; i < line.output_count; ++i)
    store(line, i, slots.begin()[i]);
  return finish(line);
}

}  // namespace standin
