// Programming the CPLD through the kernel's firmware upload class:
//   loading   1 begins an image, 0 hands it to the driver, -1 drops it
//   data      takes the image
//   status    idle, or what the driver is doing; it works on its own after loading went to 0
//   error     empty after a success, else "<status>:<reason>"
//   cancel    1 asks the driver to stop, which it refuses while the flash is being written

#include "platform/upgrade.h"

#include "platform/attribute.h"
#include "platform/board_conf.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <string_view>

namespace {

using rigcore::kEntrySize;

// The slowest parts are erased and programmed in about two minutes.
constexpr time_t kLimitSeconds = 300;
constexpr timespec kPollInterval = {0, 100'000'000};

struct UploadError {
  char reason[20];
  int number;
};

// The reasons of the firmware upload class that say more than EIO, which is the errno of all
// others.
constexpr UploadError kUploadErrors[] = {
    // clang-format off
    {"timeout",           ETIMEDOUT},
    {"user-abort",        ECANCELED},
    {"device-busy",       EBUSY},
    {"invalid-file-size", EFBIG},
    {"firmware-invalid",  EBADMSG},
    // clang-format on
};

int upload_errno(const char *error) {
  const char *colon = strchr(error, ':');
  const char *reason = colon != nullptr ? colon + 1 : error;
  for (const UploadError &row : kUploadErrors) {
    if (strcmp(row.reason, reason) == 0)
      return row.number;
  }
  return EIO;
}

struct AttributePath {
  char text[kEntrySize + 16];
};

AttributePath attribute_of(const char *device, const char *name) {
  AttributePath path;
  snprintf(path.text, sizeof path.text, "%s/%s", device, name);
  return path;
}

bool read_status(const char *device, char *status, std::size_t size) {
  return rigcore::attribute_read(attribute_of(device, "status").text, status, size) >= 0;
}

bool write_image(const char *device, const void *image, std::size_t size) {
  const int fd = open(attribute_of(device, "data").text, O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (fd < 0)
    return false;
  // The kernel takes a page of it at a time.
  const bool written = rigcore::write_whole(fd, image, size);
  const int reason = errno;
  if (rigcore::close_checked(fd) != 0 && written)
    return false;
  errno = reason;
  return written;
}

// Tells that the upload ended badly, and whether the CPLD itself has been touched by then: the
// board must not be switched off in the belief that it is whole. `state` begins with the driver's
// status.
int fail(const char *device, const char *state, int number) {
  const std::string_view reached = state;
  const bool untouched = reached.starts_with("receiving") || reached.starts_with("preparing");
  fprintf(stderr, "%s: upload failed (%s)%s\n", device, state,
          untouched ? "" : ", the CPLD may be half programmed");
  errno = number;
  return -1;
}

// Waits for the driver to end.
int wait_for_driver(const char *device) {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  const time_t limit = now.tv_sec + kLimitSeconds;
  for (;;) {
    char status[64];
    if (!read_status(device, status, sizeof status))
      return fail(device, "no status", errno);
    if (strcmp(status, "idle") == 0)
      break;
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (now.tv_sec >= limit) {
      rigcore::attribute_write(attribute_of(device, "cancel").text, "1");
      return fail(device, status, ETIMEDOUT);
    }
    nanosleep(&kPollInterval, nullptr);
  }
  char error[64];
  if (rigcore::attribute_read(attribute_of(device, "error").text, error, sizeof error) < 0)
    return fail(device, "no result", errno);
  return error[0] == '\0' ? 0 : fail(device, error, upload_errno(error));
}

int burn(const char *device, const void *image, std::size_t size) {
  char status[64];
  if (!read_status(device, status, sizeof status))
    return -1;
  if (strcmp(status, "idle") != 0) {
    errno = EBUSY;
    return -1;
  }
  const AttributePath loading = attribute_of(device, "loading");
  if (rigcore::attribute_write(loading.text, "1") != 0)
    return -1;
  if (!write_image(device, image, size) || rigcore::attribute_write(loading.text, "0") != 0) {
    const int reason = errno;
    rigcore::attribute_write(loading.text, "-1");
    errno = reason;
    return -1;
  }
  return wait_for_driver(device);
}

}  // namespace

int rig_upgrade_burn_cpld(int index, const void *image, int size) {
  if (index != 0 || image == nullptr || size <= 0) {
    errno = EINVAL;
    return -1;
  }
  if (size > RIG_CPLD_IMAGE_MAX) {
    errno = EFBIG;
    return -1;
  }
  char device[kEntrySize];
  if (rigcore::board_entry("cpld", device, sizeof device) != 0)
    return -1;
  return burn(device, image, static_cast<std::size_t>(size));
}
