#include "vboard/launcher/fault_checks.h"

#include "vboard/board/board_paths.h"
#include "vboard/interposer/models/models.h"
#include "vboard/launcher/node_tables.h"

#include <sys/stat.h>

namespace vboard {

namespace {

constexpr std::string_view kInterface = "net:";

// A storage device that is switched off comes back under its own name.
bool board_has(const char *board, std::string_view name, BoardPath &out) {
  for (const std::string_view folder : {std::string_view(), kUnpowered}) {
    out = {};
    append_text(out, folder, name);
    BoardPath file;
    struct stat status;
    if (find_board_file(board, out.view(), file) == 0 && lstat(file.c_str(), &status) == 0)
      return true;
  }
  return false;
}

// A node as a fault names it: "/dev/lcd", "net:ppp0". Empty for what no fault can name.
BoardPath fault_name(std::string_view name) {
  BoardPath out;
  name = powered_name(name);
  if (name.starts_with("dev/"))
    append_text(out, "/", name);
  else if (name.starts_with("net/"))
    append_text(out, kInterface, name.substr(name.find('/') + 1));
  return out;
}

Reason no_node(const char *board, const Fault &fault) {
  Suggestions suggestions = {fault.node, {}, {}};
  each_node(board, [&suggestions](std::string_view name) {
    const BoardPath known = fault_name(name);
    if (known.length > 0)
      suggest(suggestions, known.view());
  });
  suggest(suggestions, "socket");
  Reason out;
  append_text(out, "the board has no ", fault.node);
  append_suggestions(out, suggestions);
  return out;
}

// The models that answer requests on a node; a socket has those of its kind.
struct Answering {
  const Model *models[2];
  std::size_t count;
  Reason problem;  // why no model is known
};

Answering answering_models(const char *board, std::string_view node, std::string_view board_file) {
  if (node == "socket")
    return {{&kInterfaceModel, &kProcConnectorModel}, 2, {}};
  Answering out = {};
  BoardNode found;
  if (load_board_node(board, board_file, found) < 0)
    return out;
  out.models[0] = found.table.model;
  out.count = found.table.model != nullptr;
  append_text(out.problem, found.table.problem.view());
  return out;
}

Reason request_problem(const Fault &fault, const Answering &answering) {
  Reason out;
  Suggestions suggestions = {fault.request, {}, {}};
  for (std::size_t i = 0; i < answering.count; ++i) {
    for (const Request &request : answering.models[i]->requests) {
      if (suggestions.word == request.name)
        return out;
      suggest(suggestions, request.name);
    }
  }
  append_text(out, fault.node, " has no request ", fault.request);
  if (answering.problem.length > 0)
    append_text(out, ": ", answering.problem.view());
  append_suggestions(out, suggestions);
  return out;
}

}  // namespace

Reason fault_problem(const char *board, const Fault &fault) {
  const std::string_view node = fault.node;
  if (node.ends_with('*'))
    return {};
  BoardPath board_file;
  if (node != "socket" && !board_has(board, board_name(node).view(), board_file)) {
    struct stat status;
    const bool is_pc_file = node[0] == '/' && territory_of(node) != Territory::kBoard &&
                            lstat(fault.node, &status) == 0;
    if (!is_pc_file && !node.starts_with("/sys/"))
      return no_node(board, fault);
  }
  if (fault.request[0] == '\0' || fault.by_number)
    return {};
  return request_problem(fault, answering_models(board, node, board_file.view()));
}

}  // namespace vboard
