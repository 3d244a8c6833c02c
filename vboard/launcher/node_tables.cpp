#include "vboard/launcher/node_tables.h"

#include "vboard/board/firmware_part.h"
#include "vboard/interposer/models/models.h"
#include "vboard/launcher/draw_files.h"
#include "vboard/launcher/model_library.h"

#include <errno.h>
#include <sys/stat.h>

namespace vboard {

namespace {

using enum SettingKind;

// The clock file, which the launcher itself keeps.
constexpr Setting kClockSettings[] = {
    {.key = "ahead_ns",
     .kind = kNumber,
     .otherwise = "0",
     .help = "nanoseconds that the board's calendar is ahead of the PC's",
     .least = INT64_MIN},
    {.key = "boots", .kind = kNumber, .otherwise = "0", .help = "how often the board was reset"},
    {.key = "reset_at",
     .kind = kNumber,
     .otherwise = "",
     .help = "the calendar time at which an armed watchdog bites, in nanoseconds since 1970",
     .least = INT64_MIN},
};

void use_model(NodeTable &out, const Model *model) {
  out.model = model;
  if (model != nullptr)
    out.settings = model->settings;
}

void find_device_model(const char *file, const Node &node, NodeTable &out) {
  out.common = common_settings();
  const std::string_view name = node_text(node, "model");
  if (name.find('/') != name.npos) {
    use_model(out, load_model_library(name, file, out.problem));
    return;
  }
  use_model(out, find_model(name));
  if (out.model != nullptr)
    return;
  if (name.empty())
    append_text(out.problem, "no \"model = NAME\"");
  else
    append_text(out.problem, "no such model: ", name);
}

}  // namespace

bool find_table(std::string_view name, const char *file, const Node &node, NodeTable &out) {
  out = {};
  name = powered_name(name);
  if (name.starts_with("dev/"))
    find_device_model(file, node, out);
  else if (name.starts_with("net/"))
    use_model(out, &kInterfaceModel);
  else if (name == "netlink/connector")
    use_model(out, &kProcConnectorModel);
  else if (name.starts_with("firmware/"))
    out.settings = firmware_settings();
  else if (name == "clock")
    out.settings = kClockSettings;
  else
    return false;
  return true;
}

int load_board_node(const char *board, std::string_view name, BoardNode &out) {
  out.name = {};
  append_text(out.name, name);
  int result = find_board_file(board, name, out.file);
  if (result == 0)
    result = load_node(out.file.c_str(), out.node);
  if (result < 0)
    return result;
  return find_table(name, out.file.c_str(), out.node, out.table) ? 0 : -ENOENT;
}

BoardPath board_name(std::string_view node) {
  BoardPath name;
  while (node.starts_with('/'))
    node.remove_prefix(1);
  if (node.starts_with("net:"))
    append_text(name, "net/", node.substr(4));
  else
    append_text(name, node);
  return name;
}

const Setting *find_row(const NodeTable &table, std::string_view key) {
  const Setting *row = find_setting(table.settings, key);
  return row != nullptr ? row : find_setting(table.common, key);
}

std::string_view text_of(const BoardNode &node, std::string_view key) {
  const Setting *row = find_row(node.table, key);
  return row != nullptr ? setting_of(node.node, *row, key) : std::string_view();
}

std::int64_t number_of(const BoardNode &node, std::string_view key) {
  const Setting *row = find_row(node.table, key);
  return row != nullptr ? setting_number_of(node.node, *row, key) : 0;
}

namespace {

void each_node_of(const char *board, std::string_view folder,
                  void (*visit)(std::string_view name, void *context), void *context) {
  BoardPath path;
  append_text(path, folder);
  dirent **names;
  const int count = list_folder(board, path.c_str(), names);
  for (int i = 0; i < count; ++i) {
    BoardPath name;
    BoardPath file;
    struct stat status;
    append_text(name, folder, "/", names[i]->d_name);
    if (find_board_file(board, name.view(), file) < 0 || stat(file.c_str(), &status) < 0)
      continue;
    if (S_ISDIR(status.st_mode))
      each_node_of(board, name.view(), visit, context);
    // A library with a model lies beside the node files.
    else if (S_ISREG(status.st_mode) && !name.view().ends_with(".so"))
      visit(name.view(), context);
  }
  free_names(names, count);
}

}  // namespace

void each_node(const char *board, void (*visit)(std::string_view name, void *context),
               void *context) {
  for (const char *folder : {"dev", "unpowered/dev", "net", "netlink", "firmware"})
    each_node_of(board, folder, visit, context);
}

}  // namespace vboard
