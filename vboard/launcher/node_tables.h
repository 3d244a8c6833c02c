// The nodes of a board, each with the tables that say what its file may hold and what it answers.

#ifndef VBOARD_LAUNCHER_NODE_TABLES_H
#define VBOARD_LAUNCHER_NODE_TABLES_H
#include "vboard/board/board_files.h"
#include "vboard/interposer/models/model.h"

#include <span>
#include <string_view>

namespace vboard {

// The folder of storage devices that are switched off; they come back under their own names.
inline constexpr std::string_view kUnpowered = "unpowered/";
inline std::string_view powered_name(std::string_view name) {
  return name.substr(name.starts_with(kUnpowered) ? kUnpowered.size() : 0);
}

struct NodeTable {
  const Model *model;  // null for a part, for the clock, and for a model that nobody knows
  std::span<const Setting> settings;
  std::span<const Setting> common;  // what every node of dev/ may say, too
  FixedText<600> problem;           // why no model answers; empty when all is well
};

// A node of a board, read from its file.
struct BoardNode {
  BoardPath name;  // "dev/rtc0", "net/ppp0", "unpowered/dev/sda"
  BoardPath file;
  Node node;
  NodeTable table;
};

// The table of the node file `name`, whose text is `node`. False for a file that is no node.
bool find_table(std::string_view name, const char *file, const Node &node, NodeTable &out);

// Reads the node file `name`: 0, or a negated errno (ENOENT also for a file that is no node).
int load_board_node(const char *board, std::string_view name, BoardNode &out);

// The name of a node below the board's directory, as people write it: "/dev/lcd", "net:ppp0".
BoardPath board_name(std::string_view node);

// The row of a setting; null for a key that the node does not have.
const Setting *find_row(const NodeTable &table, std::string_view key);

// A setting as the node's model reads it; empty and 0 for a key that the node does not have.
std::string_view text_of(const BoardNode &node, std::string_view key);
std::int64_t number_of(const BoardNode &node, std::string_view key);
inline bool is_on(const BoardNode &node, std::string_view key) {
  return number_of(node, key) != 0;
}

// Calls `visit` with the name of every node file of the board, in an order that is always the same:
// devices, those that are switched off, interfaces, the connector, parts that take firmware.
void each_node(const char *board, void (*visit)(std::string_view name, void *context),
               void *context);
template <typename Visit>
void each_node(const char *board, Visit visit) {
  each_node(
      board, [](std::string_view name, void *context) { (*static_cast<Visit *>(context))(name); },
      &visit);
}

}  // namespace vboard

#endif
