#include "vboard/interposer/core/opening.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/device_lock.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/model_libraries.h"
#include "vboard/interposer/core/shared_files.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/timer_files.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <atomic>

namespace vboard {

namespace {

constexpr char kSocket[] = "socket";

struct FlagName {
  int bits;
  const char *name;
};

// clang-format off
constexpr FlagName kFlagNames[] = {
  {O_CREAT, "CREAT"}, {O_EXCL, "EXCL"}, {O_TRUNC, "TRUNC"}, {O_APPEND, "APPEND"},
  {O_NONBLOCK, "NONBLOCK"}, {O_SYNC, "SYNC"}, {O_NOCTTY, "NOCTTY"}, {O_DIRECTORY, "DIRECTORY"},
  {O_NOFOLLOW, "NOFOLLOW"}, {O_CLOEXEC, "CLOEXEC"}, {O_DIRECT, "DIRECT"}, {O_PATH, "PATH"},
};
// clang-format on

void complain(std::string_view file, std::string_view what) {
  FixedText<kPathSize + 300> line;
  append_text(line, "vboard: ", file, ": ", what, "\n");
  sys_write(2, line.data, line.length);
}

int fill_medium(int fd, std::size_t size, unsigned char fill) {
  if (fill == 0)
    return sys_ftruncate(fd, static_cast<std::int64_t>(size));
  unsigned char block[4096];
  memset(block, fill, sizeof block);
  for (std::size_t done = 0; done < size;) {
    const std::size_t piece = size - done < sizeof block ? size - done : sizeof block;
    const ssize_t count = sys_write(fd, block, piece);
    if (count < 0)
      return static_cast<int>(count);
    done += static_cast<std::size_t>(count);
  }
  return 0;
}

// Makes a missing medium under another name first: a second run must not see half of one.
int make_medium(const char *path, std::size_t size, unsigned char fill) {
  BoardPath fresh;
  append_text(fresh, path, ".new.");
  append_decimal(fresh, pc_monotonic());
  if (fresh.overflow)
    return -ENAMETOOLONG;
  const int fd = board_open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0)
    return fd;
  int result = fill_medium(fd, size, fill);
  sys_close(fd);
  if (result == 0)
    result = sys_rename(fresh.c_str(), path);
  if (result < 0)
    sys_unlink(fresh.c_str());
  return result;
}

// Opens the medium of a node, if it has one: zero, or a negated errno.
int open_medium(const char *node, Description &description) {
  OpenFile &file = description.file;
  const std::string_view medium = node_text(file.node, file.model->medium_setting);
  if (medium.empty())
    return 0;
  BoardPath path;
  if (find_medium(board_root(), medium, path) < 0) {
    complain(node, "the medium's name is wrong");
    return -ENXIO;
  }
  constexpr int flags = O_NOCTTY | O_CLOEXEC;
  int fd = board_open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd == -ENOENT) {
    const std::int64_t size =
        node_number(file.node, "medium_size", static_cast<std::int64_t>(file.model->medium_size));
    const int result = make_medium(path.c_str(), size > 0 ? static_cast<std::size_t>(size) : 0,
                                   file.model->medium_fill);
    fd = result < 0 ? result : board_open(path.c_str(), O_RDWR | O_CLOEXEC);
  }
  // A board on a read-only disk can still be looked at.
  if (fd == -EACCES || fd == -EROFS)
    fd = board_open(path.c_str(), O_RDONLY | flags);
  if (fd < 0)
    return fd;
  file.medium = sys_move_high(fd, kOwnDescriptors);
  add_own_descriptor(file.medium);
  return 0;
}

// Reads the node file and finds its model; a socket's file is named by the model alone.
int load_model(const char *node, Description &description) {
  OpenFile &file = description.file;
  if (!copy_text(file.file, node))
    return -ENAMETOOLONG;
  const int result = load_node(node, file.node);
  if (result < 0) {
    complain(node,
             result == -E2BIG ? "a node file has 4095 bytes at most" : strerrordesc_np(-result));
    return result == -ENOENT ? result : -ENXIO;
  }
  file.model = find_any_model(node_text(file.node, "model"), node);
  if (file.model == nullptr) {
    complain(node, "no such model, or no \"model = NAME\"");
    return -ENXIO;
  }
  copy_text(description.shared->model, file.model->name);
  return 0;
}

// The connector has a node file; a board without it has a kernel without the connector.
int open_socket_model(Description &description) {
  OpenFile &file = description.file;
  const SocketKind &kind = description.shared->socket;
  if (kind.family != AF_NETLINK || kind.protocol != NETLINK_CONNECTOR) {
    file.model = &kSocketModel;
    return 0;
  }
  BoardPath path;
  if (find_board_file(board_root(), "netlink/connector", path) < 0 ||
      load_node(path.c_str(), file.node) < 0)
    return -EPROTONOSUPPORT;
  copy_text(file.file, path.view());
  file.model = &kProcConnectorModel;
  return open_medium(file.file, description);
}

int open_model(const char *node, Description &description) {
  int result = load_model(node, description);
  if (result == 0)
    result = open_medium(node, description);
  OpenFile &file = description.file;
  if (result == 0 && file.model->open != nullptr) {
    const DeviceLock lock;
    result = file.model->open(file);
  }
  return result;
}

bool is_own_file(const char *file) {
  FileStatus status;
  return sys_stat(file, status) == 0;
}

// An attribute's text is the medium of its descriptor.
int open_attribute(const char *file, Description &description) {
  const int mode = description.file.flags & O_ACCMODE;
  description.is_borrowed = mode == O_RDONLY && !is_own_file(file);
  const int fd = board_open(file, mode | O_NOCTTY | O_CLOEXEC);
  if (fd < 0)
    return fd;
  description.file.medium = sys_move_high(fd, kOwnDescriptors);
  add_own_descriptor(description.file.medium);
  return copy_text(description.file.file, file) ? 0 : -ENAMETOOLONG;
}

// The kernel's descriptor for what has been opened.
int open_behind(const char *host, Description &description, int flags, unsigned int mode) {
  if (description.shared == nullptr)
    return board_open(host, flags, mode);
  const int result = description.kind == Kind::kModel ? open_model(host, description)
                                                      : open_attribute(host, description);
  return result < 0 ? result : open_stand_in(*description.shared, flags);
}

int open_kind(Resolved &resolved, Kind kind, int flags, unsigned int mode) {
  if (strlen(resolved.asked) >= sizeof(Description::asked) ||
      strlen(resolved.real) >= sizeof(Description::real))
    return -ENAMETOOLONG;
  name_own(resolved);
  Description *description = new_description(kind, resolved.asked, resolved.real, flags);
  if (description == nullptr)
    return -ENFILE;
  const int fd = open_behind(resolved.host, *description, flags, mode);
  const int result = fd < 0 ? fd : attach(description, fd);
  if (result < 0) {
    if (fd >= 0) {
      if (kind == Kind::kModel && description->file.model->close != nullptr)
        description->file.model->close(description->file);
      sys_close(fd);
    }
    free_description(description);
    return result;
  }
  return fd;
}

// The PC's file for reading; the board's own copy of it as soon as it is to be written.
int open_fallback(Resolved &resolved, int flags, unsigned int mode) {
  bool writes = (flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0;
  FileStatus status;
  const int found = sys_stat(resolved.asked, status);
  if (found == 0 && S_ISDIR(status.mode))
    writes = false;
  if (!writes)
    return sys_open(resolved.asked, flags, mode);
  resolved.traced = true;
  if (found == 0 && (flags & O_CREAT) && (flags & O_EXCL))
    return -EEXIST;
  if (found < 0 && !(flags & O_CREAT))
    return found;
  const int result = copy_up(resolved, (flags & O_TRUNC) == 0);
  if (result < 0)
    return result;
  memcpy(resolved.real, resolved.asked, sizeof resolved.real);
  return open_kind(resolved, Kind::kFile, flags & ~O_EXCL, mode);
}

int open_place(Resolved &resolved, int flags, unsigned int mode) {
  const bool exclusive = (flags & O_CREAT) && (flags & O_EXCL);
  switch (resolved.place) {
    case Place::kMissing:
      return -resolved.error;
    case Place::kFallback:
      return open_fallback(resolved, flags, mode);
    case Place::kPc:
    case Place::kPcByName:
      return sys_open(resolved.asked, flags, mode);
    case Place::kNode:
      if (exclusive)
        return -EEXIST;
      if (flags & O_DIRECTORY)
        return -ENOTDIR;
      return open_kind(resolved, Kind::kModel, flags, mode);
    case Place::kAttribute:
      // The kernel ignores O_TRUNC here: an attribute is replaced by what is written.
      if (exclusive)
        return -EEXIST;
      return open_kind(resolved, Kind::kAttribute, flags & ~(O_TRUNC | O_CREAT), mode);
    case Place::kFile:
      return open_kind(resolved, Kind::kFile, flags, mode);
    case Place::kDirectory:
      return open_kind(resolved, Kind::kDirectory, flags, mode);
  }
  return -ENOENT;
}

}  // namespace

int open_socket(const SocketKind &kind) {
  int flags = O_RDWR;
  flags |= kind.type & SOCK_NONBLOCK ? O_NONBLOCK : 0;
  flags |= kind.type & SOCK_CLOEXEC ? O_CLOEXEC : 0;
  Description *description = new_description(Kind::kModel, kSocket, kSocket, flags);
  if (description == nullptr)
    return -ENFILE;
  description->shared->socket = kind;
  int result = open_socket_model(*description);
  const int fd = result < 0 ? result : open_stand_in(*description->shared, flags);
  result = fd < 0 ? fd : attach(description, fd);
  if (result >= 0)
    return fd;
  if (fd >= 0)
    sys_close(fd);
  free_description(description);
  return result;
}

int reopen(Description &description) {
  if (strcmp(description.real, kSocket) == 0)
    return open_socket_model(description);
  if (strcmp(description.real, kTimerFile) == 0) {
    description.file.model = &kTimerModel;
    return 0;
  }
  BoardPath path;
  if (const int error = find_board_file(board_root(), description.real, path); error < 0)
    return error;
  if (description.kind == Kind::kAttribute)
    return open_attribute(path.c_str(), description);
  // What a request has handed out has the node of its parent and a model of its own.
  FixedText<sizeof description.shared->model> model;
  append_text(model, description.shared->model);
  if (const int error = load_model(path.c_str(), description); error < 0)
    return error;
  OpenFile &file = description.file;
  if (model.view() == file.model->name)
    return open_medium(path.c_str(), description);
  copy_text(description.shared->model, model.view());
  for (const Model *child : file.model->children) {
    if (model.view() == child->name) {
      file.model = child;
      return 0;
    }
  }
  return -ENXIO;
}

void follow_attribute(Description &description) {
  OpenFile &file = description.file;
  if (!description.is_borrowed || !is_own_file(file.file))
    return;
  const int fd = sys_open(file.file, O_RDONLY | O_NOCTTY | O_CLOEXEC);
  if (fd < 0)
    return;
  remove_own_descriptor(file.medium);
  sys_close(file.medium);
  file.medium = sys_move_high(fd, kOwnDescriptors);
  add_own_descriptor(file.medium);
  description.is_borrowed = false;
}

int open_board_mark() {
  BoardPath path;
  const int found = find_board_file(board_root(), "board", path);
  return found < 0 ? found : board_open(path.c_str(), O_RDWR | O_CLOEXEC);
}

void append_flags(TextBuffer &text, int flags) {
  constexpr const char *modes[] = {"RDONLY", "WRONLY", "RDWR", "NONE"};
  append_text(text, modes[flags & O_ACCMODE]);
  for (const FlagName &flag : kFlagNames) {
    if ((flags & flag.bits) == flag.bits) {
      append_text(text, "|");
      append_text(text, flag.name);
    }
  }
}

bool is_foreign_device(const char *path) {
  FileStatus status;
  if (sys_stat(path, status) < 0)
    return false;
  if (S_ISBLK(status.mode))
    return true;
  if (!S_ISCHR(status.mode))
    return false;
  switch (status.device_major) {
    case 1:  // memory devices: null, zero, full, random, urandom
      return status.device_minor != 3 && status.device_minor != 5 && status.device_minor != 7 &&
             status.device_minor != 8 && status.device_minor != 9;
    case 5:  // tty, ptmx
      return status.device_minor != 0 && status.device_minor != 2;
    default:  // pseudo-terminals
      return status.device_major < 136 || status.device_major > 143;
  }
}

void notice_full(std::int64_t result) {
  static std::atomic<bool> told;
  if (result != -ENOSPC || told.exchange(true))
    return;
  FixedText<kPathSize + 200> line;
  append_text(line, "vboard: no space is left for the board's files in ", board_root());
  if (getenv(kTemplateVariable) != nullptr)
    append_text(line, " (TMPDIR names another place for a board of one run)");
  append_text(line, "\n");
  sys_write(2, line.data, line.length);
}

int end_by_name(const char *call, const Resolved &resolved, int result) {
  notice_full(result);
  if (resolved.traced) {
    trace_call(call, resolved.asked, result, -result);
    spend_call();
  }
  return report(result);
}

int open_on_board(Resolved &resolved, int flags, unsigned int mode) {
  const Fault *fault = nullptr;
  if (resolved.place != Place::kMissing)
    fault = meet_fault(NodeNames{resolved.asked, resolved.real}, "open");
  int result;
  if (fault != nullptr && fault->effect == FaultEffect::kErrno) {
    resolved.traced = true;
    result = static_cast<int>(-fault->value);
  } else {
    result = open_place(resolved, flags, mode);
    if (fault != nullptr && fault->effect == FaultEffect::kResult && result >= 0)
      result = static_cast<int>(fault->value);
    notice_full(result);
  }
  if (!resolved.traced)
    return result;
  if (tracing()) {
    TraceLine line;
    trace_begin(line, "open", resolved.asked);
    append_text(line.text, " ");
    append_flags(line.text, flags);
    trace_end(line, result, -result);
  }
  spend_call();
  return result;
}

}  // namespace vboard
