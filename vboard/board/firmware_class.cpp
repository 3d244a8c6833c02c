// An image that goes up through the firmware class (/sys/class/firmware/NAME) is programmed as the
// node file firmware/NAME of the board says:
//   medium   where the image ends up: media/MEDIUM
//   size     bytes that the part holds; a longer image is refused
//   fails    what goes wrong, in the class's words: transferring:hw-error, programming:timeout

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/attribute_families.h"
#include "vboard/board/file_updates.h"
#include "vboard/board/node.h"

#include <errno.h>
#include <fcntl.h>

#include <algorithm>

namespace vboard {
namespace {

constexpr std::int64_t kDefaultPart = 262'144;

int store_sibling(const AttributeWrite &write, std::string_view name, std::string_view value) {
  return store_value(write.board, sibling(write.path, name).view(), value);
}

bool is_loading(const char *board, std::string_view path) {
  char text[kPageSize];
  return load_value(board, sibling(path, "loading").view(), text) == "1";
}

ssize_t write_image(const AttributeWrite &write) {
  if (!is_loading(write.board, write.path))
    return -ENODEV;
  BoardPath file;
  if (const int error = find_board_file(write.board, write.path, file); error < 0)
    return error;
  const int fd = hold_file(file.c_str());
  if (fd < 0)
    return fd;
  const ssize_t result = sys_pwrite(fd, write.bytes.data(), write.bytes.size(), write.offset);
  sys_close(fd);
  return result;
}

// Copies `size` bytes of the image to the part's medium, over what is there.
int program(const char *image, const char *medium, std::int64_t size) {
  const int from = board_open(image, O_RDONLY | O_CLOEXEC);
  if (from < 0)
    return from;
  const int to = board_open(medium, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  ssize_t result = std::min(to, 0);
  for (std::int64_t at = 0; result >= 0 && at < size;) {
    char page[kPageSize];
    const std::size_t piece =
        static_cast<std::size_t>(std::min<std::int64_t>(sizeof page, size - at));
    result = sys_pread(from, page, piece, at);
    if (result == 0)
      result = -EIO;
    if (result > 0)
      result = sys_pwrite(to, page, static_cast<std::size_t>(result), at);
    at += result;
  }
  if (to >= 0)
    sys_close(to);
  sys_close(from);
  return static_cast<int>(std::min<ssize_t>(result, 0));
}

// What the class tells when an image went through, or why it did not. A part that fails while it is
// being programmed is left with the first half of the image.
std::string_view take_image(const char *board, std::string_view name, const char *image,
                            std::int64_t size, Node &settings) {
  BoardPath part;
  BoardPath file;
  append_text(part, "firmware/", name);
  if (find_board_file(board, part.view(), file) < 0 || load_node(file.c_str(), settings) < 0)
    return "preparing:hw-error";
  const std::string_view fails = node_text(settings, "fails");
  const std::string_view medium = node_text(settings, "medium");
  if (size > node_number(settings, "size", kDefaultPart))
    return "preparing:invalid-file-size";
  const bool starts = fails.empty() || fails.starts_with("programming");
  if (starts && !medium.empty()) {
    if (find_medium(board, medium, file) < 0 ||
        program(image, file.c_str(), fails.empty() ? size : size / 2) < 0)
      return "programming:hw-error";
  }
  return fails;
}

void drop_image(const char *image) {
  const int fd = board_open(image, O_WRONLY | O_CLOEXEC);
  if (fd < 0)
    return;
  sys_ftruncate(fd, 0);
  sys_close(fd);
}

ssize_t begin_loading(const AttributeWrite &write, const char *image) {
  drop_image(image);
  store_sibling(write, "status", "receiving");
  store_sibling(write, "error", "");
  return store_value(write.board, write.path, "1");
}

ssize_t end_loading(const AttributeWrite &write, const char *image, bool hand_over) {
  std::string_view error;
  Node settings;
  FileStatus status = {};
  if (hand_over && board_stat(image, status) == 0) {
    const std::string_view directory = write.path.substr(0, write.path.rfind('/'));
    error = take_image(write.board, directory.substr(directory.rfind('/') + 1), image,
                       static_cast<std::int64_t>(status.size), settings);
  }
  drop_image(image);
  store_sibling(write, "error", error);
  store_sibling(write, "remaining_size", "0");
  store_sibling(write, "status", "idle");
  return store_value(write.board, write.path, "0");
}

// loading: 1 begins an image, 0 hands it to the part, -1 drops it.
ssize_t write_loading(const AttributeWrite &write) {
  std::int64_t value;
  if (!parse_number(attribute_value(write.bytes), value))
    return -EINVAL;
  BoardPath image;
  if (const int error = find_sibling(write.board, write.path, "data", image); error < 0)
    return error;
  if (value == 1)
    return begin_loading(write, image.c_str());
  if (value != 0 && value != -1)
    return -EINVAL;
  // Without a begun image both leave things as they are.
  return is_loading(write.board, write.path) ? end_loading(write, image.c_str(), value == 0) : 0;
}

}  // namespace

extern constexpr AttributeFamily kFirmwareLoading = {.directory = "/sys/class/firmware/",
                                                     .name = "/loading",
                                                     .form = AttributeForm::kText,
                                                     .write = write_loading};

extern constexpr AttributeFamily kFirmwareData = {.directory = "/sys/class/firmware/",
                                                  .name = "/data",
                                                  .form = AttributeForm::kBinary,
                                                  .write = write_image};

}  // namespace vboard
