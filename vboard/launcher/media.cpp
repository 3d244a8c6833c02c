#include "vboard/launcher/media.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

#include <fcntl.h>

#include "vboard/board/kernel.h"
#include "vboard/board/lcd_controller.h"
#include "vboard/board/uboot_env.h"

namespace vboard {
namespace {

constexpr std::size_t kFlashSize = 64 << 10;
// As etc/fw_env.config of the template tells.
constexpr std::size_t kEnvironmentSize = 16 << 10;
constexpr std::size_t kBlockSize = 256;

bool join(const char *board, const char *name, char (&out)[1024]) {
  int length = std::snprintf(out, sizeof(out), "%s/%s", board, name);
  return length > 0 && static_cast<std::size_t>(length) < sizeof(out);
}

int write_new(const char *board, const char *name, std::span<const unsigned char> bytes) {
  char path[1024];
  if (!join(board, name, path))
    return -ENAMETOOLONG;
  // The folder of a block may be missing; those of a template are not.
  for (char *slash = std::strchr(path + std::strlen(board) + 1, '/'); slash != nullptr;
       slash = std::strchr(slash + 1, '/')) {
    *slash = '\0';
    sys_mkdir(path, 0755);
    *slash = '/';
  }
  int fd = sys_open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd == -EEXIST)
    return 0;
  if (fd < 0)
    return fd;
  ssize_t put = sys_write(fd, bytes.data(), bytes.size());
  sys_close(fd);
  if (put < 0)
    return static_cast<int>(put);
  return static_cast<std::size_t>(put) == bytes.size() ? 0 : -EIO;
}

// A block that begins with a text and is filled up with one byte.
int write_filled(const char *board, const char *name, std::size_t size, std::string_view text,
                 unsigned char fill) {
  unsigned char bytes[kLcdFrameSize];
  size = std::min(size, sizeof(bytes));
  std::memset(bytes, fill, size);
  text.copy(reinterpret_cast<char *>(bytes), size);
  return write_new(board, name, {bytes, size});
}

int make_flash(const char *board) {
  char path[1024];
  static char text[kEnvironmentSize];
  if (!join(board, "etc/uboot-env.txt", path))
    return -ENAMETOOLONG;
  int fd = sys_open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return fd;
  ssize_t length = sys_read(fd, text, sizeof(text));
  sys_close(fd);
  if (length < 0)
    return static_cast<int>(length);

  static unsigned char flash[kFlashSize];
  std::memset(flash, 0xFF, sizeof(flash));
  if (!build_uboot_env({text, static_cast<std::size_t>(length)},
                       std::span(flash).first(kEnvironmentSize)))
    return -ENOSPC;
  return write_new(board, "media/mtd1.bin", flash);
}

}  // namespace

int make_media(const char *board) {
  int results[] = {
      make_flash(board),
      write_filled(board, "media/lcd.frame", kLcdFrameSize, {}, 0),
      write_filled(board, "media/iccard.bin", kBlockSize, {}, 0),
      write_filled(board, "sys/bus/nvmem/devices/bootparam0/nvmem", kBlockSize, {}, 0),
      write_filled(board, "sys/bus/nvmem/devices/hardinfo0/nvmem", kBlockSize,
                   "VIRTUAL BOARD REV 1", 0),
  };
  for (int result : results)
    if (result < 0)
      return result;
  return 0;
}

}  // namespace vboard
