// Power switches of storage devices, /sys/devices/platform/NAME-power/state: "enabled" or "1",
// "disabled" or "0".
//
// A device without power is not there: its files, /sys/block/NAME and /dev/NAME, wait below
// "unpowered" of the board directory under the same names until the switch is on again. Only the
// files that the board has move, so that a card may do without a node in /dev.

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/attribute_families.h"

#include <errno.h>

namespace vboard {
namespace {

constexpr std::string_view kSwitches = "/sys/devices/platform/";
constexpr std::string_view kSwitch = "-power/state";
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

ssize_t write_switch(const AttributeWrite &write) {
  const char *board = write.board;
  const std::string_view path = write.path;
  const std::string_view value = attribute_value(write.bytes);
  const bool on = value == "enabled" || value == "1";
  if (!on && value != "disabled" && value != "0")
    return -EINVAL;
  if (!has_state(board, path))
    return -ENOENT;
  for (const char *directory : kWaiting) {
    if (const int error = make_state_directory(board, directory); error < 0)
      return error;
  }
  std::string_view device = path.substr(kSwitches.size());
  device.remove_suffix(kSwitch.size());
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

}  // namespace

extern constexpr AttributeFamily kPowerSwitch = {
    .directory = kSwitches, .name = kSwitch, .form = AttributeForm::kText, .write = write_switch};

}  // namespace vboard
