// Wraps tcgetattr tcsetattr tcflush tcdrain tcflow tcsendbreak isatty ttyname ttyname_r
// __ttyname_r_chk.
//
// libc turns these into requests without passing ioctl(); on a port of the board they become the
// same requests here.

#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/requests.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include <cstdint>

using namespace vboard;

namespace {

constexpr std::uint32_t kGetSettings = 0x5401;  // TCGETS
constexpr std::uint32_t kSetSettings = 0x5402;  // TCSETS, TCSETSW, TCSETSF
constexpr std::uint32_t kSendBreak = 0x5409;    // TCSBRK; with 1 it only drains
constexpr std::uint32_t kFlow = 0x540A;         // TCXONC
constexpr std::uint32_t kFlush = 0x540B;        // TCFLSH

// The kernel's record, which is smaller than libc's.
struct KernelTermios {
  std::uint32_t input_flags;
  std::uint32_t output_flags;
  std::uint32_t control_flags;
  std::uint32_t local_flags;
  std::uint8_t line;
  std::uint8_t control_characters[19];
};
static_assert(sizeof(KernelTermios) == 36);

constexpr std::uint32_t kSpeedBits = CBAUD | CBAUDEX;

// Performs a request when the descriptor is the board's. False leaves it to libc.
bool request_if_board(int fd, std::uint32_t number, void *argument, int &out_result) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr)
    return false;
  const bool ours = description->kind == Kind::kModel;
  if (ours)
    out_result =
        report(request_on_board(*description, number, reinterpret_cast<std::uintptr_t>(argument)));
  release(description);
  return ours;
}

void *as_argument(int value) {
  return reinterpret_cast<void *>(static_cast<std::intptr_t>(value));
}

}  // namespace

WRAP(int, tcgetattr, int fd, termios *out) {
  KernelTermios record = {};
  int result;
  if (!request_if_board(fd, kGetSettings, &record, result))
    return REAL(tcgetattr)(fd, out);
  if (result < 0)
    return result;
  *out = {};
  out->c_iflag = record.input_flags;
  out->c_oflag = record.output_flags;
  out->c_cflag = record.control_flags;
  out->c_lflag = record.local_flags;
  out->c_line = record.line;
  memcpy(out->c_cc, record.control_characters, sizeof record.control_characters);
  out->c_ispeed = record.control_flags & kSpeedBits;
  out->c_ospeed = record.control_flags & kSpeedBits;
  return 0;
}

WRAP(int, tcsetattr, int fd, int when, const termios *settings) {
  if (!on_board() || !is_board_descriptor(fd))
    return REAL(tcsetattr)(fd, when, settings);
  if (when < TCSANOW || when > TCSAFLUSH)
    return report(-EINVAL);
  KernelTermios record = {};
  record.input_flags = settings->c_iflag;
  record.output_flags = settings->c_oflag;
  record.control_flags = settings->c_cflag;
  record.local_flags = settings->c_lflag;
  record.line = settings->c_line;
  memcpy(record.control_characters, settings->c_cc, sizeof record.control_characters);
  int result;
  const std::uint32_t number = kSetSettings + static_cast<std::uint32_t>(when);
  return request_if_board(fd, number, &record, result) ? result
                                                       : REAL(tcsetattr)(fd, when, settings);
}

WRAP(int, tcflush, int fd, int queue) {
  int result;
  return request_if_board(fd, kFlush, as_argument(queue), result) ? result
                                                                  : REAL(tcflush)(fd, queue);
}

WRAP(int, tcdrain, int fd) {
  int result;
  return request_if_board(fd, kSendBreak, as_argument(1), result) ? result : REAL(tcdrain)(fd);
}

WRAP(int, tcflow, int fd, int action) {
  int result;
  return request_if_board(fd, kFlow, as_argument(action), result) ? result
                                                                  : REAL(tcflow)(fd, action);
}

WRAP(int, tcsendbreak, int fd, int duration) {
  int result;
  return request_if_board(fd, kSendBreak, nullptr, result) ? result
                                                           : REAL(tcsendbreak)(fd, duration);
}

namespace {

// Whether a model answers to terminal requests at all, by its table: asking is no call on the
// board.
bool is_terminal(const Description &description) {
  return description.file.model != nullptr &&
         find_request(*description.file.model, kGetSettings) != nullptr;
}

}  // namespace

WRAP(int, isatty, int fd) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr)
    return REAL(isatty)(fd);
  const bool terminal = is_terminal(*description);
  release(description);
  if (!terminal)
    errno = ENOTTY;
  return terminal;
}

WRAP(int, ttyname_r, int fd, char *buffer, std::size_t size) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr)
    return REAL(ttyname_r)(fd, buffer, size);
  int error = 0;
  const std::size_t length = strlen(description->asked) + 1;
  if (!is_terminal(*description))
    error = ENOTTY;
  else if (length > size)
    error = ERANGE;
  else
    memcpy(buffer, description->asked, length);
  release(description);
  return error;
}

WRAP(int, __ttyname_r_chk, int fd, char *buffer, std::size_t size, std::size_t room) {
  if (size > room)
    return REAL(__ttyname_r_chk)(fd, buffer, size, room);
  return vboard_ttyname_r(fd, buffer, size);
}

WRAP(char *, ttyname, int fd) {
  if (!on_board() || !is_board_descriptor(fd))
    return REAL(ttyname)(fd);
  static char name[256];
  const int error = vboard_ttyname_r(fd, name, sizeof name);
  if (error != 0)
    errno = error;
  return error == 0 ? name : nullptr;
}
