#include "vboard/interposer/core/requests.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/trace.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

namespace vboard {

namespace {

constexpr std::size_t kInterfaceName = 16;
constexpr std::uint32_t kGetInterfaceName = 0x8910;  // SIOCGIFNAME: asks by number
constexpr std::uint32_t kGetInterfaces = 0x8912;     // SIOCGIFCONF: of all interfaces

// Where the request's record may be touched: 0 or -EFAULT. Most arguments are on the stack of the
// caller, right above this frame, and need no help of the kernel to be believed.
int check_argument(const Request &request, const void *argument) {
  if (request.direction == Direction::kNone || request.size == 0)
    return 0;
  const std::uintptr_t frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(argument);
  if (address > frame && address - frame < 4096)
    return 0;
  return check_user(argument, request.size, request.direction != Direction::kIn);
}

// A network request is about the interface that its record names.
struct RequestNames {
  NodeNames names;
  char text[4 + kInterfaceName + 1];
};

void name_node(const Description &description, std::uint32_t number, const Request *request,
               const void *argument, RequestNames &out) {
  out.names = names_of(description);
  const bool by_name = is_interface_request(number) && request != nullptr &&
                       request->size >= kInterfaceName && number != kGetInterfaceName &&
                       number != kGetInterfaces;
  if (!by_name)
    return;
  memcpy(out.text, "net:", 4);
  memcpy(out.text + 4, argument, kInterfaceName);
  out.text[4 + kInterfaceName] = '\0';
  const std::string_view name(out.text);
  // The answer may be a socket's as such, too: "socket ioctl ..." in a faults file.
  if (name.size() > 4)
    out.names = {name, out.names.asked};
}

int perform(Description &description, std::uint32_t number, const Request *request,
            void *argument) {
  OpenFile &file = description.file;
  if (file.model == nullptr || file.model->ioctl == nullptr || request == nullptr)
    return -ENOTTY;
  lock_board();
  const int result = file.model->ioctl(file, number, argument);
  unlock_board();
  return result;
}

}  // namespace

const Request *find_request(const Model &model, std::uint32_t number) {
  for (const Request &request : model.requests) {
    if (request.number == number)
      return &request;
  }
  return nullptr;
}

int request_on_board(Description &description, std::uint32_t number, void *argument) {
  const Request *request =
      description.file.model != nullptr ? find_request(*description.file.model, number) : nullptr;
  int result = request != nullptr ? check_argument(*request, argument) : 0;
  RequestNames node;
  node.names = names_of(description);
  if (result == 0)
    name_node(description, number, request, argument, node);

  TraceLine line;
  line.text.capacity = 0;
  if (tracing()) {
    const std::size_t size = request != nullptr ? 2 * request->size : 0;
    trace_begin(line, "ioctl", node.names.asked, size);
    if (request != nullptr) {
      trace_word(line, request->name);
      // A small number is a parameter; anything else is a pointer that the driver does not look at.
      const std::uintptr_t value = reinterpret_cast<std::uintptr_t>(argument);
      if (request->direction == Direction::kNone && value > 0 && value < 4096)
        trace_number(line, "arg=", static_cast<std::int64_t>(value));
      if (result == 0 &&
          (request->direction == Direction::kIn || request->direction == Direction::kInOut))
        trace_data(line, "in=", argument, request->size);
    } else {
      trace_hex(line, "", number);
    }
  }

  const bool has_socket_names = node.names.asked.starts_with("net:");
  const Fault *fault = nullptr;
  if (description.faulty || has_socket_names)
    fault = meet_fault(node.names, "ioctl", request != nullptr ? request->name : nullptr, number);
  if (result == 0) {
    if ((description.faulty || has_socket_names) && is_absent(node.names)) {
      result = -ENODEV;
    } else if (fault != nullptr && fault->effect == FaultEffect::kErrno) {
      result = static_cast<int>(-fault->value);
    } else {
      result = perform(description, number, request, argument);
      if (result >= 0 && request != nullptr &&
          (request->direction == Direction::kOut || request->direction == Direction::kInOut))
        trace_data(line, "out=", argument, request->size);
      if (result >= 0 && fault != nullptr && fault->effect == FaultEffect::kResult)
        result = static_cast<int>(fault->value);
    }
  }
  trace_end(line, result, -result);
  spend_call();
  return result;
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
  description->file.model = find_model("socket");
  const Model *model = description->file.model;
  description->file.fd = fd;
  if (model == nullptr || (model->open != nullptr && model->open(description->file) < 0) ||
      attach(description, fd) < 0) {
    free_description(description);
    return nullptr;
  }
  return acquire(fd);
}

}  // namespace vboard
