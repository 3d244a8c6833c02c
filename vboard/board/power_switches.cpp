// Storage devices that come and go with their power.

#include "vboard/board/power_switches.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"

#include <errno.h>

namespace vboard {
namespace {

constexpr const char *kWaiting[] = {"/unpowered", "/unpowered/dev", "/unpowered/sys",
                                    "/unpowered/sys/block"};

using Name = FixedText<256>;

// Moves DIRECTORY/DEVICE to its place without power, or back. What is already there, or what the
// board lacks, stays as it is.
int move_file(const char *board, std::string_view directory, std::string_view device, bool on) {
  Name file;
  Name waiting;
  append_text(file, directory, device);
  append_text(waiting, kWaiting[0], directory, device);
  if (waiting.overflow)
    return -ENAMETOOLONG;
  const std::string_view from = on ? waiting.view() : file.view();
  const std::string_view to = on ? file.view() : waiting.view();
  return has_state(board, from) ? move_state(board, from, to) : 0;
}

int move_device(const char *board, std::string_view device, bool on) {
  for (const std::string_view directory : {"/dev/", "/sys/block/"}) {
    if (const int error = move_file(board, directory, device, on); error < 0)
      return error;
  }
  // A disk that is found anew has not been let go yet.
  Name let_go;
  append_text(let_go, "/sys/block/", device, "/device/delete");
  if (on && !let_go.overflow && has_state(board, let_go.view()))
    return store_state(board, let_go.view(), {});
  return 0;
}

}  // namespace

int write_power_switch(const char *board, std::string_view path, std::string_view value) {
  const bool on = value == "enabled" || value == "1";
  if (!on && value != "disabled" && value != "0")
    return -EINVAL;
  if (!has_state(board, path))
    return -ENOENT;
  for (const char *directory : kWaiting) {
    if (const int error = make_state_directory(board, directory); error < 0)
      return error;
  }
  std::string_view device = path.substr(kPowerSwitches.size());
  device.remove_suffix(kPowerSwitch.size());
  if (device.empty() || device.find('/') != std::string_view::npos)
    return -ENODEV;

  // The files and the switch change together: two programs that switch wait for each other.
  const int lock = lock_state_directory(board, kWaiting[0]);
  if (lock < 0)
    return lock;
  int error = move_device(board, device, on);
  if (error == 0)
    error = store_state(board, path, on ? "enabled\n" : "disabled\n");
  sys_close(lock);
  return error;
}

}  // namespace vboard
