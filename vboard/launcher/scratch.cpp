#include "vboard/launcher/scratch.h"

#include "vboard/base/text.h"
#include "vboard/launcher/boards.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>

namespace vboard {

namespace {

constexpr std::string_view kPrefix = "vboard.";
constexpr std::size_t kRandomLetters = 6;
constexpr int kOpenDirectory = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// The directory that this process uses, and its locked file.
int own_directory = -1;
int own_mark = -1;

// ".vboard.XXXXXX" for "/tmp/vboard.XXXXXX".
FixedText<kFileName> mark_of(const char *path) {
  FixedText<kFileName> mark;
  const char *slash = strrchr(path, '/');
  append_text(mark, ".", slash != nullptr ? slash + 1 : path);
  return mark;
}

const char *place_of_scratch() {
  const char *chosen = getenv("TMPDIR");
  return chosen != nullptr && *chosen != '\0' ? chosen : P_tmpdir;
}

// The file gets its name once it is locked, so that nobody sweeps it in between. Without locks (on
// some network file systems) it gets none, and the directory is never swept.
void mark_as_used(const char *path) {
  constexpr char kUnlocked[] = ".vboard-new";
  own_directory = open(path, kOpenDirectory);
  own_mark = openat(own_directory, kUnlocked, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (own_mark >= 0 && flock(own_mark, LOCK_EX | LOCK_NB) == 0)
    renameat(own_directory, kUnlocked, own_directory, mark_of(path).c_str());
}

void remove_entry(int directory, const char *name);

// Removes what is in a directory, without following links; `kept` stays. The descriptor is closed.
void empty_directory(int fd, const char *kept) {
  // A program may have taken its rights away.
  fchmod(fd, 0700);
  DIR *directory = fdopendir(fd);
  if (directory == nullptr) {
    close(fd);
    return;
  }
  while (const dirent *entry = readdir(directory)) {
    if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0 &&
        strcmp(entry->d_name, kept) != 0)
      remove_entry(fd, entry->d_name);
  }
  closedir(directory);
}

void remove_entry(int directory, const char *name) {
  if (unlinkat(directory, name, 0) == 0 || (errno != EISDIR && errno != EPERM))
    return;
  int fd = openat(directory, name, kOpenDirectory);
  if (fd < 0 && errno == EACCES && fchmodat(directory, name, 0700, 0) == 0)
    fd = openat(directory, name, kOpenDirectory);
  if (fd >= 0)
    empty_directory(fd, "");
  unlinkat(directory, name, AT_REMOVEDIR);
}

// The mark goes last, so that a directory of which a part is left is still known. A process that is
// being killed may have made a file meanwhile.
void remove_marked(int directory, const char *path) {
  const FixedText<kFileName> mark = mark_of(path);
  fchmod(directory, 0700);
  const int listed = openat(directory, ".", kOpenDirectory);
  if (listed >= 0)
    empty_directory(listed, mark.c_str());
  unlinkat(directory, mark.c_str(), 0);
  if (rmdir(path) < 0)
    close(openat(directory, mark.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
}

bool may_be_scratch(const dirent &entry) {
  const std::string_view name(entry.d_name);
  return name.size() == kPrefix.size() + kRandomLetters && name.starts_with(kPrefix) &&
         (entry.d_type == DT_DIR || entry.d_type == DT_UNKNOWN);
}

// Whether the descriptor is a file of this user's that still has a name.
bool is_own_file(int fd) {
  struct stat status;
  return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
         status.st_nlink > 0;
}

bool is_own_directory(int fd) {
  struct stat status;
  return fstat(fd, &status) == 0 && status.st_uid == geteuid();
}

void sweep(int place, const char *path, const char *name) {
  const int directory = openat(place, name, kOpenDirectory);
  if (directory < 0)
    return;
  const int mark = openat(directory, mark_of(path).c_str(),
                          O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  // The file is looked at under the lock: another sweeper may just have been there.
  if (mark >= 0 && is_own_directory(directory) && flock(mark, LOCK_EX | LOCK_NB) == 0 &&
      is_own_file(mark))
    remove_marked(directory, path);
  close(mark);
  close(directory);
}

}  // namespace

int make_scratch(char *out) {
  FixedText<kFileName> name;
  append_text(name, place_of_scratch(), "/", kPrefix, "XXXXXX");
  char absolute[PATH_MAX];
  if (name.overflow)
    return fail("the name is too long: %s", name.c_str());
  if (mkdtemp(name.data) == nullptr)
    return fail("%s: %s (TMPDIR names another place for a board of one run)", name.c_str(),
                strerror(errno));
  if (realpath(name.c_str(), absolute) == nullptr)
    return fail("%s: %s", name.c_str(), strerror(errno));
  mark_as_used(absolute);
  return copy_text({out, kFileName}, absolute) ? 0 : fail("%s: the name is too long", absolute);
}

void remove_scratch(const char *path) {
  if (own_directory >= 0)
    remove_marked(own_directory, path);
  close(own_mark);
  close(own_directory);
  own_directory = own_mark = -1;
}

void sweep_scratch() {
  const char *place = place_of_scratch();
  DIR *directory = opendir(place);
  if (directory == nullptr)
    return;
  while (const dirent *entry = readdir(directory)) {
    if (!may_be_scratch(*entry))
      continue;
    FixedText<kFileName> path;
    append_text(path, place, "/", entry->d_name);
    if (!path.overflow)
      sweep(dirfd(directory), path.c_str(), entry->d_name);
  }
  closedir(directory);
}

}  // namespace vboard
