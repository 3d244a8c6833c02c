// Wraps opendir fdopendir closedir readdir readdir64 rewinddir scandir scandir64 glob glob64 ftw
// ftw64 nftw nftw64.
//
// A directory that both the board and the PC have (/etc, /proc) lists the board's names first, then
// those that only the PC has. A fresh board's own names come before those of its template.

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/board/file_updates.h"
#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/opening.h"
#include "vboard/interposer/core/paths.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/core/transfers.h"
#include "vboard/interposer/core/wrap.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <glob.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

using namespace vboard;

DECLARE_WRAPPED(DIR *, opendir, const char *);
DECLARE_WRAPPED(DIR *, fdopendir, int);
DECLARE_WRAPPED(int, closedir, DIR *);

namespace {

bool is_dot(const char *name) {
  return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

bool is_absent_entry(const Description &directory, const char *name) {
  BoardPath path;
  append_text(path, directory.asked, "/", name);
  return path.overflow || is_absent({path.view(), path.view()});
}

// Whether a name of one layer was listed by a layer before it.
bool is_listed(const Description &directory, const char *name) {
  BoardPath path;
  if (find_board_file(board_root(), directory.real, path) < 0)
    return false;
  append_text(path, "/", name);
  FileStatus status;
  const bool after_template = directory.layer > 1;
  return (after_template ? board_stat(path.c_str(), status, false)
                         : sys_stat(path.c_str(), status, false)) == 0;
}

// A node file of /dev is a device in a listing.
template <typename Entry>
void show_type(const Description &directory, Entry &entry) {
  const std::string_view name(directory.real);
  if (entry.d_type == DT_REG && territory_of(directory.real) == Territory::kBoard &&
      name.starts_with("/dev"))
    entry.d_type = DT_CHR;
}

// The next entry of a directory of the board, by libc's reader of the layout that is asked for.
template <typename Entry>
Entry *next_entry(DIR *stream, Entry *(*read_next)(DIR *)) {
  Description *directory = on_board() ? acquire(dirfd(stream)) : nullptr;
  if (directory == nullptr || directory->kind != Kind::kDirectory) {
    if (directory != nullptr)
      release(directory);
    return read_next(stream);
  }
  Entry *entry;
  for (;;) {
    const std::size_t layer = directory->layer;
    entry = read_next(layer == 0 ? stream : directory->layers[layer - 1]);
    if (entry == nullptr) {
      if (layer == directory->layer_count)
        break;
      ++directory->layer;
    } else if (is_dot(entry->d_name)) {
      if (layer == 0)
        break;
    } else if (!is_unfinished(entry->d_name) && !is_absent_entry(*directory, entry->d_name) &&
               (layer == 0 || !is_listed(*directory, entry->d_name))) {
      show_type(*directory, *entry);
      break;
    }
  }
  release(directory);
  return entry;
}

void add_layer(Description &directory, const char *path) {
  DIR *stream = REAL(opendir)(path);
  if (stream != nullptr)
    directory.layers[directory.layer_count++] = stream;
}

// What lies below the board's own directory: the template's, the PC's.
void open_layers(Description &directory) {
  if (directory.layer_count > 0)
    return;
  BoardPath own;
  char file[kPathSize];
  if (find_board_file(board_root(), directory.real, own) == 0 &&
      template_path(own.c_str(), file, sizeof file))
    add_layer(directory, file);
  if (territory_of(directory.asked) == Territory::kOverlay)
    add_layer(directory, directory.asked);
}

}  // namespace

WRAP(DIR *, opendir, const char *path) {
  if (!on_board())
    return REAL(opendir)(path);
  Resolved resolved;
  resolve(AT_FDCWD, path, true, resolved);
  switch (resolved.place) {
    case Place::kPc:
      return REAL(opendir)(path);
    case Place::kPcByName:
    case Place::kFallback:
      return REAL(opendir)(resolved.asked);
    default:
      break;
  }
  if (resolved.place != Place::kMissing && resolved.place != Place::kDirectory) {
    resolved.place = Place::kMissing;
    resolved.error = ENOTDIR;
  }
  const int fd = open_on_board(resolved, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  if (fd < 0) {
    errno = -fd;
    return nullptr;
  }
  return vboard_fdopendir(fd);
}

WRAP(DIR *, fdopendir, int fd) {
  DIR *stream = REAL(fdopendir)(fd);
  Description *directory = stream != nullptr && on_board() ? acquire(fd) : nullptr;
  if (directory != nullptr) {
    open_layers(*directory);
    release(directory);
  }
  return stream;
}

WRAP(int, closedir, DIR *stream) {
  if (stream != nullptr && on_board()) {
    const int fd = dirfd(stream);
    Description *directory = acquire(fd);
    if (directory != nullptr) {
      close_on_board(*directory);
      release(directory);
      detach(fd);
    }
  }
  return REAL(closedir)(stream);
}

WRAP(dirent64 *, readdir64, DIR *stream) {
  return next_entry<dirent64>(stream, REAL(readdir64));
}

#if __SIZEOF_POINTER__ == 8
WRAP_ALIAS(readdir, readdir64);
#else
struct Dirent32 {
  unsigned long d_ino;
  long d_off;
  unsigned short d_reclen;
  unsigned char d_type;
  char d_name[256];
};
// The entry of the 64-bit layout becomes one of the 32-bit layout in its place. An emulator's
// kernel gives positions of 64 bits, which libc's own reader would refuse.
WRAP(Dirent32 *, readdir, DIR *stream) {
  if (!on_board())
    return REAL(readdir)(stream);
  dirent64 *entry = vboard_readdir64(stream);
  if (entry == nullptr)
    return nullptr;
  dirent64 given = {};
  memcpy(&given, entry, offsetof(dirent64, d_name));
  Dirent32 *out = reinterpret_cast<Dirent32 *>(entry);
  memmove(out->d_name, entry->d_name, strlen(entry->d_name) + 1);
  out->d_ino = static_cast<unsigned long>(given.d_ino);
  out->d_off = static_cast<long>(given.d_off);
  out->d_reclen = given.d_reclen;
  out->d_type = given.d_type;
  return out;
}
#endif

WRAP(void, rewinddir, DIR *stream) {
  Description *directory = on_board() ? acquire(dirfd(stream)) : nullptr;
  if (directory != nullptr) {
    for (std::size_t i = 0; i < directory->layer_count; ++i)
      REAL(rewinddir)(directory->layers[i]);
    directory->layer = 0;
    release(directory);
  }
  REAL(rewinddir)(stream);
}

namespace {

template <typename Entry>
int scan(const char *path, Entry ***list, int (*wanted)(const Entry *),
         int (*order)(const Entry **, const Entry **), Entry *(*read_next)(DIR *)) {
  DIR *stream = vboard_opendir(path);
  if (stream == nullptr)
    return -1;
  Entry **entries = nullptr;
  std::size_t count = 0;
  std::size_t room = 0;
  bool failed = false;
  while (Entry *entry = failed ? nullptr : read_next(stream)) {
    if (wanted != nullptr && wanted(entry) == 0)
      continue;
    if (count == room) {
      room = room == 0 ? 32 : 2 * room;
      Entry **larger = static_cast<Entry **>(realloc(entries, room * sizeof(Entry *)));
      failed = larger == nullptr;
      entries = failed ? entries : larger;
    }
    Entry *copy = failed ? nullptr : static_cast<Entry *>(malloc(sizeof(Entry)));
    failed = copy == nullptr;
    if (!failed) {
      memcpy(copy, entry, entry->d_reclen < sizeof(Entry) ? entry->d_reclen : sizeof(Entry));
      entries[count++] = copy;
    }
  }
  vboard_closedir(stream);
  if (failed) {
    while (count > 0)
      free(entries[--count]);
    free(entries);
    errno = ENOMEM;
    return -1;
  }
  if (order != nullptr && count > 1)
    qsort(entries, count, sizeof(Entry *),
          reinterpret_cast<int (*)(const void *, const void *)>(order));
  *list = entries;
  return static_cast<int>(count);
}

}  // namespace

WRAP(int, scandir64, const char *path, dirent64 ***list, int (*wanted)(const dirent64 *),
     int (*order)(const dirent64 **, const dirent64 **)) {
  if (!on_board())
    return REAL(scandir64)(path, list, wanted, order);
  return scan<dirent64>(path, list, wanted, order, vboard_readdir64);
}

#if __SIZEOF_POINTER__ == 8
WRAP_ALIAS(scandir, scandir64);
#else
WRAP(int, scandir, const char *path, Dirent32 ***list, int (*wanted)(const Dirent32 *),
     int (*order)(const Dirent32 **, const Dirent32 **)) {
  if (!on_board())
    return REAL(scandir)(path, list, wanted, order);
  return scan<Dirent32>(path, list, wanted, order, vboard_readdir);
}
#endif

DECLARE_WRAPPED(int, lstat64, const char *, struct stat64 *);
DECLARE_WRAPPED(int, stat64, const char *, struct stat64 *);

WRAP(int, glob64, const char *pattern, int flags, int (*failed)(const char *, int), glob64_t *out) {
  if (!on_board())
    return REAL(glob64)(pattern, flags, failed, out);
  out->gl_closedir = [](void *stream) { vboard_closedir(static_cast<DIR *>(stream)); };
  out->gl_readdir = [](void *stream) { return vboard_readdir64(static_cast<DIR *>(stream)); };
  out->gl_opendir = [](const char *path) -> void * { return vboard_opendir(path); };
  out->gl_lstat = [](const char *path, struct stat64 *status) {
    return vboard_lstat64(path, status);
  };
  out->gl_stat = [](const char *path, struct stat64 *status) {
    return vboard_stat64(path, status);
  };
  return REAL(glob64)(pattern, flags | GLOB_ALTDIRFUNC, failed, out);
}

#if __SIZEOF_POINTER__ == 8
WRAP_ALIAS(glob, glob64);
#else
// The record differs only in the functions that a program may bring along.
WRAP(int, glob, const char *pattern, int flags, int (*failed)(const char *, int), glob64_t *out) {
  return on_board() ? vboard_glob64(pattern, flags, failed, out)
                    : REAL(glob)(pattern, flags, failed, out);
}
#endif

namespace {

// nftw() of libc walks with its own openings. A tree of the board is walked here instead: names and
// statuses as the program sees them.
struct Walk {
  int (*simple)(const char *, const struct stat64 *, int);
  int (*full)(const char *, const struct stat64 *, int, FTW *);
  int flags;
};

int visit(const Walk &walk, const char *path, const struct stat64 &status, int type, int level) {
  if (walk.simple != nullptr)
    return walk.simple(path, &status, type == FTW_DP ? FTW_D : type);
  const char *slash = strrchr(path, '/');
  FTW place = {slash != nullptr ? static_cast<int>(slash - path + 1) : 0, level};
  return walk.full(path, &status, type, &place);
}

int walk_tree(const Walk &walk, const char *path, int level) {
  struct stat64 status;
  const bool physical = (walk.flags & FTW_PHYS) != 0;
  if ((physical ? vboard_lstat64(path, &status) : vboard_stat64(path, &status)) < 0) {
    if (level == 0)
      return -1;
    return visit(walk, path, status, FTW_NS, level);
  }
  if (S_ISLNK(status.st_mode))
    return visit(walk, path, status, FTW_SL, level);
  if (!S_ISDIR(status.st_mode))
    return visit(walk, path, status, FTW_F, level);
  DIR *stream = vboard_opendir(path);
  if (stream == nullptr)
    return visit(walk, path, status, FTW_DNR, level);
  const bool after = walk.full != nullptr && (walk.flags & FTW_DEPTH) != 0;
  int result = after ? 0 : visit(walk, path, status, FTW_D, level);
  while (dirent64 *entry = result == 0 ? vboard_readdir64(stream) : nullptr) {
    BoardPath name;
    append_text(name, path, strcmp(path, "/") == 0 ? "" : "/", entry->d_name);
    if (!is_dot(entry->d_name) && !name.overflow && level < 64)
      result = walk_tree(walk, name.c_str(), level + 1);
  }
  vboard_closedir(stream);
  return result == 0 && after ? visit(walk, path, status, FTW_DP, level) : result;
}

bool is_pc_tree(const char *path) {
  Resolved resolved;
  resolve(AT_FDCWD, path, true, resolved);
  return resolved.place == Place::kPc && strcmp(path, "/") != 0;
}

}  // namespace

WRAP(int, nftw64, const char *path, int (*visitor)(const char *, const struct stat64 *, int, FTW *),
     int descriptors, int flags) {
  if (!on_board() || is_pc_tree(path))
    return REAL(nftw64)(path, visitor, descriptors, flags);
  return walk_tree({nullptr, visitor, flags}, path, 0);
}

WRAP(int, ftw64, const char *path, int (*visitor)(const char *, const struct stat64 *, int),
     int descriptors) {
  if (!on_board() || is_pc_tree(path))
    return REAL(ftw64)(path, visitor, descriptors);
  return walk_tree({visitor, nullptr, 0}, path, 0);
}

#if __SIZEOF_POINTER__ == 8
WRAP_ALIAS(nftw, nftw64);
WRAP_ALIAS(ftw, ftw64);
#endif
