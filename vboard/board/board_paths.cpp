#include "vboard/board/board_paths.h"

#include "vboard/base/text.h"

#include <string.h>

namespace vboard {

namespace {

constexpr std::string_view kPcDevices[] = {"null",  "zero",   "full",   "random", "urandom", "tty",
                                           "stdin", "stdout", "stderr", "fd",     "pts",     "shm"};
constexpr std::string_view kOverlayRoots[] = {"proc", "etc", "var", "run", "mnt"};
constexpr std::string_view kRestartCommands[] = {"reboot", "poweroff", "halt", "shutdown"};

// The first component of a path without its leading slash.
std::string_view first_component(std::string_view path) {
  return path.substr(0, path.find('/'));
}

}  // namespace

Territory territory_of(std::string_view path) {
  path.remove_prefix(1);
  const std::string_view root = first_component(path);
  if (root == "sys")
    return Territory::kBoard;
  if (root == "dev") {
    if (path.size() == root.size())
      return Territory::kBoard;
    const std::string_view device = first_component(path.substr(root.size() + 1));
    for (const std::string_view one : kPcDevices) {
      if (device == one)
        return Territory::kPc;
    }
    return Territory::kBoard;
  }
  for (const std::string_view one : kOverlayRoots) {
    if (root == one)
      return Territory::kOverlay;
  }
  return Territory::kPc;
}

std::size_t normalise_path(std::string_view base, std::string_view path, std::span<char> out,
                           bool &names_directory) {
  names_directory = false;
  if (path.empty())
    return 0;
  std::size_t length = 0;
  const std::string_view sources[] = {path[0] == '/' ? std::string_view() : base, path};
  for (std::string_view rest : sources) {
    while (!rest.empty()) {
      const std::size_t end = rest.find('/');
      const std::string_view part = rest.substr(0, end);
      rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
      names_directory = end != std::string_view::npos && rest.empty();
      if (part.empty())
        continue;
      if (part == ".") {
        names_directory = true;
        continue;
      }
      if (part == "..") {
        names_directory = true;
        while (length > 0 && out[--length] != '/') {
        }
        continue;
      }
      if (length + part.size() + 2 > out.size())
        return 0;
      out[length++] = '/';
      memcpy(out.data() + length, part.data(), part.size());
      length += part.size();
    }
  }
  if (length == 0)
    out[length++] = '/';
  out[length] = '\0';
  return length;
}

bool is_reboot_command(std::string_view command) {
  std::string_view word = take_word(command);
  if (word == "exec" || word == "sudo")
    word = take_word(command);
  // "reboot;", "reboot&" end the word for a shell as well.
  word = word.substr(0, word.find_first_of(";&|\n"));
  const std::size_t slash = word.rfind('/');
  if (slash != std::string_view::npos)
    word.remove_prefix(slash + 1);
  for (const std::string_view one : kRestartCommands) {
    if (word == one)
      return true;
  }
  return false;
}

}  // namespace vboard
