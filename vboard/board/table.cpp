#include "vboard/board/table.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/board/file_updates.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>

namespace vboard {

namespace {

using FaultText = FixedText<1024>;

std::string_view text_of(const Table &table) {
  return {table.text, table.length};
}

// Lines and words.

// The words of a line, without its comment and the blanks around them.
std::string_view without_comment(std::string_view line) {
  const char *begin = line.data();
  std::string_view rest = line;
  for (std::string_view word = take_word(rest); !word.empty(); word = take_word(rest)) {
    if (word[0] == '#')
      return trimmed({begin, static_cast<std::size_t>(word.data() - begin)});
  }
  return trimmed(line);
}

// The place in the text behind the line of a row, with its end.
std::size_t end_of_line(const Table &table, const TableRow &row) {
  const std::size_t from = static_cast<std::size_t>(row.words.data() - table.text);
  const std::size_t end = text_of(table).find('\n', from);
  return end == std::string_view::npos ? table.length : end + 1;
}

// The next line that holds words, malformed or not.
bool next_words(const Table &table, TableRow &row) {
  std::string_view rest = text_of(table).substr(row.line == 0 ? 0 : end_of_line(table, row));
  std::string_view line;
  for (std::size_t number = row.line + 1; take_line(rest, line); ++number) {
    const std::string_view words = without_comment(line);
    if (!words.empty()) {
      row = {words, number};
      return true;
    }
  }
  return false;
}

std::size_t count_words(std::string_view words) {
  std::size_t count = 0;
  while (!take_word(words).empty())
    ++count;
  return count;
}

// Keys.

bool is_same_word(const Setting &column, std::string_view one, std::string_view other) {
  std::int64_t first;
  std::int64_t second;
  if (column.kind == SettingKind::kNumber && parse_number(one, first) &&
      parse_number(other, second))
    return first == second;
  return one == other;
}

bool has_key(const TableLayout &layout, std::string_view words, std::string_view key) {
  for (std::size_t i = 0; i < layout.keys; ++i) {
    if (!is_same_word(layout.columns[i], take_word(words), take_word(key)))
      return false;
  }
  return true;
}

// The same number for equal keys.
std::uint64_t key_hash(const TableLayout &layout, std::string_view words) {
  std::uint64_t hash = kEmptyHash;
  for (std::size_t i = 0; i < layout.keys; ++i) {
    const std::string_view word = take_word(words);
    std::int64_t number;
    FixedText<24> decimal;
    const bool is_number =
        layout.columns[i].kind == SettingKind::kNumber && parse_number(word, number);
    if (is_number)
      append_decimal(decimal, number);
    hash = text_hash(" ", text_hash(is_number ? decimal.view() : word, hash));
  }
  return hash;
}

// Faults of a row.

void list_columns(FaultText &out, std::span<const Setting> columns) {
  for (const Setting &column : columns)
    append_text(out, &column == columns.data() ? "" : " ", column.key);
}

// Whether a row is malformed, and how.
bool is_malformed(const TableLayout &layout, std::string_view words, FaultText *fault) {
  const std::size_t count = count_words(words);
  if (count < layout.needed || count > layout.columns.size()) {
    if (fault != nullptr) {
      append_text(*fault, count < layout.needed ? "too few words; a row is: "
                                                : "too many words; a row is: ");
      list_columns(*fault, layout.columns);
    }
    return true;
  }
  for (std::size_t i = 0; i < count; ++i) {
    const Setting &column = layout.columns[i];
    const std::string_view word = take_word(words);
    if (takes_value(column, word))
      continue;
    if (fault != nullptr)
      append_text(*fault, column.key, ": \"", word.substr(0, 100), "\" is not allowed; it may be ",
                  allowed_values(column).view());
    return true;
  }
  return false;
}

// Changes.

// Replaces `removed` bytes of the text from `at` on.
int splice(Table &table, std::size_t at, std::size_t removed, std::string_view added) {
  const std::size_t length = table.length - removed + added.size();
  if (length > kTableSize)
    return -E2BIG;
  char *text = static_cast<char *>(malloc(length + 1));
  if (text == nullptr)
    return -ENOMEM;
  const std::string_view old = text_of(table);
  old.copy(text, at);
  added.copy(text + at, added.size());
  old.substr(at + removed).copy(text + at + added.size(), std::string_view::npos);
  text[length] = '\0';
  free(table.text);
  table = {text, length};
  return 0;
}

bool is_one_word(std::string_view value) {
  std::string_view rest = value;
  return !value.empty() && value[0] != '#' && value.find('\n') == std::string_view::npos &&
         take_word(rest).size() == value.size();
}

// Files.

int read_whole(int fd, Table &out) {
  const std::int64_t size = sys_size(fd);
  if (size < 0)
    return static_cast<int>(size);
  if (size > static_cast<std::int64_t>(kTableSize))
    return -E2BIG;
  Table table = {static_cast<char *>(malloc(static_cast<std::size_t>(size) + 1)), 0};
  if (table.text == nullptr)
    return -ENOMEM;
  while (table.length < static_cast<std::size_t>(size)) {
    const ssize_t count =
        sys_pread(fd, table.text + table.length, static_cast<std::size_t>(size) - table.length,
                  static_cast<std::int64_t>(table.length));
    if (count == -EINTR)
      continue;
    if (count < 0) {
      free_table(table);
      return static_cast<int>(count);
    }
    if (count == 0)  // an editor has cut it meanwhile
      break;
    table.length += static_cast<std::size_t>(count);
  }
  table.text[table.length] = '\0';
  out = table;
  return 0;
}

// Calls `change` with what the held file has, and replaces the file.
int change_held(const char *path, int held, int (*change)(Table &table, void *context),
                void *context) {
  Table before = {};
  int result = read_whole(held, before);
  if (result < 0)
    return result;
  Table after = {};
  result = splice(after, 0, 0, text_of(before));
  if (result == 0)
    result = change(after, context);
  if (result == 0 && text_of(after) != text_of(before)) {
    result = replace_file(path, held, text_of(after));
    // A full disk: what was there before fits in any case.
    if (result < 0)
      overwrite_file(held, text_of(before));
  }
  free_table(before);
  free_table(after);
  return result;
}

}  // namespace

int load_table(const char *path, Table &out) {
  const int fd = board_open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0)
    return fd;
  int result = sys_flock(fd, LOCK_SH);
  if (result == 0)
    result = read_whole(fd, out);
  sys_close(fd);
  return result;
}

void free_table(Table &table) {
  free(table.text);
  table = {};
}

bool next_row(const Table &table, const TableLayout &layout, TableRow &row) {
  while (next_words(table, row)) {
    if (!is_malformed(layout, row.words, nullptr))
      return true;
  }
  return false;
}

bool find_row(const Table &table, const TableLayout &layout, std::string_view key, TableRow &out) {
  if (count_words(key) != layout.keys)
    return false;
  TableRow row = {};
  while (next_row(table, layout, row)) {
    if (has_key(layout, row.words, key)) {
      out = row;
      return true;
    }
  }
  return false;
}

std::string_view row_word(const TableRow &row, std::size_t column) {
  std::string_view rest = row.words;
  for (; column > 0; --column)
    take_word(rest);
  return take_word(rest);
}

std::int64_t row_number(const TableRow &row, std::size_t column, std::int64_t fallback) {
  std::int64_t number;
  return parse_number(row_word(row, column), number) ? number : fallback;
}

int set_cell(Table &table, const TableLayout &layout, std::string_view key, std::size_t column,
             std::string_view value) {
  TableRow row;
  if (!find_row(table, layout, key, row))
    return -ENOENT;
  const std::size_t count = count_words(row.words);
  if (column < layout.keys || column > count || column >= layout.columns.size() ||
      !is_one_word(value) || !takes_value(layout.columns[column], value))
    return -EINVAL;
  const std::size_t begin = static_cast<std::size_t>(row.words.data() - table.text);
  if (column < count) {
    const std::string_view word = row_word(row, column);
    return splice(table, static_cast<std::size_t>(word.data() - table.text), word.size(), value);
  }
  FixedText<4096> added;
  append_text(added, " ", value);
  return added.overflow ? -E2BIG : splice(table, begin + row.words.size(), 0, added.view());
}

int append_row(Table &table, const TableLayout &layout, std::string_view words) {
  if (words.find('\n') != std::string_view::npos || without_comment(words).empty() ||
      is_malformed(layout, without_comment(words), nullptr))
    return -EINVAL;
  std::string_view rest = words;
  FixedText<1024> key;
  for (std::size_t i = 0; i < layout.keys; ++i)
    append_text(key, take_word(rest), " ");
  TableRow row;
  if (key.overflow)
    return -E2BIG;
  if (find_row(table, layout, key.view(), row))
    return -EEXIST;
  // A last line without its end is ended before another one follows.
  const bool is_open = table.length > 0 && table.text[table.length - 1] != '\n';
  FixedText<8192> line;
  append_text(line, is_open ? "\n" : "", words, "\n");
  return line.overflow ? -E2BIG : splice(table, table.length, 0, line.view());
}

int remove_row(Table &table, const TableLayout &layout, std::string_view key) {
  TableRow row;
  if (!find_row(table, layout, key, row))
    return -ENOENT;
  const std::size_t words = static_cast<std::size_t>(row.words.data() - table.text);
  const std::size_t before = text_of(table).substr(0, words).rfind('\n');
  const std::size_t begin = before == std::string_view::npos ? 0 : before + 1;
  return splice(table, begin, end_of_line(table, row) - begin, {});
}

int update_table(const char *path, int (*change)(Table &table, void *context), void *context) {
  int held = hold_file(path);
  if (held == -ENOENT) {
    Table table = {};
    const int result = change(table, context);
    const bool is_made = result == 0 && table.length > 0;
    free_table(table);
    if (!is_made)
      return result;
    // Somebody may make it meanwhile: the file that has the name when the lock is held counts.
    held = hold_file(path, O_CREAT);
  }
  if (held < 0)
    return held;
  const int result = change_held(path, held, change, context);
  sys_close(held);
  return result;
}

void check_table(const Table &table, const TableLayout &layout,
                 void (*report)(std::size_t line, std::string_view fault, void *context),
                 void *context) {
  std::size_t rows = 0;
  for (TableRow row = {}; next_words(table, row);)
    ++rows;
  // The rows so far by their keys' hash, open addressing; without memory no key is missed but
  // twice.
  std::size_t places = 16;
  while (places < 2 * rows)
    places *= 2;
  TableRow *seen = static_cast<TableRow *>(calloc(places, sizeof(TableRow)));
  for (TableRow row = {}; next_words(table, row);) {
    FaultText fault;
    if (is_malformed(layout, row.words, &fault)) {
      report(row.line, fault.view(), context);
      continue;
    }
    if (seen == nullptr)
      continue;
    std::size_t place = static_cast<std::size_t>(key_hash(layout, row.words)) & (places - 1);
    while (seen[place].line != 0 && !has_key(layout, row.words, seen[place].words))
      place = (place + 1) & (places - 1);
    if (seen[place].line == 0) {
      seen[place] = row;
      continue;
    }
    append_text(fault, "line ");
    append_decimal(fault, static_cast<std::int64_t>(seen[place].line));
    append_text(fault, " has this key already");
    report(row.line, fault.view(), context);
  }
  free(seen);
}

}  // namespace vboard
