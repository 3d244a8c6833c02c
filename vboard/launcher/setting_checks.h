// What is wrong with a setting of a node, for people.

#ifndef VBOARD_LAUNCHER_SETTING_CHECKS_H
#define VBOARD_LAUNCHER_SETTING_CHECKS_H
#include "vboard/launcher/node_tables.h"
#include "vboard/launcher/suggestions.h"

#include <string_view>

namespace vboard {

// Why a node with this table must not say "key = value"; empty when it may. `table` is that of the
// node which says it, so that a wrong model counts as the problem of the key "model".
Reason setting_problem(const NodeTable &table, std::string_view key, std::string_view value);

}  // namespace vboard

#endif
