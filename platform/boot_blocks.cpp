// The two 256-byte blocks, files of the nvmem class (or anything else that is read and written in
// place), and the hexadecimal dump that shows them.

#include "platform/boot_blocks.h"

#include "platform/attribute.h"
#include "platform/board_conf.h"
#include "platform/hexdump.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

namespace {

using rigcore::kEntrySize;

constexpr std::size_t kBlockSize = 256;
static_assert(RIG_BOOTPARAM_SIZE == kBlockSize && RIG_HARDINFO_SIZE == kBlockSize);

// The opener closes: -1 with the worker's errno, or close()'s when only that failed.
int closed(int fd, int result) {
  const int reason = errno;
  if (rigcore::close_checked(fd) != 0 && result == 0)
    return -1;
  errno = reason;
  return result;
}

int read_block(int fd, void *block) {
  unsigned char read[kBlockSize];
  const ssize_t count = rigcore::read_whole(fd, read, kBlockSize);
  if (count < 0)
    return -1;
  if (static_cast<std::size_t>(count) != kBlockSize) {
    errno = EIO;
    return -1;
  }
  memcpy(block, read, kBlockSize);
  return 0;
}

int write_block(int fd, const void *block) {
  if (!rigcore::write_whole(fd, block, kBlockSize))
    return -1;
  // A driver whose writes are through already need not have a sync.
  return fsync(fd) == 0 || errno == EINVAL || errno == EROFS || errno == ENOTSUP ? 0 : -1;
}

int open_block(const char *key, int size, int flags) {
  char path[kEntrySize];
  if (size != static_cast<int>(kBlockSize)) {
    errno = EINVAL;
    return -1;
  }
  return rigcore::board_entry(key, path, sizeof path) == 0 ? open(path, flags | O_CLOEXEC) : -1;
}

}  // namespace

int rig_bootparam_get(void *block, int size) {
  const int fd = open_block("bootparam", size, O_RDONLY);
  return fd < 0 ? -1 : closed(fd, read_block(fd, block));
}

int rig_bootparam_set(const void *block, int size) {
  // Never truncated first: a power cut then must not leave an empty block.
  const int fd = open_block("bootparam", size, O_WRONLY);
  return fd < 0 ? -1 : closed(fd, write_block(fd, block));
}

int rig_hardinfo_get(void *block, int size) {
  const int fd = open_block("hardinfo", size, O_RDONLY);
  return fd < 0 ? -1 : closed(fd, read_block(fd, block));
}

void rig_bytes_print(const void *bytes, int size) {
  const auto *next = static_cast<const unsigned char *>(bytes);
  const std::size_t total = size > 0 ? static_cast<std::size_t>(size) : 0;
  // A block's 16 rows leave in one write, also to a terminal.
  char rows[16 * rigcore::kHexdumpRowSize];
  std::size_t length = 0;
  for (std::size_t offset = 0; offset < total; offset += rigcore::kHexdumpRowBytes) {
    const std::size_t rest = total - offset;
    if (length + rigcore::kHexdumpRowSize > sizeof rows) {
      fwrite(rows, 1, length, stdout);
      length = 0;
    }
    length +=
        rigcore::hexdump_row(rows + length, offset, next + offset,
                             rest < rigcore::kHexdumpRowBytes ? rest : rigcore::kHexdumpRowBytes);
  }
  fwrite(rows, 1, length, stdout);
}
