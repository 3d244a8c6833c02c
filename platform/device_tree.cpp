// Properties of the running device tree, changed by an overlay that is handed to the kernel through
// its overlay directory of configfs. An overlay stays until its directory is removed (rmdir), which
// takes the change back; one that is applied later wins over earlier ones.

#include "platform/device_tree.h"

#include "platform/attribute.h"
#include "platform/overlay_blob.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char kTree[] = "/proc/device-tree";
constexpr char kOverlays[] = "/sys/kernel/config/device-tree/overlays";
constexpr int kMostOverlays = 1000;
constexpr std::size_t kBlobSize = 16 << 10;

struct OverlayPath {
  char text[128];
};

// errno must be told apart from what stderr does to it.
int fail(int number, const char *reason) {
  fprintf(stderr, "rig_dtb_overlay: %s\n", reason);
  errno = number;
  return -1;
}

bool is_node(const char *node) {
  char path[512];
  const int length = snprintf(path, sizeof path, "%s%s", kTree, node);
  struct stat status;
  return static_cast<std::size_t>(length) < sizeof path && stat(path, &status) == 0 &&
         S_ISDIR(status.st_mode);
}

OverlayPath attribute_of(const OverlayPath &overlay, const char *name) {
  OverlayPath path;
  snprintf(path.text, sizeof path.text, "%.100s/%s", overlay.text, name);
  return path;
}

// A directory of its own for the overlay: the first number that is free.
int make_overlay(OverlayPath *out_overlay) {
  for (int number = 0; number < kMostOverlays; ++number) {
    snprintf(out_overlay->text, sizeof out_overlay->text, "%s/benchrig-%d", kOverlays, number);
    if (mkdir(out_overlay->text, 0755) == 0)
      return 0;
    if (errno != EEXIST)
      return -1;
  }
  return -1;
}

// The kernel collects what is written and applies it when the file is closed.
bool write_blob(const char *path, const void *blob, std::size_t size) {
  const int fd = open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0)
    return false;
  const bool written = rigcore::write_whole(fd, blob, size);
  const int reason = errno;
  if (rigcore::close_checked(fd) != 0 && written)
    return false;
  errno = reason;
  return written;
}

// The close of the blob does not tell whether the kernel liked it; the status does.
int apply(const OverlayPath &overlay, const void *blob, std::size_t size) {
  if (!write_blob(attribute_of(overlay, "dtbo").text, blob, size))
    return -1;
  char status[32];
  if (rigcore::attribute_read(attribute_of(overlay, "status").text, status, sizeof status) < 0)
    return -1;
  if (strcmp(status, "applied") != 0) {
    errno = EIO;
    return -1;
  }
  return 0;
}

}  // namespace

int rig_dtb_overlay(DtbOverlayProp *props, int count) {
  if (props == nullptr || count < 1)
    return fail(EINVAL, "no property");
  for (int i = 0; i < count; ++i) {
    if (!rigcore::is_overlay_property(props[i]))
      return fail(EINVAL, "not a property that a device tree can hold");
  }
  if (access(kOverlays, F_OK) != 0)
    return fail(ENOSYS, "this kernel takes no device-tree overlays at run time");
  for (int i = 0; i < count; ++i) {
    if (!is_node(props[i].node))
      return fail(ENOENT, "no such node in the device tree");
  }
  alignas(8) static unsigned char blob[kBlobSize];
  const int size = rigcore::build_overlay(props, count, blob, sizeof blob);
  if (size < 0) {
    const int reason = errno;
    return fail(reason, reason == ELIBACC ? "libfdt.so.1 is not installed" : "too many properties");
  }
  OverlayPath overlay;
  if (make_overlay(&overlay) != 0)
    return fail(errno, "the kernel's overlay directory takes no new overlay");
  if (apply(overlay, blob, static_cast<std::size_t>(size)) != 0) {
    const int reason = errno;
    rmdir(overlay.text);
    return fail(reason, "the kernel refused the overlay");
  }
  return 0;
}
