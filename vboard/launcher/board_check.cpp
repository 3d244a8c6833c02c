#include "vboard/launcher/board_check.h"

#include "vboard/board/faults.h"
#include "vboard/interposer/models/models.h"
#include "vboard/launcher/draw_files.h"
#include "vboard/launcher/fault_checks.h"
#include "vboard/launcher/node_tables.h"
#include "vboard/launcher/setting_checks.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

namespace vboard {

namespace {

struct Check {
  const char *board, *shown;
  FILE *out;
  int count;
};

void report(Check &check, std::string_view file, int line, std::string_view reason) {
  fprintf(check.out, "%s/%.*s:%d: %.*s\n", check.shown, static_cast<int>(file.size()), file.data(),
          line, static_cast<int>(reason.size()), reason.data());
  ++check.count;
}

// A line without its comment and blanks.
std::string_view content_of(std::string_view line) {
  return trimmed(line.substr(0, line.find('#')));
}

// Media.

// Media that a disk reads and never makes, with the bytes that it needs of them.
struct NeededMedium {
  std::string_view key;
  std::int64_t least;
};
constexpr NeededMedium kDiskMedia[] = {
    {"identify", 512}, {"smart_values", 512}, {"smart_thresholds", 512}, {"ram", 1}};

struct MediumNeed {
  std::int64_t least;  // bytes
  bool is_made;        // by the first program that opens the device, when it is missing
};

MediumNeed medium_need(const BoardNode &node, std::string_view key) {
  const Model *model = node.table.model;
  if (model == nullptr)
    return {0, true};
  if (model == &kSataDiskModel) {
    for (const NeededMedium &one : kDiskMedia) {
      if (one.key == key)
        return {one.least, false};
    }
  }
  if (key != model->medium_setting)
    return {0, true};
  if (const std::int64_t size = number_of(node, "medium_size"); size > 0)
    return {size, true};
  if (model->medium_size > 0)
    return {static_cast<std::int64_t>(model->medium_size), true};
  // Without a size the device plays its medium, a time line, or is as large as its medium.
  return model->medium_is_stream ? MediumNeed{0, true} : MediumNeed{1, false};
}

void check_medium(Check &check, const BoardNode &node, int line, std::string_view key,
                  std::string_view value) {
  const MediumNeed need = medium_need(node, key);
  BoardPath path;
  struct stat status;
  Reason reason;
  append_text(reason, key, ": media/", value);
  if (find_medium(check.board, value, path) < 0 || stat(path.c_str(), &status) < 0) {
    if (need.is_made)
      return;
    append_text(reason, " is missing");
  } else if (status.st_size < need.least) {
    append_text(reason, " has ");
    append_decimal(reason, status.st_size);
    append_text(reason, " bytes and must have at least ");
    append_decimal(reason, need.least);
  } else {
    return;
  }
  report(check, node.name.view(), line, reason.view());
}

// Node files.

// The line that says a key first, which is the one that counts.
int first_line_of(const Node &node, std::string_view wanted) {
  std::string_view rest(node.text, node.length);
  std::string_view line;
  for (int number = 1; take_line(rest, line); ++number) {
    const std::size_t equals = line.find('=');
    if (equals != line.npos && trimmed(line.substr(0, equals)) == wanted)
      return number;
  }
  return 0;
}

void check_line(Check &check, const BoardNode &node, int number, std::string_view line) {
  line = trimmed(line);
  if (line.empty() || line[0] == '#')
    return;
  const std::size_t equals = line.find('=');
  const std::string_view key = trimmed(line.substr(0, equals));
  if (equals == line.npos || key.empty()) {
    report(check, node.name.view(), number, "not \"KEY = VALUE\"");
    return;
  }
  const std::string_view value = trimmed(line.substr(equals + 1));
  const Setting *row = find_row(node.table, key);
  // Which settings a device has is known with its model, whose own line says what is wrong with it.
  if (row == nullptr && node.table.problem.length > 0)
    return;
  Reason reason = setting_problem(node.table, key, value);
  if (const int first = first_line_of(node.node, key); first != number) {
    reason = {};
    append_text(reason, key, ": line ");
    append_decimal(reason, first);
    append_text(reason, " says it, and counts");
  }
  if (reason.length > 0)
    report(check, node.name.view(), number, reason.view());
  else if (row->kind == SettingKind::kMedium && !value.empty())
    check_medium(check, node, number, key, value);
}

void check_node(Check &check, std::string_view name) {
  BoardNode node;
  const int result = load_board_node(check.board, name, node);
  if (result < 0) {
    report(check, name, 1,
           result == -E2BIG    ? "a node file has 4095 bytes at most"
           : result == -ENOENT ? "is no node: nothing reads it"
                               : strerror(-result));
    return;
  }
  if (node.table.problem.length > 0 && first_line_of(node.node, "model") == 0)
    report(check, name, 1, node.table.problem.view());
  std::string_view rest(node.node.text, node.node.length);
  std::string_view line;
  for (int number = 1; take_line(rest, line); ++number)
    check_line(check, node, number, line);
}

// Faults and wires.

// The text of a file; empty for one that is missing.
std::string_view load_text(Check &check, const char *name, std::span<char> room) {
  const std::ptrdiff_t size = read_board_file(check.board, name, room.data(), room.size());
  if (size < 0 && size != -ENOENT)
    report(check, name, 1, strerror(static_cast<int>(-size)));
  if (size == std::ssize(room))
    report(check, name, 1, "is too long");
  return {room.data(), size < 0 ? 0 : static_cast<std::size_t>(size)};
}

void check_faults(Check &check) {
  static char text[65536];
  std::string_view rest = load_text(check, "faults", text);
  std::string_view line;
  for (int number = 1; take_line(rest, line); ++number) {
    Fault fault;
    char wrong[160];
    switch (parse_fault(line, fault, wrong)) {
      case FaultLine::kNothing:
        break;
      case FaultLine::kWrong:
        report(check, "faults", number, wrong);
        break;
      case FaultLine::kFault:
        if (const Reason reason = fault_problem(check.board, fault); reason.length > 0)
          report(check, "faults", number, reason.view());
    }
  }
}

void check_wire_end(Check &check, int number, std::string_view end) {
  BoardPath file;
  struct stat status;
  if (find_board_file(check.board, end, file) == 0 && stat(file.c_str(), &status) == 0)
    return;
  Reason reason;
  append_text(reason, "the board has no ", end);
  report(check, "sys.wires", number, reason.view());
}

void check_wires(Check &check) {
  static char text[sizeof Node::text];
  std::string_view rest = load_text(check, "sys.wires", text);
  std::string_view line;
  for (int number = 1; take_line(rest, line); ++number) {
    line = content_of(line);
    if (line.empty())
      continue;
    const std::string_view source = take_word(line);
    const std::string_view arrow = take_word(line);
    const std::string_view target = take_word(line);
    if (!source.starts_with("/sys/") || arrow != "->" || !target.starts_with("/sys/") ||
        !trimmed(line).empty()) {
      report(check, "sys.wires", number, "not \"/sys/FROM -> /sys/TO\"");
      continue;
    }
    check_wire_end(check, number, source);
    check_wire_end(check, number, target);
  }
}

}  // namespace

int check_board(const char *board, const char *shown, FILE *out) {
  Check check = {board, shown, out, 0};
  each_node(board, [&check](std::string_view name) { check_node(check, name); });
  Node clock;
  if (load_board_text(board, "clock", clock) != -ENOENT)
    check_node(check, "clock");
  check_faults(check);
  check_wires(check);
  return check.count;
}

}  // namespace vboard
