// The board's map, /etc/benchrig/board.conf: which kernel attribute belongs to what of this board.
// docs/board.conf.md describes the file and every key.

#ifndef PLATFORM_BOARD_CONF_H
#define PLATFORM_BOARD_CONF_H

#include <cstddef>
#include <string_view>

namespace rigcore {

// Room for any entry's value, terminator included; a longer one in the file is ENAMETOOLONG.
inline constexpr std::size_t kEntrySize = 256;

// Looks an entry of this board up and copies its value, terminated. The file is read when the first
// entry is needed, once in a process, and what is wrong with it is reported on stderr then. -1 with
// ENODEV when neither the file nor the defaults of this board name a value, ENAMETOOLONG when the
// value does not fit, or why the file could not be read.
int board_entry(const char *key, char *value, std::size_t size);

// The entry `family`.`index`, such as "alarm.input.3".
int board_entry(const char *family, unsigned int index, char *value, std::size_t size);

// The parts that know nothing of this board.

// A map in memory.
struct BoardMap {
  std::size_t length;
  int error;         // errno of reading it, 0 when it was read or does not exist
  bool is_recorder;  // the board is the one whose defaults recorder_map() names
  char text[32768];
};

// What holds where the file says nothing, written as the file would be: on every board, because the
// kernel, the boot loader or a standard fixes the names; and on the recorder alone, because its
// wiring and its device tree do.
std::string_view general_map();
std::string_view recorder_map();

// Whether a device tree's "compatible" property, a list of terminated names, is a recorder's.
bool names_recorder(std::string_view compatible);

// Reads the file. One that does not exist is an empty map; one that is too long is EFBIG.
void read_board_map(const char *path, BoardMap &map);

// Finds the last line of `text` that gives `key` a value, which may be empty.
bool find_entry(std::string_view text, std::string_view key, std::string_view *value);

// Something in the file that its writer should know of.
struct Complaint {
  int line;  // from 1
  enum { kNoEntry, kUnknownKey, kQuotedValue } what;
  std::string_view key;
};

// Takes lines off `text`, counting them in `line`, up to the next one with a complaint. False when
// there is none left.
bool next_complaint(std::string_view &text, int &line, Complaint &out);

// board_entry() on a given map over the defaults.
int map_entry(const BoardMap &map, std::string_view key, char *value, std::size_t size);

}  // namespace rigcore

#endif
