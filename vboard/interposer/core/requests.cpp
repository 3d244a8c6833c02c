#include "vboard/interposer/core/requests.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/interposer/core/device_lock.h"
#include "vboard/interposer/core/device_time.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/host.h"
#include "vboard/interposer/core/power_cut.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

namespace vboard {

namespace {

constexpr std::size_t kInterfaceName = 16;
constexpr std::uint32_t kGetInterfaceName = 0x8910;  // SIOCGIFNAME: asks by number
constexpr std::uint32_t kGetInterfaces = 0x8912;     // SIOCGIFCONF: of all interfaces

// A request under way.
struct Call {
  Description *description;
  const Request *row;  // null for one that the driver does not know
  Argument argument;
  NodeNames names;
  int result;
  bool meets_faults;
  std::uintptr_t frame;                         // of the wrapper that the program has called
  char interface_name[4 + kInterfaceName + 1];  // "net:NAME"
  alignas(16) unsigned char small[512];
  void *large;
};

bool goes_in(const Request &row) {
  return row.direction == Direction::kIn || row.direction == Direction::kInOut;
}

bool goes_out(const Request &row) {
  return row.direction == Direction::kOut || row.direction == Direction::kInOut;
}

// The bytes behind the argument.
std::size_t record_size(const Request &row, std::uint32_t number) {
  if (row.direction == Direction::kNone)
    return 0;
  return row.any_size ? number >> 16 & 0x3FFF : row.handler.size;
}

// Most arguments are on the stack of the caller, right above the wrapper's frame, and need no help
// of the kernel to be believed.
bool is_on_stack(const Call &call) {
  constexpr std::uintptr_t kNear = 4096;
  return call.argument.address > call.frame && call.argument.address - call.frame < kNear &&
         call.argument.size < kNear;
}

void *user_pointer(const Call &call) {
  return reinterpret_cast<void *>(static_cast<std::uintptr_t>(call.argument.address));
}

// The host's copy of the record, filled from the program's: zero, or a negated errno.
int copy_record_in(Call &call) {
  Argument &argument = call.argument;
  argument.size = record_size(*call.row, argument.number);
  if (argument.size > sizeof call.small) {
    call.large = calloc(1, argument.size);
    if (call.large == nullptr)
      return -ENOMEM;
  }
  argument.record = call.large != nullptr ? call.large : call.small;
  memset(argument.record, 0, argument.size);
  if (argument.size == 0)
    return 0;
  void *user = user_pointer(call);
  if (is_on_stack(call)) {
    if (goes_in(*call.row))
      memcpy(argument.record, user, argument.size);
    return 0;
  }
  if (goes_in(*call.row))
    return read_user(argument.record, user, argument.size);
  // What cannot be answered is not begun.
  return check_user(user, argument.size, true);
}

int copy_record_out(const Call &call) {
  const Argument &argument = call.argument;
  if (argument.size == 0 || !goes_out(*call.row))
    return 0;
  if (!is_on_stack(call))
    return write_user(user_pointer(call), argument.record, argument.size);
  memcpy(user_pointer(call), argument.record, argument.size);
  return 0;
}

// A network request is about the interface that its record names.
bool names_interface(const Call &call) {
  const std::uint32_t number = call.argument.number;
  return is_interface_request(number) && number != kGetInterfaceName && number != kGetInterfaces &&
         call.argument.size >= kInterfaceName;
}

void name_interface(Call &call) {
  memcpy(call.interface_name, "net:", 4);
  memcpy(call.interface_name + 4, call.argument.record, kInterfaceName);
  call.interface_name[4 + kInterfaceName] = '\0';
  const std::string_view name(call.interface_name);
  // The answer may be a socket's as such, too: "socket ioctl ..." in a faults file.
  if (name.size() > 4)
    call.names = {name, call.names.asked};
}

// The interface that a network request is about; false when the board has none of that name.
bool load_interface(const Call &call, OpenFile &out) {
  const std::string_view name = std::string_view(call.interface_name).substr(4);
  if (name.empty() || name.size() >= kInterfaceName || name.find('/') != name.npos ||
      name[0] == '.')
    return false;
  FixedText<32> node;
  append_text(node, "net/", name);
  BoardPath file;
  if (find_board_file(board_root(), node.view(), file) < 0)
    return false;
  copy_text(out.file, file.view());
  out.model = &kInterfaceModel;
  out.medium = -1;
  return load_node(out.file, out.node) == 0;
}

int ask_interface(Call &call) {
  OpenFile interface = {};
  return load_interface(call, interface) ? call.row->handler.call(interface, call.argument)
                                         : -ENODEV;
}

// The row, the record and the names of the node that it is about.
void prepare(Call &call) {
  const std::uint32_t number = call.argument.number;
  const Model *model =
      is_interface_request(number) ? &kInterfaceModel : call.description->file.model;
  call.row = model != nullptr ? find_request(*model, number) : nullptr;
  call.names = names_of(*call.description);
  if (call.row != nullptr)
    call.result = copy_record_in(call);
  if (call.row != nullptr && call.result == 0 && names_interface(call))
    name_interface(call);
  call.meets_faults = is_faulty(*call.description) || call.names.asked.starts_with("net:");
}

void begin_line(const Call &call, TraceLine &line) {
  line.text.capacity = 0;
  if (!tracing())
    return;
  trace_begin(line, "ioctl", call.names.asked, 2 * call.argument.size);
  if (call.row == nullptr) {
    trace_hex(line, "", call.argument.number);
    return;
  }
  trace_word(line, call.row->name);
  // A small number is a parameter; anything else is a pointer that the driver does not look at.
  const std::uint64_t value = call.argument.address;
  if (call.row->direction == Direction::kNone && value > 0 && value < 4096)
    trace_number(line, "arg=", static_cast<std::int64_t>(value));
  if (call.result == 0 && goes_in(*call.row) && call.row->traced)
    trace_data(line, "in=", call.argument.record, call.argument.size);
}

// "No such request" is said here, for every model.
int ask_model(Call &call) {
  if (call.row == nullptr)
    return -ENOTTY;
  const DeviceTurn turn(*call.description);
  if (is_interface_request(call.argument.number))
    return ask_interface(call);
  look_at_node(*call.description);
  return call.row->handler.call(call.description->file, call.argument);
}

int answer(Call &call) {
  const int result = ask_model(call);
  if (call.row == nullptr || (result < 0 && !call.argument.answers_failure))
    return result;
  const int copied = copy_record_out(call);
  return copied < 0 ? copied : result;
}

void perform(Call &call, TraceLine &line) {
  const Fault *fault = nullptr;
  if (call.meets_faults)
    fault = meet_fault(call.names, "ioctl", call.row != nullptr ? call.row->name : nullptr,
                       call.argument.number);
  if (call.result < 0)
    return;
  if (call.meets_faults && is_absent(call.names)) {
    call.result = -ENODEV;
  } else if (fault != nullptr && fault->effect == FaultEffect::kErrno) {
    call.result = static_cast<int>(-fault->value);
  } else {
    call.result = answer(call);
    if (call.result >= 0 && call.row != nullptr && goes_out(*call.row) && call.row->traced)
      trace_data(line, "out=", call.argument.record, call.argument.size);
    if (call.result >= 0 && fault != nullptr && fault->effect == FaultEffect::kResult)
      call.result = static_cast<int>(fault->value);
  }
}

}  // namespace

int request_on_board(Description &description, std::uint32_t number, std::uint64_t address) {
  Call call;
  call.description = &description;
  call.row = nullptr;
  call.argument = {
      .number = number, .address = address, .record = nullptr, .size = 0, .answers_failure = false};
  call.result = 0;
  call.large = nullptr;
  call.frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  prepare(call);
  TraceLine line;
  begin_line(call, line);
  perform(call, line);
  end_power_if_failing();
  trace_end(line, call.result, -call.result);
  end_device_work();
  free(call.large);
  spend_call();
  return call.result;
}

Description *acquire_kernel_socket(int fd) {
  Description *description = acquire(fd);
  if (description != nullptr)
    return description;
  FileStatus status;
  if (sys_fstat(fd, status) < 0 || !S_ISSOCK(status.mode))
    return nullptr;
  description = new_description(Kind::kKernelSocket, "socket", "socket", sys_flags(fd));
  if (description == nullptr)
    return nullptr;
  description->file.model = &kSocketModel;
  if (attach(description, fd) < 0) {
    free_description(description);
    return nullptr;
  }
  return acquire(fd);
}

}  // namespace vboard
