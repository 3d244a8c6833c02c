#include "vboard/board/faults.h"

#include "vboard/base/text.h"

#include <string.h>

namespace vboard {

namespace {

constexpr std::string_view kCalls[] = {"open", "close", "read", "write", "ioctl", "mmap", "socket"};

FaultLine wrong(std::span<char> reason, std::string_view what, std::string_view word) {
  TextBuffer text = {reason.data(), reason.size() - 1, 0, false};
  append_text(text, what);
  if (!word.empty()) {
    append_text(text, " '");
    append_text(text, word);
    append_text(text, "'");
  }
  reason[text.length] = '\0';
  return FaultLine::kWrong;
}

bool parse_call(std::string_view word, Fault &out) {
  const std::size_t colon = word.find(':');
  const std::string_view call = word.substr(0, colon);
  bool known = false;
  for (const std::string_view one : kCalls)
    known = known || call == one;
  if (!known || !copy_text(out.call, call))
    return false;
  if (colon == std::string_view::npos)
    return true;
  const std::string_view request = word.substr(colon + 1);
  if (call != "ioctl" || request.empty() || !copy_text(out.request, request))
    return false;
  std::int64_t number;
  if (parse_number(request, number)) {
    out.by_number = true;
    out.number = static_cast<std::uint32_t>(number);
  }
  return true;
}

bool parse_effect(std::string_view word, Fault &out) {
  if (word.starts_with("errno=")) {
    out.effect = FaultEffect::kErrno;
    out.value = parse_errno(word.substr(6));
    return out.value != 0;
  }
  if (word.starts_with("result=")) {
    out.effect = FaultEffect::kResult;
    return parse_number(word.substr(7), out.value);
  }
  if (word == "power-cut") {
    out.effect = FaultEffect::kPowerCut;
    return true;
  }
  if (word.starts_with("short=")) {
    out.effect = FaultEffect::kShort;
    // Only bytes can be cut short.
    const bool bytes =
        std::string_view(out.call) == "read" || std::string_view(out.call) == "write";
    return bytes && parse_number(word.substr(6), out.value) && out.value >= 0;
  }
  return false;
}

bool parse_window(std::string_view word, Fault &out) {
  const std::size_t dots = word.find("..");
  if (dots == std::string_view::npos || out.window_count == std::size(out.windows))
    return false;
  FaultWindow window = {0, INT64_MAX};
  const std::string_view from = word.substr(0, dots);
  const std::string_view to = word.substr(dots + 2);
  if ((!from.empty() && !parse_seconds(from, window.from)) ||
      (!to.empty() && !parse_seconds(to, window.to)) || window.to < window.from)
    return false;
  out.windows[out.window_count++] = window;
  return true;
}

bool parse_when(std::string_view word, Fault &out) {
  if (word.starts_with("time="))
    return parse_window(word.substr(5), out);
  std::int64_t n;
  if (out.effect == FaultEffect::kAbsent || out.count != FaultCount::kEvery)
    return false;
  if (word.starts_with("nth=") && parse_number(word.substr(4), n) && n > 0)
    out.count = FaultCount::kNth;
  else if (word.starts_with("from=") && parse_number(word.substr(5), n) && n > 0)
    out.count = FaultCount::kFrom;
  else
    return false;
  out.n = static_cast<std::uint64_t>(n);
  return true;
}

}  // namespace

FaultLine parse_fault(std::string_view line, Fault &out, std::span<char> reason) {
  std::string_view rest = line.substr(0, line.find_first_of("#\n"));
  const std::string_view node = take_word(rest);
  if (node.empty())
    return FaultLine::kNothing;

  Fault fault = {};
  if (node[0] != '/' && node != "socket" && !node.starts_with("net:"))
    return wrong(reason, "a node is an absolute path, net:NAME or socket, not", node);
  if (!copy_text(fault.node, node))
    return wrong(reason, "the node's name is too long", {});

  const std::string_view call = take_word(rest);
  if (call.empty())
    return wrong(reason, "the call is missing", {});
  if (call == "absent") {
    fault.effect = FaultEffect::kAbsent;
  } else {
    if (!parse_call(call, fault))
      return wrong(reason, "unknown call", call);
    const std::string_view effect = take_word(rest);
    if (effect.empty())
      return wrong(reason, "the effect is missing", {});
    if (!parse_effect(effect, fault))
      return wrong(reason, "wrong effect", effect);
  }
  for (std::string_view word = take_word(rest); !word.empty(); word = take_word(rest)) {
    if (!parse_when(word, fault))
      return wrong(reason, "wrong condition", word);
  }
  out = fault;
  return FaultLine::kFault;
}

bool fault_names_node(const Fault &fault, std::string_view node) {
  const std::string_view name = fault.node;
  if (name.ends_with('*'))
    return node.starts_with(name.substr(0, name.size() - 1));
  if (!node.starts_with(name))
    return false;
  if (node.size() == name.size())
    return true;
  return fault.effect == FaultEffect::kAbsent && node[name.size()] == '/';
}

bool fault_names_call(const Fault &fault, std::string_view call, const char *request,
                      std::uint32_t number) {
  if (fault.effect == FaultEffect::kAbsent || call != fault.call)
    return false;
  if (fault.by_number)
    return number == fault.number;
  if (fault.request[0] == '\0')
    return true;
  return request != nullptr && strcmp(request, fault.request) == 0;
}

bool fault_is_due(const Fault &fault, std::uint64_t nth, std::int64_t now) {
  if ((fault.count == FaultCount::kNth && nth != fault.n) ||
      (fault.count == FaultCount::kFrom && nth < fault.n))
    return false;
  if (fault.window_count == 0)
    return true;
  for (std::size_t i = 0; i < fault.window_count; ++i) {
    if (now >= fault.windows[i].from && now < fault.windows[i].to)
      return true;
  }
  return false;
}

}  // namespace vboard
