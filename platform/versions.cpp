// Versions of what the board booted, from /proc/version, the device tree and os-release.

#include "platform/versions.h"

#include "platform/attribute.h"
#include "platform/board_conf.h"
#include "platform/kernel_version.h"
#include "platform/os_release.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

namespace {

using rigcore::kEntrySize;

// /proc and not uname(): its text is whole where uname() cuts the build text at 64 characters.
constexpr char kKernelPath[] = "/proc/version";

// The first line of a file. A device-tree text ends with a NUL instead of a line end.
int read_line(const char *path, char *text) {
  char read[RIG_VERSION_TEXT_SIZE];
  if (rigcore::attribute_read(path, read, sizeof read) < 0)
    return -1;
  read[strcspn(read, "\n")] = '\0';
  if (read[0] == '\0') {
    errno = ENOENT;
    return -1;
  }
  strcpy(text, read);
  return 0;
}

// The value of one assignment in a file in os-release's form.
int read_assignment(const char *path, const char *name, char *text) {
  char file[4096];
  char value[RIG_VERSION_TEXT_SIZE];
  const ssize_t length = rigcore::attribute_read(path, file, sizeof file);
  if (length < 0)
    return -1;
  if (!rigcore::find_assignment({file, static_cast<std::size_t>(length)}, name, value,
                                sizeof value) ||
      value[0] == '\0') {
    errno = ENOENT;
    return -1;
  }
  strcpy(text, value);
  return 0;
}

// An entry names a file, or a file and one of its assignments behind a blank.
int read_version(const char *key, char *text) {
  char entry[kEntrySize];
  if (rigcore::board_entry(key, entry, sizeof entry) != 0)
    return -1;
  char *name = strpbrk(entry, " \t");
  if (name == nullptr)
    return read_line(entry, text);
  *name++ = '\0';
  return read_assignment(entry, name + strspn(name, " \t"), text);
}

// A packed word out of /proc/version; 0 when the text cannot be read or holds none.
std::uint32_t read_kernel_word(std::uint32_t (*parse)(std::string_view text)) {
  char text[512];
  const ssize_t length = rigcore::attribute_read(kKernelPath, text, sizeof text);
  if (length < 0)
    return 0;
  errno = ENODATA;
  return parse({text, static_cast<std::size_t>(length)});
}

}  // namespace

std::uint32_t rig_kernel_version(void) {
  return read_kernel_word(rigcore::parse_kernel_version);
}

std::uint32_t rig_kernel_date(void) {
  return read_kernel_word(rigcore::parse_kernel_date);
}

int rig_get_korbootversion(char *text) {
  return read_version("version.korboot", text);
}

int rig_get_ubootversion(char *text) {
  return read_version("version.uboot", text);
}

int rig_get_korbspversion(char *text) {
  return read_version("version.korbsp", text);
}

int rig_get_kernelversion(char *text) {
  return read_line(kKernelPath, text);
}
