#include "vboard/interposer/core/transfers.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/attributes.h"
#include "vboard/interposer/core/attribute_changes.h"
#include "vboard/interposer/core/device_lock.h"
#include "vboard/interposer/core/device_time.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/host.h"
#include "vboard/interposer/core/opening.h"
#include "vboard/interposer/core/power_cut.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/models/model.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>

namespace vboard {

namespace {

// Runs a transfer at an offset: its own, or the descriptor's position, which then moves on. Streams
// have neither.
template <typename Move>
ssize_t at_offset(const Description &description, std::int64_t offset, Move move) {
  if (offset != kAtPosition)
    return move(offset);
  std::int64_t &position = description.shared->position;
  const ssize_t result = move(position);
  if (result > 0)
    position += result;
  return result;
}

UserMemory memory_at(const void *address, std::size_t size) {
  return {reinterpret_cast<std::uintptr_t>(address), size};
}

// The host's descriptor of a medium takes the program's pointer as the kernel does.
ssize_t read_medium_of(Description &description, void *buffer, std::size_t size,
                       std::int64_t offset) {
  const DeviceTurn turn(description);
  const OpenFile &file = description.file;
  return at_offset(description, offset,
                   [&](std::int64_t at) { return sys_pread(file.medium, buffer, size, at); });
}

ssize_t write_medium_of(Description &description, const void *buffer, std::size_t size,
                        std::int64_t offset) {
  const DeviceTurn turn(description);
  const OpenFile &file = description.file;
  return at_offset(description, offset,
                   [&](std::int64_t at) { return sys_pwrite(file.medium, buffer, size, at); });
}

// Bytes that need their time on a line arrive a sector at a time: a write that is broken off leaves
// the sectors before.
ssize_t write_sectors(Description &description, const void *buffer, std::size_t size,
                      std::int64_t offset) {
  const char *bytes = static_cast<const char *>(buffer);
  const std::size_t most = line_time(description, kSector) > 0 ? kSector : size;
  std::size_t done = 0;
  do {
    const std::size_t piece = std::min(size - done, most);
    pass_line_time(description, piece);
    const std::int64_t at =
        offset == kAtPosition ? offset : offset + static_cast<std::int64_t>(done);
    const ssize_t put = write_medium_of(description, bytes + done, piece, at);
    if (put <= 0)
      return done > 0 ? static_cast<ssize_t>(done) : put;
    done += static_cast<std::size_t>(put);
    end_device_work();
  } while (done < size);
  return static_cast<ssize_t>(done);
}

ssize_t read_model(Description &description, void *buffer, std::size_t size, std::int64_t offset) {
  OpenFile &file = description.file;
  const Model &model = *file.model;
  const bool has_medium = file.medium >= 0;
  if (model.read == nullptr)
    return model.medium_is_stream && has_medium ? read_medium_of(description, buffer, size, offset)
                                                : -model.no_stream;
  if (offset != kAtPosition && !model.medium_is_stream)
    return -ESPIPE;
  if (size < model.least_read)
    return -EINVAL;
  for (;;) {
    if (offset == kAtPosition) {
      end_device_work();
      const int waited = wait_readable(description);
      if (waited < 0)
        return waited;
      if (is_gone(description))
        return -ENODEV;
    }
    ssize_t result;
    {
      const DeviceTurn turn(description);
      look_at_node(description);
      auto read = [&](std::int64_t at) { return model.read(file, memory_at(buffer, size), at); };
      result = model.medium_is_stream ? at_offset(description, offset, read) : read(0);
    }
    if (result != -EAGAIN || (file.flags & O_NONBLOCK))
      return result;
  }
}

ssize_t write_model(Description &description, const void *buffer, std::size_t size,
                    std::int64_t offset) {
  OpenFile &file = description.file;
  const Model &model = *file.model;
  if (model.write == nullptr)
    return model.medium_is_stream && file.medium >= 0
               ? write_sectors(description, buffer, size, offset)
               : -model.no_stream;
  if (offset != kAtPosition && !model.medium_is_stream)
    return -ESPIPE;
  pass_line_time(description, size);
  const DeviceTurn turn(description);
  look_at_node(description);
  auto write = [&](std::int64_t at) { return model.write(file, memory_at(buffer, size), at); };
  return model.medium_is_stream ? at_offset(description, offset, write) : write(0);
}

// An attribute takes a page at most, as the kernel hands it on.
ssize_t write_attribute_file(Description &description, const void *buffer, std::size_t size,
                             std::int64_t offset) {
  constexpr std::size_t kMost = 64 << 10;
  unsigned char small[512];
  const std::size_t taken = std::min(size, kMost);
  unsigned char *bytes =
      taken <= sizeof small ? small : static_cast<unsigned char *>(malloc(taken));
  if (bytes == nullptr)
    return -ENOMEM;
  ssize_t result = taken > 0 ? read_user(bytes, buffer, taken) : 0;
  if (result == 0) {
    const DeviceLock lock;
    result = at_offset(description, offset, [&](std::int64_t at) {
      return write_attribute(board_directory(), description.real, bytes, taken, at);
    });
    if (result > 0)
      note_attribute_changes();
  }
  if (bytes != small)
    free(bytes);
  return result;
}

ssize_t read_attribute_file(Description &description, void *buffer, std::size_t size,
                            std::int64_t offset) {
  const DeviceLock lock;
  follow_attribute(description);
  // Noted before it is read: a change on the way is announced once too often and not lost.
  note_attribute_read(description);
  return read_medium_of(description, buffer, size, offset);
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
    case Kind::kAttribute:
      return read_attribute_file(description, buffer, size, offset);
    case Kind::kDirectory:
      return -EISDIR;
    default:
      return offset == kAtPosition ? sys_read(description.file.fd, buffer, size)
                                   : sys_pread(description.file.fd, buffer, size, offset);
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
  if (fault != nullptr && fault->effect == FaultEffect::kPowerCut) {
    size = size_before_power_cut(description, size);
    if (size == 0)
      end_power_if_failing();
  }
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
  if (model == nullptr || model->ready == nullptr)
    return 0;
  if (description.file.flags & O_NONBLOCK)
    return readiness_of(description, POLLIN, current_time()).events != 0 ? 0 : -EAGAIN;
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
  if (result > 0)
    pass_line_time(description, static_cast<std::size_t>(result));
  if (tracing()) {
    const std::size_t got = result > 0 ? static_cast<std::size_t>(result) : 0;
    TraceLine line;
    trace_begin(line, "read", description.asked, got);
    trace_offset(line, offset);
    trace_data(line, "out=", buffer, got);
    result = shown(transfer, result);
    trace_end(line, result, static_cast<int>(-result));
  }
  end_device_work();
  spend_call();
  return shown(transfer, result);
}

namespace {

// The bytes as far as they can be read.
void begin_write_line(TraceLine &line, const Description &description, const void *buffer,
                      std::size_t size, std::int64_t offset) {
  const bool readable = check_user(buffer, size, false) == 0;
  trace_begin(line, "write", description.asked, readable ? size : 0);
  if (offset != kAtPosition)
    trace_number(line, "at=", offset);
  if (readable)
    trace_data(line, "in=", buffer, size);
}

}  // namespace

ssize_t write_on_board(Description &description, const void *buffer, std::size_t size,
                       std::int64_t offset) {
  const Transfer transfer = begin_transfer(description, "write", size);
  // The line is begun first: the buffer may be gone when the call has been made.
  TraceLine line;
  line.text.capacity = 0;
  if (tracing())
    begin_write_line(line, description, buffer, transfer.size, offset);
  ssize_t result = fails(transfer) ? static_cast<ssize_t>(-transfer.fault->value)
                                   : write_kind(description, buffer, transfer.size, offset);
  // Devices and attributes may have no room of their own.
  if (!fails(transfer) && description.kind == Kind::kFile)
    notice_full(result);
  end_power_if_failing();
  result = shown(transfer, result);
  trace_end(line, result, static_cast<int>(-result));
  end_device_work();
  spend_call();
  return result;
}

std::int64_t seek_on_board(Description &description, std::int64_t offset, int whence) {
  const OpenFile &file = description.file;
  if (description.kind == Kind::kModel && !file.model->medium_is_stream)
    return -ESPIPE;
  const DeviceLock lock;
  std::int64_t from = 0;
  if (whence == SEEK_CUR)
    from = description.shared->position;
  else if (whence == SEEK_END)
    from = file.medium < 0 ? 0 : sys_size(file.medium);
  else if (whence != SEEK_SET)
    return -EINVAL;
  std::int64_t position;
  if (__builtin_add_overflow(from, offset, &position))
    return -EOVERFLOW;
  if (position < 0)
    return -EINVAL;
  return description.shared->position = position;
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
