// Wraps ioctl.

#include "vboard/base/kernel.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/requests.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <stdarg.h>
#include <sys/ioctl.h>

using namespace vboard;

DECLARE_WRAPPED(int, ioctl, int, unsigned long, ...);

namespace {

// An emulator answers ENOSYS for requests that it does not know: a kernel says ENOTTY, or EBADF.
int request_of_pc(int fd, unsigned long request, void *argument) {
  const int result = REAL(ioctl)(fd, request, argument);
  if (result < 0 && errno == ENOSYS)
    errno = sys_flags(fd) < 0 ? EBADF : ENOTTY;
  return result;
}

}  // namespace

WRAP(int, ioctl, int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void *argument = va_arg(arguments, void *);
  va_end(arguments);
  if (!on_board())
    return REAL(ioctl)(fd, request, argument);

  // A request number written as a negative int comes sign-extended; the kernel takes 32 bits.
  const std::uint32_t number = static_cast<std::uint32_t>(request);
  Description *description = is_interface_request(number) ? acquire_kernel_socket(fd) : acquire(fd);
  if (description == nullptr)
    return request_of_pc(fd, request, argument);
  int result;
  const bool is_kernels = description->kind == Kind::kKernelSocket && !is_interface_request(number);
  if (is_kernels || (description->kind == Kind::kFile && !is_faulty(*description)))
    result = request_of_pc(fd, request, argument);
  else
    result =
        report(request_on_board(*description, number, reinterpret_cast<std::uintptr_t>(argument)));
  release(description);
  return result;
}
