#include "vboard/launcher/draw_settings.h"

#include "vboard/base/decimal.h"
#include "vboard/launcher/draw_files.h"
#include "vboard/launcher/draw_text.h"
#include "vboard/launcher/suggestions.h"

#include <string.h>

namespace vboard {

namespace {

// One setting of a node: `row` is null for one that its table does not have.
struct Shown {
  std::string_view key;
  const Setting *row;
  std::string_view raw;    // as the file has it
  std::string_view value;  // as it counts
  std::string_view fresh;  // as it counts on a new board
  const char *origin;      // where `fresh` comes from
};

enum class Mark : char { kNone = ' ', kDiffers = '*', kWrong = '!' };

bool is_same(const Setting &row, std::string_view one, std::string_view other) {
  std::int64_t a;
  std::int64_t b;
  if (row.kind == SettingKind::kNumber && parse_number(one, a) && parse_number(other, b))
    return a == b;
  if (row.kind == SettingKind::kDecimal)
    return decimal_or(one, 0) == decimal_or(other, 0);
  return one == other;
}

Mark mark_of(const Shown &shown) {
  if (shown.row == nullptr || !takes_value(*shown.row, shown.raw))
    return Mark::kWrong;
  return is_same(*shown.row, shown.value, shown.fresh) ? Mark::kNone : Mark::kDiffers;
}

std::string_view or_dash(std::string_view value) {
  return value.empty() ? "-" : value;
}

// Calls `visit` with the key of each line of a node's text, until it returns true: whether it did.
template <typename Visit>
bool any_key(const Node &node, Visit visit) {
  std::string_view rest(node.text, node.length);
  std::string_view line;
  while (take_line(rest, line)) {
    const std::size_t equals = line.find('=');
    const std::string_view key = trimmed(line.substr(0, equals));
    if (equals != line.npos && !key.empty() && key[0] != '#' && visit(key))
      return true;
  }
  return false;
}

template <typename Visit>
void show_one(const BoardNode &node, const Node &fresh, const Setting &row, std::string_view key,
              Visit visit) {
  visit(Shown{key, &row, node_text(node.node, key), setting_of(node.node, row, key),
              setting_of(fresh, row, key), fresh.length > 0 ? "on a new board" : "by default"});
}

// A row whose key holds a number: each number that the node or a new board has a value for.
template <typename Visit>
void show_numbered(const BoardNode &node, const Node &fresh, const Setting &row, Visit visit) {
  bool any = false;
  auto show = [&](std::string_view key) {
    any = true;
    show_one(node, fresh, row, key, visit);
    return false;
  };
  const std::span<const Setting> table(&row, 1);
  any_key(node.node,
          [&](std::string_view key) { return find_setting(table, key) != nullptr && show(key); });
  any_key(fresh, [&](std::string_view key) {
    const bool is_shown = any_key(node.node, [key](std::string_view one) { return one == key; });
    return find_setting(table, key) != nullptr && !is_shown && show(key);
  });
  if (!any)
    show_one(node, fresh, row, row.key, visit);
}

template <typename Visit>
void each_setting(const BoardNode &node, const Node &fresh, Visit visit) {
  for (const std::span<const Setting> table : {node.table.settings, node.table.common}) {
    for (const Setting &row : table) {
      if (strchr(row.key, '#') != nullptr)
        show_numbered(node, fresh, row, visit);
      else
        show_one(node, fresh, row, row.key, visit);
    }
  }
  any_key(node.node, [&](std::string_view key) {
    if (find_row(node.table, key) == nullptr)
      visit(Shown{key, nullptr, node_text(node.node, key), {}, {}, ""});
    return false;
  });
}

void print_cell(FILE *out, int width, std::string_view text) {
  print(out, text);
  fprintf(out, "%*s ",
          text.size() < static_cast<std::size_t>(width) ? width - static_cast<int>(text.size()) : 0,
          "");
}

void draw_setting(FILE *out, const Shown &shown) {
  const Mark mark = mark_of(shown);
  fprintf(out, "%c ", static_cast<char>(mark));
  print_cell(out, 16, shown.key);
  print_cell(out, 20, or_dash(mark == Mark::kWrong ? shown.raw : shown.value));
  if (shown.row == nullptr) {
    print_cell(out, 12, "-");
    fputs("the device has no such setting\n", out);
    return;
  }
  print_cell(out, 12, or_dash(shown.row->otherwise));
  fputs(shown.row->help, out);
  if (mark == Mark::kWrong)
    fprintf(out, " (may be %s)", allowed_values(*shown.row).c_str());
  else if (mark == Mark::kDiffers)
    fprintf(out, " (%.*s %s)", static_cast<int>(or_dash(shown.fresh).size()),
            or_dash(shown.fresh).data(), shown.origin);
  fputc('\n', out);
}

void draw_comments(const Node &node, FILE *out) {
  std::string_view rest(node.text, node.length);
  std::string_view line;
  while (take_line(rest, line)) {
    if (!trimmed(line).starts_with('#'))
      continue;
    print(out, line);
    fputc('\n', out);
  }
}

}  // namespace

Node fresh_node(const char *board_template, std::string_view name) {
  name = powered_name(name);
  Node node;
  if (board_template == nullptr || load_board_text(board_template, name, node) < 0) {
    node.length = 0;
    node.text[0] = '\0';
  }
  return node;
}

void draw_settings(const BoardNode &node, const Node &fresh, FILE *out) {
  draw_comments(node.node, out);
  if (node.table.problem.length > 0)
    fprintf(out, "%s\n", node.table.problem.c_str());
  fputs("  ", out);
  print_cell(out, 16, "setting");
  print_cell(out, 20, "value");
  print_cell(out, 12, "default");
  fputs("meaning\n", out);
  each_setting(node, fresh, [out](const Shown &shown) { draw_setting(out, shown); });
}

void each_change(const BoardNode &node, const Node &fresh,
                 void (*visit)(std::string_view change, void *context), void *context) {
  each_setting(node, fresh, [&](const Shown &shown) {
    const Mark mark = mark_of(shown);
    Reason text;
    append_text(text, shown.key, " = ", or_dash(mark == Mark::kWrong ? shown.raw : shown.value));
    if (shown.row == nullptr)
      append_text(text, " (the device has no such setting)");
    else if (mark == Mark::kWrong)
      append_text(text, " (counts as ", or_dash(shown.value), ")");
    else
      append_text(text, " (", or_dash(shown.fresh), " ", shown.origin, ")");
    if (mark != Mark::kNone)
      visit(text.view(), context);
  });
}

}  // namespace vboard
