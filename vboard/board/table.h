// Tables: text files for what a node file has no room for, such as the pins of a chip or the
// registers of a PHY. A row a line, words separated by blanks, and the first words are the row's
// key:
//
//   # pin  direction  level
//   4      out        1        # the green LED
//
// "#" begins a comment, at the front of a line or of a word. Comments, blank lines and the spacing
// of what does not change are kept. A file has 1 MiB at most; it is changed under its lock and
// replaced as a whole.
//
// Results are zero or positive, or a negated errno.

#ifndef VBOARD_BOARD_TABLE_H
#define VBOARD_BOARD_TABLE_H

#include "vboard/board/settings.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vboard {

inline constexpr std::size_t kTableSize = 1 << 20;

// What the rows are: their columns in order, of which the first `keys` are the key. A row that has
// fewer than `needed` words, or more than there are columns, or a value that its column does not
// take, is malformed. Finding and visiting skip it.
struct TableLayout {
  std::size_t keys;
  std::size_t needed;
  std::span<const Setting> columns;
};

struct Table {
  char *text;  // as it stands, on the heap; null while there is none
  std::size_t length;
};

// A row, until the table changes.
struct TableRow {
  std::string_view words;  // without the comment
  std::size_t line;        // from 1 on
};

// Reads the file under a shared lock; E2BIG for a longer one. `out` is untouched on failure, and
// belongs to the caller otherwise, who frees it.
int load_table(const char *path, Table &out);
void free_table(Table &table);

// Rows in order: `row` is all zeros before the first one.
bool next_row(const Table &table, const TableLayout &layout, TableRow &row);
// The first row with this key: its words separated by blanks. Where the column holds numbers, 0x10
// is 16.
bool find_row(const Table &table, const TableLayout &layout, std::string_view key, TableRow &out);
// A word of a row, counted from 0; empty for a row that has fewer.
std::string_view row_word(const TableRow &row, std::size_t column);
// The same as a number; `fallback` where it is none.
std::int64_t row_number(const TableRow &row, std::size_t column, std::int64_t fallback);

// Changes in memory. EINVAL for what would make a malformed row, ENOENT without a row of this key,
// EEXIST for a second one, E2BIG, ENOMEM; the table then stays as it was.

// The column may be the one after the row's last word.
int set_cell(Table &table, const TableLayout &layout, std::string_view key, std::size_t column,
             std::string_view value);
// Adds a row at the end: its words separated by blanks.
int append_row(Table &table, const TableLayout &layout, std::string_view words);
// Removes the row's whole line, with the comment on it.
int remove_row(Table &table, const TableLayout &layout, std::string_view key);

// Changes the file under its exclusive lock: reads it, calls `change`, and replaces it when that
// answered 0 and changed anything. A missing file counts as an empty one and is made when something
// is in the table then. What `change` answers is the result; it may be called twice, each time with
// the table as it is in the file.
int update_table(const char *path, int (*change)(Table &table, void *context), void *context);

// Reports what is wrong with each malformed row, and each row whose key an earlier one has.
void check_table(const Table &table, const TableLayout &layout,
                 void (*report)(std::size_t line, std::string_view fault, void *context),
                 void *context);

}  // namespace vboard

#endif
