#include "vboard/interposer/core/transfers.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/attributes.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/opening.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/models/model.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace vboard {

namespace {

// An offset for a model that reads at its position: moves there and back. Model calls are under the
// board's lock, so nobody sees the position in between.
template <typename Call>
ssize_t at_offset(const OpenFile &file, std::int64_t offset, Call call) {
  if (offset == kAtPosition)
    return call();
  const std::int64_t kept = sys_lseek(file.fd, 0, SEEK_CUR);
  if (kept < 0 || sys_lseek(file.fd, offset, SEEK_SET) < 0)
    return -ESPIPE;
  const ssize_t result = call();
  sys_lseek(file.fd, kept, SEEK_SET);
  return result;
}

ssize_t read_file(int fd, void *buffer, std::size_t size, std::int64_t offset) {
  return offset == kAtPosition ? sys_read(fd, buffer, size) : sys_pread(fd, buffer, size, offset);
}

ssize_t read_model(Description &description, void *buffer, std::size_t size, std::int64_t offset) {
  OpenFile &file = description.file;
  if (file.model->read == nullptr)
    return description.has_medium ? read_file(file.fd, buffer, size, offset) : -EINVAL;
  if (offset != kAtPosition && !description.has_medium)
    return -ESPIPE;
  const int memory = check_user(buffer, size, true);
  if (memory < 0)
    return memory;
  for (;;) {
    if (offset == kAtPosition) {
      const int waited = wait_readable(description);
      if (waited < 0)
        return waited;
      if (is_gone(description))
        return -ENODEV;
    }
    lock_board();
    const ssize_t result =
        at_offset(file, offset, [&] { return file.model->read(file, buffer, size); });
    unlock_board();
    if (result != -EAGAIN || (file.flags & O_NONBLOCK))
      return result;
  }
}

ssize_t write_model(Description &description, const void *buffer, std::size_t size,
                    std::int64_t offset) {
  OpenFile &file = description.file;
  if (file.model->write == nullptr) {
    if (!description.has_medium)
      return -EINVAL;
    return offset == kAtPosition ? sys_write(file.fd, buffer, size)
                                 : sys_pwrite(file.fd, buffer, size, offset);
  }
  if (offset != kAtPosition && !description.has_medium)
    return -ESPIPE;
  const int memory = check_user(buffer, size, false);
  if (memory < 0)
    return memory;
  lock_board();
  const ssize_t result =
      at_offset(file, offset, [&] { return file.model->write(file, buffer, size); });
  unlock_board();
  return result;
}

ssize_t write_attribute_file(Description &description, const void *buffer, std::size_t size,
                             std::int64_t offset) {
  const int memory = check_user(buffer, size, false);
  if (memory < 0)
    return memory;
  const std::int64_t at =
      offset == kAtPosition ? sys_lseek(description.file.fd, 0, SEEK_CUR) : offset;
  if (at < 0)
    return static_cast<ssize_t>(at);
  lock_board();
  const ssize_t result = write_attribute(board_directory(), description.real, buffer, size, at);
  unlock_board();
  if (result > 0 && offset == kAtPosition)
    sys_lseek(description.file.fd, at + result, SEEK_SET);
  return result;
}

bool may(const Description &description, int refused_mode) {
  return (description.file.flags & O_ACCMODE) != refused_mode;
}

ssize_t read_kind(Description &description, void *buffer, std::size_t size, std::int64_t offset) {
  if (!may(description, O_WRONLY))
    return -EBADF;
  if (is_gone(description))
    return -ENODEV;
  switch (description.kind) {
    case Kind::kModel:
      return read_model(description, buffer, size, offset);
    case Kind::kDirectory:
      return -EISDIR;
    default:
      return read_file(description.file.fd, buffer, size, offset);
  }
}

ssize_t write_kind(Description &description, const void *buffer, std::size_t size,
                   std::int64_t offset) {
  if (!may(description, O_RDONLY))
    return -EBADF;
  if (is_gone(description))
    return -ENODEV;
  switch (description.kind) {
    case Kind::kModel:
      return write_model(description, buffer, size, offset);
    case Kind::kAttribute:
      return write_attribute_file(description, buffer, size, offset);
    default:
      return offset == kAtPosition ? sys_write(description.file.fd, buffer, size)
                                   : sys_pwrite(description.file.fd, buffer, size, offset);
  }
}

// What a fault leaves of a transfer.
struct Transfer {
  const Fault *fault;
  std::size_t size;
};

Transfer begin_transfer(Description &description, const char *call, std::size_t size) {
  const Fault *fault = meet_fault(description, call);
  if (fault != nullptr && fault->effect == FaultEffect::kShort &&
      static_cast<std::uint64_t>(fault->value) < size)
    size = static_cast<std::size_t>(fault->value);
  return {fault, size};
}

bool fails(const Transfer &transfer) {
  return transfer.fault != nullptr && transfer.fault->effect == FaultEffect::kErrno;
}

ssize_t shown(const Transfer &transfer, ssize_t result) {
  if (transfer.fault != nullptr && transfer.fault->effect == FaultEffect::kResult && result >= 0)
    return static_cast<ssize_t>(transfer.fault->value);
  return result;
}

void trace_offset(TraceLine &line, std::int64_t offset) {
  if (offset != kAtPosition)
    trace_number(line, "at=", offset);
}

}  // namespace

int wait_readable(Description &description) {
  const Model *model = description.file.model;
  if (model == nullptr || model->readable_at == nullptr)
    return 0;
  if (description.file.flags & O_NONBLOCK)
    return ready_at(description, board_time()) <= board_time() ? 0 : -EAGAIN;
  for (;;) {
    Watch watch = {&description, POLLIN, 0};
    Wait wait;
    wait.watches = &watch;
    wait.watch_count = 1;
    if (wait_on_board(wait) != WaitEnd::kInterrupted)
      return 0;
    if (!handlers_restart())
      return -EINTR;
  }
}

ssize_t read_on_board(Description &description, void *buffer, std::size_t size,
                      std::int64_t offset) {
  const Transfer transfer = begin_transfer(description, "read", size);
  ssize_t result = fails(transfer) ? static_cast<ssize_t>(-transfer.fault->value)
                                   : read_kind(description, buffer, transfer.size, offset);
  if (tracing()) {
    const std::size_t got = result > 0 ? static_cast<std::size_t>(result) : 0;
    TraceLine line;
    trace_begin(line, "read", description.asked, got);
    trace_offset(line, offset);
    trace_data(line, "out=", buffer, got);
    result = shown(transfer, result);
    trace_end(line, result, static_cast<int>(-result));
  }
  spend_call();
  return shown(transfer, result);
}

ssize_t write_on_board(Description &description, const void *buffer, std::size_t size,
                       std::int64_t offset) {
  const Transfer transfer = begin_transfer(description, "write", size);
  // The line is begun first: the buffer may be gone when the call has been made.
  TraceLine line;
  line.text.capacity = 0;
  if (tracing() && check_user(buffer, transfer.size, false) == 0) {
    trace_begin(line, "write", description.asked, transfer.size);
    trace_offset(line, offset);
    trace_data(line, "in=", buffer, transfer.size);
  }
  ssize_t result = fails(transfer) ? static_cast<ssize_t>(-transfer.fault->value)
                                   : write_kind(description, buffer, transfer.size, offset);
  if (!fails(transfer))
    notice_full(result);
  result = shown(transfer, result);
  trace_end(line, result, static_cast<int>(-result));
  spend_call();
  return result;
}

int close_on_board(Description &description) {
  const Fault *fault = meet_fault(description, "close");
  int result = 0;
  if (fault != nullptr && fault->effect == FaultEffect::kErrno)
    result = static_cast<int>(-fault->value);
  if (fault != nullptr && fault->effect == FaultEffect::kResult)
    result = static_cast<int>(fault->value);
  if (description.kind != Kind::kKernelSocket) {
    trace_call("close", description.asked, result, -result);
    spend_call();
  }
  return result;
}

}  // namespace vboard
