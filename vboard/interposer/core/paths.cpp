#include "vboard/interposer/core/paths.h"

#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/fault_table.h"
#include "vboard/interposer/core/state.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

namespace vboard {

namespace {

constexpr int kMostLinks = 40;

char inside[kPathSize];  // the working directory, while it is one of the board
std::size_t inside_length;

// Appends to a path; false when it gets too long.
bool append(char *path, std::size_t &length, std::string_view piece) {
  if (length + piece.size() >= kPathSize)
    return false;
  piece.copy(path + length, piece.size());
  length += piece.size();
  path[length] = '\0';
  return true;
}

// The absolute directory that a relative path starts from; empty when there is none.
std::string_view base_of(int directory, char *buffer, bool &is_board) {
  is_board = false;
  if (directory == AT_FDCWD) {
    is_board = is_in_board();
    return working_directory(buffer, kPathSize);
  }
  Description *description = acquire(directory);
  if (description != nullptr) {
    is_board = true;
    std::size_t length = 0;
    append(buffer, length, description->asked);
    release(description);
    return {buffer, length};
  }
  FixedText<40> link;
  append_text(link, "/proc/self/fd/");
  append_decimal(link, directory);
  const ssize_t length = sys_readlink(link.c_str(), buffer, kPathSize);
  if (length <= 0 || buffer[0] != '/')
    return {};
  return {buffer, static_cast<std::size_t>(length)};
}

// Follows the board's own links below the board directory, as the kernel would below its root.
// `out.real` becomes the name without links, `out.host` the file. 0 or an errno.
int walk(bool follow, Resolved &out) {
  char rest_buffer[kPathSize];
  std::size_t rest_length = 0;
  if (!append(rest_buffer, rest_length, out.asked))
    return ENAMETOOLONG;
  std::string_view rest(rest_buffer, rest_length);
  const std::string_view root = board_root();
  std::size_t host_length = 0;
  if (!append(out.host, host_length, root))
    return ENAMETOOLONG;

  int links = 0;
  for (;;) {
    rest.remove_prefix(std::min(rest.find_first_not_of('/'), rest.size()));
    if (rest.empty())
      break;
    const std::string_view part = rest.substr(0, rest.find('/'));
    rest.remove_prefix(part.size());
    if (part == ".")
      continue;
    if (part == "..") {
      while (host_length > root.size() && out.host[--host_length] != '/') {
      }
      out.host[host_length] = '\0';
      continue;
    }
    const std::size_t above = host_length;
    if (!append(out.host, host_length, "/") || !append(out.host, host_length, part))
      return ENAMETOOLONG;
    if (rest.find_first_not_of('/') == std::string_view::npos && !follow)
      break;
    char target[kPathSize];
    const ssize_t size = board_readlink(out.host, target, sizeof target);
    if (size <= 0)
      continue;
    if (++links > kMostLinks)
      return ELOOP;
    std::size_t length = static_cast<std::size_t>(size);
    if (length == sizeof target || !append(target, length, rest))
      return ENAMETOOLONG;
    memcpy(rest_buffer, target, length + 1);
    rest = {rest_buffer, length};
    host_length = rest[0] == '/' ? root.size() : above;
    out.host[host_length] = '\0';
  }
  memcpy(out.real, out.host + root.size(), host_length - root.size() + 1);
  if (out.real[0] == '\0')
    memcpy(out.real, "/", 2);
  return 0;
}

// Whether an absolute name lies in the directory that the run began in: that one is the PC's,
// wherever it lies, as long as it is named relatively.
bool is_in_work(std::string_view name) {
  const std::string_view work = work_directory();
  // "/", "/var": whoever starts there does not mean all of it.
  if (work.size() < 2 || work.find('/', 1) == std::string_view::npos)
    return false;
  return name.starts_with(work) && (name.size() == work.size() || name[work.size()] == '/');
}

// Finds the file behind the name: the board's own, or the template's. 0, or the errno in `error`.
int look_up(Resolved &out) {
  char file[kPathSize];
  int result = sys_stat(out.host, out.status, false);
  if (result == -ENOENT && template_path(out.host, file, sizeof file) &&
      sys_stat(file, out.status, false) == 0) {
    memcpy(out.host, file, strlen(file) + 1);
    out.from_template = true;
    result = 0;
  }
  out.error = -result;
  return out.error;
}

void miss(Resolved &out, int error) {
  out.place = Place::kMissing;
  out.error = error;
}

}  // namespace

bool is_plainly_pc(const char *path) {
  if (path == nullptr || path[0] != '/')
    return path == nullptr;
  // An absolute path whose first component is none of the board's and which cannot turn back.
  const std::string_view text(path);
  return text.find("/.") == std::string_view::npos && text.find("//") == std::string_view::npos &&
         text.size() > 1 && territory_of(text) == Territory::kPc;
}

void resolve(int directory, const char *path, bool follow, Resolved &out) {
  out.place = Place::kPc;
  out.error = 0;
  out.traced = false;
  out.from_template = false;
  if (is_plainly_pc(path) || *path == '\0')
    return;

  char base_buffer[kPathSize];
  std::string_view base;
  bool base_is_board = false;
  if (*path != '/') {
    base = base_of(directory, base_buffer, base_is_board);
    if (base.empty())
      return;
  }
  bool names_directory;
  if (normalise_path(base, path, out.asked, names_directory) == 0)
    return;
  Territory territory = territory_of(out.asked);
  if (*path != '/' && territory == Territory::kOverlay && !base_is_board && is_in_work(out.asked))
    territory = Territory::kPc;
  if (territory == Territory::kPc) {
    if (base_is_board)
      out.place = Place::kPcByName;
    return;
  }
  out.traced = territory == Territory::kBoard;

  const int error = walk(follow || names_directory, out);
  if (error != 0) {
    miss(out, error);
    return;
  }
  const Territory end = territory_of(out.real);
  if (end == Territory::kPc && strcmp(out.asked, out.real) != 0) {
    // A link of the board leads to the PC: "/dev/console -> null", "/etc/image -> /tmp/image".
    memcpy(out.asked, out.real, sizeof out.asked);
    out.place = Place::kPcByName;
    out.traced = false;
    return;
  }
  if (is_absent({out.asked, out.real})) {
    out.traced = true;
    miss(out, ENOENT);
    return;
  }
  if (look_up(out) == 0) {
    out.traced = true;
    if (S_ISDIR(out.status.mode))
      out.place = Place::kDirectory;
    else if (names_directory)
      miss(out, ENOTDIR);
    else if (!S_ISREG(out.status.mode))
      out.place = Place::kFile;
    else
      out.place = end != Territory::kBoard                          ? Place::kFile
                  : std::string_view(out.real).starts_with("/sys/") ? Place::kAttribute
                                                                    : Place::kNode;
    return;
  }
  if (territory == Territory::kOverlay && (out.error == ENOENT || out.error == ENOTDIR)) {
    out.place = Place::kFallback;
    out.error = 0;
    return;
  }
  miss(out, out.error);
}

const char *host_path(const Resolved &resolved, const char *path) {
  switch (resolved.place) {
    case Place::kPc:
      return path;
    case Place::kPcByName:
    case Place::kFallback:
      return resolved.asked;
    default:
      return resolved.host;
  }
}

namespace {

// Makes the directories above the board's file that exist on the PC.
int make_parents(const Resolved &resolved) {
  char host[kPathSize];
  const std::size_t root = board_root().size();
  const std::size_t length = strlen(resolved.host);
  memcpy(host, resolved.host, length + 1);
  for (std::size_t at = root + 1; at < length; ++at) {
    if (host[at] != '/')
      continue;
    host[at] = '\0';
    FileStatus status;
    if (sys_stat(host, status) < 0) {
      int result = sys_stat(host + root, status);
      if (result < 0)
        return result;
      if (!S_ISDIR(status.mode))
        return -ENOTDIR;
      result = sys_mkdir(host, 0777);
      if (result < 0 && result != -EEXIST)
        return result;
    }
    host[at] = '/';
  }
  return 0;
}

}  // namespace

void name_own(Resolved &resolved) {
  if (!resolved.from_template)
    return;
  BoardPath own;
  if (find_board_file(board_root(), resolved.real, own) == 0)
    copy_text(resolved.host, own.view());
  resolved.from_template = false;
}

int take_over(Resolved &resolved) {
  if (!resolved.from_template)
    return 0;
  name_own(resolved);
  return own_board_file(resolved.host);
}

int copy_up(Resolved &resolved, bool with_content) {
  // The directories that the template has, then those of the PC.
  int result = own_board_file(resolved.host);
  if (result == 0)
    result = make_parents(resolved);
  if (result < 0)
    return result;
  FileStatus status;
  if (sys_stat(resolved.asked, status) < 0)
    return 0;
  if (S_ISDIR(status.mode))
    return -EISDIR;
  const int to =
      sys_open(resolved.host, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, status.mode & 0777);
  if (to < 0)
    return to == -EEXIST ? 0 : to;
  if (with_content && S_ISREG(status.mode)) {
    const int from = sys_open(resolved.asked, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    result = from < 0 ? from : copy_bytes(from, to);
    if (from >= 0)
      sys_close(from);
  }
  sys_close(to);
  // Half of a file must not stand for all of it.
  if (result < 0)
    sys_unlink(resolved.host);
  return result;
}

void set_board_directory(std::string_view name) {
  lock_board();
  inside_length = 0;
  append(inside, inside_length, name);
  unlock_board();
  run_page().has_opened.store(1, std::memory_order_relaxed);
}

void take_working_directory() {
  char buffer[kPathSize];
  const std::string_view name = working_directory(buffer, sizeof buffer);
  const std::string_view root = board_root();
  if (name.starts_with(root) && name.substr(root.size()).starts_with('/'))
    set_board_directory(name.substr(root.size()));
}

std::string_view working_directory(char *buffer, std::size_t size) {
  if (inside_length > 0) {
    lock_board();
    memcpy(buffer, inside, inside_length + 1);
    const std::size_t length = inside_length;
    unlock_board();
    return {buffer, length};
  }
  const ssize_t length = sys_getcwd(buffer, size);
  // The kernel counts the end of the text, and writes "(unreachable)" before some.
  if (length <= 1 || buffer[0] != '/')
    return {};
  return {buffer, static_cast<std::size_t>(length - 1)};
}

bool is_in_board() {
  return inside_length > 0;
}

}  // namespace vboard
