#include "vboard/interposer/models/mtd_spare.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/interposer/models/host.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include <algorithm>

namespace vboard {
namespace {

constexpr unsigned char kBlank = 0xFF;

int open_file(const OpenFile &file, int flags) {
  BoardPath name;
  append_text(name, setting_text(file, "medium"), ".oob");
  BoardPath path;
  const int found = find_medium(board_directory(), name.view(), path);
  return found < 0 ? found : board_open(path.c_str(), flags | O_CLOEXEC, 0644);
}

int write_at(int fd, std::span<const unsigned char> bytes, std::uint64_t offset) {
  const ssize_t put = sys_pwrite(fd, bytes.data(), bytes.size(), static_cast<std::int64_t>(offset));
  if (put < 0)
    return static_cast<int>(put);
  return static_cast<std::size_t>(put) == bytes.size() ? 0 : -EIO;
}

int fill_blank(int fd, std::uint64_t from, std::uint64_t to) {
  unsigned char blank[512];
  memset(blank, kBlank, sizeof blank);
  int error = 0;
  while (error == 0 && from < to) {
    const std::size_t piece =
        static_cast<std::size_t>(std::min<std::uint64_t>(to - from, sizeof blank));
    error = write_at(fd, {blank, piece}, from);
    from += piece;
  }
  return error;
}

int read_open(int fd, std::span<unsigned char> out, std::uint64_t offset) {
  const ssize_t got = sys_pread(fd, out.data(), out.size(), static_cast<std::int64_t>(offset));
  if (got < 0)
    return static_cast<int>(got);
  std::ranges::fill(out.subspan(static_cast<std::size_t>(got)), kBlank);
  return 0;
}

int program_open(int fd, std::span<const unsigned char> bytes, std::uint64_t offset) {
  const std::int64_t size = sys_size(fd);
  if (size < 0)
    return static_cast<int>(size);
  int error = fill_blank(fd, static_cast<std::uint64_t>(size), offset);
  for (std::size_t done = 0; error == 0 && done < bytes.size();) {
    unsigned char page[512];
    const std::span<unsigned char> piece(page, std::min(bytes.size() - done, sizeof page));
    error = read_open(fd, piece, offset + done);
    for (std::size_t i = 0; i < piece.size(); ++i)
      piece[i] = static_cast<unsigned char>(piece[i] & bytes[done + i]);
    if (error == 0)
      error = write_at(fd, piece, offset + done);
    done += piece.size();
  }
  return error;
}

}  // namespace

int read_spare(const OpenFile &file, std::span<unsigned char> out, std::uint64_t offset) {
  const int fd = open_file(file, O_RDONLY);
  if (fd == -ENOENT) {
    std::ranges::fill(out, kBlank);
    return 0;
  }
  if (fd < 0)
    return fd;
  const int result = read_open(fd, out, offset);
  sys_close(fd);
  return result;
}

int program_spare(const OpenFile &file, std::span<const unsigned char> bytes,
                  std::uint64_t offset) {
  const int fd = open_file(file, O_RDWR | O_CREAT);
  if (fd < 0)
    return fd;
  const int result = program_open(fd, bytes, offset);
  sys_close(fd);
  return result;
}

int erase_spare(const OpenFile &file, std::uint64_t size, std::uint64_t offset) {
  const int fd = open_file(file, O_RDWR);
  if (fd == -ENOENT)
    return 0;
  if (fd < 0)
    return fd;
  // What comes after the file's end is blank as it is.
  const std::int64_t length = sys_size(fd);
  const std::uint64_t end =
      length < 0 ? 0 : std::min<std::uint64_t>(offset + size, static_cast<std::uint64_t>(length));
  const int result = length < 0 ? static_cast<int>(length) : fill_blank(fd, offset, end);
  sys_close(fd);
  return result;
}

}  // namespace vboard
