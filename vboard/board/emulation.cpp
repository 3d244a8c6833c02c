#include "vboard/board/emulation.h"

#include "vboard/base/kernel.h"

#include <elf.h>
#include <fcntl.h>
#include <string.h>

namespace vboard {

bool is_arm_program(const char *file) {
  unsigned char head[20] = {};
  const int fd = sys_open(file, O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return false;
  const ssize_t size = sys_read(fd, head, sizeof head);
  sys_close(fd);
  return size == sizeof head && memcmp(head, ELFMAG, SELFMAG) == 0 && head[4] == ELFCLASS32 &&
         head[18] == EM_ARM && head[19] == 0;
}

}  // namespace vboard
