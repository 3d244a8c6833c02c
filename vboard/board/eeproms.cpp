// Memory whose bytes keep their places: the nvmem class and the EEPROMs of I2C devices. Each is
// reached through its bus, and through the directory of the device itself.

#include "vboard/base/kernel.h"
#include "vboard/board/attribute_families.h"
#include "vboard/board/file_updates.h"

#include <errno.h>

#include <algorithm>

namespace vboard {
namespace {

// Bytes in place; the memory keeps its size.
ssize_t write_memory(const AttributeWrite &write) {
  BoardPath file;
  if (const int error = find_board_file(write.board, write.path, file); error < 0)
    return error;
  const int fd = hold_file(file.c_str());
  if (fd < 0)
    return fd;
  const std::int64_t size = sys_size(fd);
  ssize_t result = -ENOSPC;
  if (write.offset >= 0 && write.offset < size)
    result = sys_pwrite(fd, write.bytes.data(),
                        std::min(write.bytes.size(), static_cast<std::size_t>(size - write.offset)),
                        write.offset);
  sys_close(fd);
  return result;
}

}  // namespace

extern constexpr AttributeFamily kNvmem = {.directory = "/sys/bus/nvmem/",
                                           .name = "/nvmem",
                                           .form = AttributeForm::kBinary,
                                           .write = write_memory};

extern constexpr AttributeFamily kNvmemDevice = {.directory = "/sys/devices/",
                                                 .name = "/nvmem",
                                                 .form = AttributeForm::kBinary,
                                                 .write = write_memory};

extern constexpr AttributeFamily kEeprom = {.directory = "/sys/bus/i2c/devices/",
                                            .name = "/eeprom",
                                            .form = AttributeForm::kBinary,
                                            .write = write_memory};

extern constexpr AttributeFamily kEepromDevice = {.directory = "/sys/devices/",
                                                  .name = "/eeprom",
                                                  .form = AttributeForm::kBinary,
                                                  .write = write_memory};

}  // namespace vboard
