// Calls on files and descriptors.

#include "probe.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <glob.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace {

unsigned char bytes[65536];
FILE *stream;
unsigned char *mapping;
std::size_t mapping_size;

// "rdwr,creat,trunc"
int open_flags(const char *text) {
  static const struct {
    const char *name;
    int flag;
  } names[] = {{"rdonly", O_RDONLY},   {"wronly", O_WRONLY},     {"rdwr", O_RDWR},
               {"creat", O_CREAT},     {"trunc", O_TRUNC},       {"append", O_APPEND},
               {"excl", O_EXCL},       {"nonblock", O_NONBLOCK}, {"directory", O_DIRECTORY},
               {"cloexec", O_CLOEXEC}, {"noctty", O_NOCTTY},     {"sync", O_SYNC}};
  int flags = 0;
  char copy[128];
  snprintf(copy, sizeof copy, "%s", text);
  for (char *word = strtok(copy, ","); word != nullptr; word = strtok(nullptr, ",")) {
    bool known = false;
    for (const auto &name : names) {
      if (strcmp(name.name, word) == 0) {
        flags |= name.flag;
        known = true;
      }
    }
    if (!known) {
      fprintf(stderr, "probe: no flag %s\n", word);
      exit(2);
    }
  }
  return flags;
}

void step_open(char **words) {
  // Two arguments and three are two forms of the call.
  const int flags = open_flags(words[1]);
  current = (flags & O_CREAT) ? open(words[0], flags, 0644) : open(words[0], flags);
  report("open", current);
}

void step_openat(char **words) {
  const int directory = open(words[0], O_RDONLY | O_DIRECTORY);
  if (directory < 0) {
    report("openat", directory);
    return;
  }
  const int flags = open_flags(words[2]);
  current = (flags & O_CREAT) ? openat(directory, words[1], flags, 0644)
                              : openat(directory, words[1], flags);
  // The directory's descriptor stays open, so that a test can tell the two apart.
  report("openat", current);
}

void step_chdir(char **words) {
  report("chdir", chdir(words[0]));
}

void step_creat(char **words) {
  current = creat(words[0], 0644);
  report("creat", current);
}

// The calls that start from a directory's descriptor. Each opens the directory, makes its call and
// leaves the directory open.
int directory(const char *path) {
  const int result = open(path, O_RDONLY | O_DIRECTORY);
  if (result < 0)
    fprintf(stderr, "probe: %s: %s\n", path, strerror(errno));
  return result;
}

void step_unlinkat(char **words) {
  report("unlinkat", unlinkat(directory(words[0]), words[1], 0));
}

void step_mkdirat(char **words) {
  report("mkdirat", mkdirat(directory(words[0]), words[1], 0755));
}

void step_renameat(char **words) {
  const int place = directory(words[0]);
  report("renameat", renameat(place, words[1], place, words[2]));
}

void step_linkat(char **words) {
  const int place = directory(words[0]);
  report("linkat", linkat(place, words[1], place, words[2], 0));
}

void step_symlinkat(char **words) {
  report("symlinkat", symlinkat(words[1], directory(words[0]), words[2]));
}

void step_fchmodat(char **words) {
  report("fchmodat", fchmodat(directory(words[0]), words[1], 0, 0));
}

void step_fstatat(char **words) {
  struct stat status;
  const int result = fstatat(directory(words[0]), words[1], &status, 0);
  if (result != 0)
    report("fstatat", result);
  else
    printf("fstatat %ld\n", static_cast<long>(status.st_size));
}

void step_faccessat(char **words) {
  report("faccessat", faccessat(directory(words[0]), words[1], F_OK, 0));
}

void step_close(char **) {
  report("close", close(current));
}

void step_fd(char **words) {
  current = atoi(words[0]);
}

void step_dup(char **) {
  current = dup(current);
  report("dup", current);
}

void step_dup2(char **words) {
  current = dup2(current, atoi(words[0]));
  report("dup2", current);
}

void step_fcntl_dup(char **words) {
  current = fcntl(current, F_DUPFD_CLOEXEC, atoi(words[0]));
  report("fcntl_dup", current);
}

void step_nonblock(char **) {
  report("nonblock", fcntl(current, F_SETFL, fcntl(current, F_GETFL) | O_NONBLOCK));
}

// How many bytes a call of `size` that returned `result` may have filled.
std::size_t shown(ssize_t result, std::size_t size) {
  return result < 0 ? 0 : std::min(static_cast<std::size_t>(result), size);
}

std::size_t size_word(const char *word) {
  return std::min(sizeof bytes, static_cast<std::size_t>(strtoul(word, nullptr, 0)));
}

void step_read(char **words) {
  const std::size_t size = size_word(words[0]);
  const ssize_t got = read(current, bytes, size);
  report_bytes("read", got, bytes, shown(got, size));
}

void step_readv(char **words) {
  const std::size_t size = size_word(words[0]);
  iovec parts[] = {{bytes, size / 2}, {bytes + size / 2, size - size / 2}};
  const ssize_t got = readv(current, parts, 2);
  report_bytes("readv", got, bytes, shown(got, size));
}

void step_pread(char **words) {
  const std::size_t size = size_word(words[0]);
  const ssize_t got = pread(current, bytes, size, static_cast<off_t>(strtol(words[1], nullptr, 0)));
  report_bytes("pread", got, bytes, shown(got, size));
}

void step_write(char **words) {
  const std::size_t count = read_bytes(words[0], bytes, sizeof bytes);
  report("write", write(current, bytes, count));
}

void step_writev(char **words) {
  const std::size_t count = read_bytes(words[0], bytes, sizeof bytes);
  iovec parts[] = {{bytes, count / 2}, {bytes + count / 2, count - count / 2}};
  report("writev", writev(current, parts, 2));
}

void step_pwrite(char **words) {
  const std::size_t count = read_bytes(words[0], bytes, sizeof bytes);
  report("pwrite", pwrite(current, bytes, count, static_cast<off_t>(strtol(words[1], nullptr, 0))));
}

void step_text(char **words) {
  report("text", write(current, words[0], strlen(words[0])));
}

void step_lseek(char **words) {
  const int whence = strcmp(words[1], "end") == 0   ? SEEK_END
                     : strcmp(words[1], "cur") == 0 ? SEEK_CUR
                                                    : SEEK_SET;
  report("lseek", static_cast<long>(
                      lseek(current, static_cast<off_t>(strtol(words[0], nullptr, 0)), whence)));
}

// ioctl NUMBER BYTES: the record before the call; "null", "bad" (an address that is not mapped) or
// "readonly" (one that cannot be written) in its place.
void step_ioctl(char **words) {
  // A number of more than 32 bits is a 64-bit program's; others see the low half, as the kernel
  // does.
  const unsigned long request = static_cast<unsigned long>(strtoull(words[0], nullptr, 0));
  if (strcmp(words[1], "null") == 0 || strcmp(words[1], "bad") == 0) {
    void *nowhere = reinterpret_cast<void *>(
        static_cast<std::uintptr_t>(strcmp(words[1], "bad") == 0 ? 16 : 0));
    report("ioctl", ioctl(current, request, nowhere));
    return;
  }
  if (strcmp(words[1], "readonly") == 0) {
    void *page = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    report("ioctl", ioctl(current, request, page));
    return;
  }
  // What stands behind the record must stay as it is.
  memset(bytes, 0xA5, sizeof bytes);
  const std::size_t count = read_bytes(words[1], bytes, sizeof bytes / 2);
  const int result = ioctl(current, request, bytes);
  report_bytes("ioctl", result, bytes, count);
  if (std::any_of(bytes + count, std::end(bytes), [](unsigned char byte) { return byte != 0xA5; }))
    printf("ioctl wrote behind its record\n");
}

// A buffer of which only the first `room` bytes are there: they end where a page ends.
unsigned char *buffer_with_edge(std::size_t room) {
  constexpr std::size_t kPage = 4096;
  static unsigned char *pages;
  if (pages == nullptr) {
    pages = static_cast<unsigned char *>(
        mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    munmap(pages + kPage, kPage);
  }
  return pages + kPage - room;
}

// edge_read SIZE ROOM, edge_write SIZE ROOM
void step_edge_read(char **words) {
  const std::size_t size = strtoul(words[0], nullptr, 0);
  unsigned char *buffer = buffer_with_edge(strtoul(words[1], nullptr, 0));
  const ssize_t got = read(current, buffer, size);
  report_bytes("edge_read", got, buffer, got > 0 ? static_cast<std::size_t>(got) : 0);
}

void step_edge_write(char **words) {
  report("edge_write", write(current, buffer_with_edge(strtoul(words[1], nullptr, 0)),
                             strtoul(words[0], nullptr, 0)));
}

// A read into memory that nobody has touched: how many of its pages there are afterwards.
void step_roomy_read(char **words) {
  const std::size_t size = strtoul(words[0], nullptr, 0);
  void *room = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  const ssize_t got = read(current, room, size);
  std::size_t pages = 0;
  for (std::size_t at = 0; at < size; at += 4096) {
    unsigned char here = 0;
    if (mincore(static_cast<unsigned char *>(room) + at, 4096, &here) == 0 && (here & 1) != 0)
      ++pages;
  }
  report("roomy_read", got);
  printf("pages %zu\n", pages);
  munmap(room, size);
}

void step_ioctl_number(char **words) {
  report("ioctl_number", ioctl(current, static_cast<unsigned long>(strtoull(words[0], nullptr, 0)),
                               strtoul(words[1], nullptr, 0)));
}

const char *kind(mode_t mode) {
  return S_ISCHR(mode)    ? "character"
         : S_ISBLK(mode)  ? "block"
         : S_ISDIR(mode)  ? "directory"
         : S_ISREG(mode)  ? "file"
         : S_ISSOCK(mode) ? "socket"
                          : "other";
}

void report_stat(const char *name, int result, const struct stat &status) {
  if (result != 0)
    report(name, result);
  else
    printf("%s %s\n", name, kind(status.st_mode));
}

void step_fstat(char **) {
  struct stat status;
  const int result = fstat(current, &status);
  report_stat("fstat", result, status);
}

void step_stat(char **words) {
  struct stat status;
  const int result = stat(words[0], &status);
  report_stat("stat", result, status);
}

void step_lstat(char **words) {
  struct stat status;
  const int result = lstat(words[0], &status);
  report_stat("lstat", result, status);
}

void step_access(char **words) {
  int mode = 0;
  for (const char *letter = words[1]; *letter != '\0'; ++letter)
    mode |= *letter == 'r' ? R_OK : *letter == 'w' ? W_OK : *letter == 'x' ? X_OK : F_OK;
  report("access", access(words[0], mode));
}

int by_name(const void *left, const void *right) {
  return strcmp(*static_cast<char *const *>(left), *static_cast<char *const *>(right));
}

void step_list(char **words) {
  DIR *directory = opendir(words[0]);
  if (directory == nullptr) {
    report("list", -1);
    return;
  }
  char *names[512];
  std::size_t count = 0;
  while (const dirent *entry = readdir(directory)) {
    if (count < std::size(names) && strcmp(entry->d_name, ".") != 0 &&
        strcmp(entry->d_name, "..") != 0)
      names[count++] = strdup(entry->d_name);
  }
  closedir(directory);
  qsort(names, count, sizeof names[0], by_name);
  printf("list");
  for (std::size_t i = 0; i < count; ++i)
    printf(" %s", names[i]);
  printf("\n");
}

void step_scandir(char **words) {
  dirent **entries = nullptr;
  const int count = scandir(words[0], &entries, nullptr, alphasort);
  if (count < 0) {
    report("scandir", count);
    return;
  }
  printf("scandir");
  for (int i = 0; i < count; ++i) {
    if (entries[i]->d_name[0] != '.')
      printf(" %s", entries[i]->d_name);
  }
  printf("\n");
}

void step_glob(char **words) {
  glob_t found = {};
  const int result = glob(words[0], 0, nullptr, &found);
  printf("glob %d", result);
  for (std::size_t i = 0; result == 0 && i < found.gl_pathc; ++i)
    printf(" %s", found.gl_pathv[i]);
  printf("\n");
}

void step_readlink(char **words) {
  char target[4096];
  const ssize_t length = readlink(words[0], target, sizeof target);
  if (length < 0)
    report("readlink", length);
  else
    printf("readlink %.*s\n", static_cast<int>(length), target);
}

void step_realpath(char **words) {
  char target[4096];
  if (realpath(words[0], target) == nullptr)
    report("realpath", -1);
  else
    printf("realpath %s\n", target);
}

void step_fopen(char **words) {
  stream = fopen(words[0], words[1]);
  report("fopen", stream == nullptr ? -1 : 0);
}

void step_fgets(char **) {
  char line[4096];
  if (fgets(line, sizeof line, stream) == nullptr) {
    printf("fgets %s\n", ferror(stream) ? strerrorname_np(errno) : "end");
    return;
  }
  line[strcspn(line, "\n")] = '\0';
  printf("fgets %s\n", line);
}

void step_fread(char **words) {
  const std::size_t size = size_word(words[0]);
  const std::size_t got = fread(bytes, 1, size, stream);
  report_bytes("fread", static_cast<long>(got), bytes, shown(static_cast<ssize_t>(got), size));
}

void step_fwrite(char **words) {
  const std::size_t count = read_bytes(words[0], bytes, sizeof bytes);
  report("fwrite", static_cast<long>(fwrite(bytes, 1, count, stream)));
}

void step_fputs(char **words) {
  report("fputs", fputs(words[0], stream) < 0 ? -1 : 0);
}

void step_fflush(char **) {
  report("fflush", fflush(stream));
}

void step_fclose(char **) {
  report("fclose", fclose(stream));
}

void step_fileno(char **) {
  current = fileno(stream);
  report("fileno", current >= 0 ? 0 : -1);
}

void step_mmap(char **words) {
  mapping_size = strtoul(words[0], nullptr, 0);
  void *address = mmap(nullptr, mapping_size, PROT_READ | PROT_WRITE, MAP_SHARED, current,
                       static_cast<off_t>(strtoul(words[1], nullptr, 0)));
  if (address == MAP_FAILED) {
    report("mmap", -1);
    return;
  }
  mapping = static_cast<unsigned char *>(address);
  report_bytes("mmap", 0, mapping, std::min(mapping_size, static_cast<std::size_t>(8)));
}

void step_poke(char **words) {
  const std::size_t count = read_bytes(words[0], bytes, sizeof bytes);
  memcpy(mapping, bytes, std::min(count, mapping_size));
  report("poke", 0);
}

void step_munmap(char **) {
  report("munmap", munmap(mapping, mapping_size));
}

void step_remove(char **words) {
  report("remove", remove(words[0]));
}

void step_link(char **words) {
  report("link", link(words[0], words[1]));
}

void step_mkfifo(char **words) {
  report("mkfifo", mkfifo(words[0], 0600));
}

void step_utimes(char **words) {
  timeval times[2] = {{1000, 0}, {1000, 0}};
  report("utimes", utimes(words[0], times));
}

void step_chown(char **words) {
  report("chown", chown(words[0], getuid(), getgid()));
}

void step_unlink(char **words) {
  report("unlink", unlink(words[0]));
}

void step_mkdir(char **words) {
  report("mkdir", mkdir(words[0], 0755));
}

void step_rmdir(char **words) {
  report("rmdir", rmdir(words[0]));
}

void step_rename(char **words) {
  report("rename", rename(words[0], words[1]));
}

void step_truncate(char **words) {
  report("truncate", truncate(words[0], static_cast<off_t>(strtol(words[1], nullptr, 0))));
}

void step_chmod(char **words) {
  report("chmod", chmod(words[0], static_cast<mode_t>(strtoul(words[1], nullptr, 8))));
}

void step_symlink(char **words) {
  report("symlink", symlink(words[0], words[1]));
}

}  // namespace

const Step kFileSteps[] = {
    {"open", 2, step_open},
    {"openat", 3, step_openat},
    {"chdir", 1, step_chdir},
    {"creat", 1, step_creat},
    {"unlinkat", 2, step_unlinkat},
    {"mkdirat", 2, step_mkdirat},
    {"renameat", 3, step_renameat},
    {"linkat", 3, step_linkat},
    {"symlinkat", 3, step_symlinkat},
    {"fchmodat", 2, step_fchmodat},
    {"fstatat", 2, step_fstatat},
    {"faccessat", 2, step_faccessat},
    {"close", 0, step_close},
    {"fd", 1, step_fd},
    {"dup", 0, step_dup},
    {"dup2", 1, step_dup2},
    {"fcntl_dup", 1, step_fcntl_dup},
    {"nonblock", 0, step_nonblock},
    {"read", 1, step_read},
    {"readv", 1, step_readv},
    {"pread", 2, step_pread},
    {"write", 1, step_write},
    {"writev", 1, step_writev},
    {"pwrite", 2, step_pwrite},
    {"text", 1, step_text},
    {"lseek", 2, step_lseek},
    {"ioctl", 2, step_ioctl},
    {"ioctl_number", 2, step_ioctl_number},
    {"edge_read", 2, step_edge_read},
    {"edge_write", 2, step_edge_write},
    {"roomy_read", 1, step_roomy_read},
    {"fstat", 0, step_fstat},
    {"stat", 1, step_stat},
    {"lstat", 1, step_lstat},
    {"access", 2, step_access},
    {"list", 1, step_list},
    {"scandir", 1, step_scandir},
    {"glob", 1, step_glob},
    {"readlink", 1, step_readlink},
    {"realpath", 1, step_realpath},
    {"fopen", 2, step_fopen},
    {"fgets", 0, step_fgets},
    {"fread", 1, step_fread},
    {"fwrite", 1, step_fwrite},
    {"fputs", 1, step_fputs},
    {"fflush", 0, step_fflush},
    {"fclose", 0, step_fclose},
    {"fileno", 0, step_fileno},
    {"mmap", 2, step_mmap},
    {"poke", 1, step_poke},
    {"munmap", 0, step_munmap},
    {"remove", 1, step_remove},
    {"link", 2, step_link},
    {"mkfifo", 1, step_mkfifo},
    {"utimes", 1, step_utimes},
    {"chown", 1, step_chown},
    {"unlink", 1, step_unlink},
    {"mkdir", 1, step_mkdir},
    {"rmdir", 1, step_rmdir},
    {"rename", 2, step_rename},
    {"truncate", 2, step_truncate},
    {"chmod", 2, step_chmod},
    {"symlink", 2, step_symlink},
    {nullptr, 0, nullptr},
};
