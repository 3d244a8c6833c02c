// Wraps opendir fdopendir closedir readdir readdir64 rewinddir telldir seekdir scandir scandir64
// glob glob64 ftw ftw64 nftw nftw64.
//
// A directory of the board lists its names in order. One that the PC has too (/etc, /proc), or the
// template of a fresh board, lists the names of both.

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

#include <algorithm>

using namespace vboard;

DECLARE_WRAPPED(DIR *, opendir, const char *);
DECLARE_WRAPPED(DIR *, fdopendir, int);
DECLARE_WRAPPED(int, closedir, DIR *);
DECLARE_WRAPPED(dirent64 *, readdir64, DIR *);

namespace {

bool is_dot(const char *name) {
  return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

bool is_absent_entry(const Description &directory, const char *name) {
  BoardPath path;
  append_text(path, directory.asked, "/", name);
  return path.overflow || is_absent({path.view(), path.view()});
}

// A node file of /dev is a device in a listing.
void show_type(const Description &directory, dirent64 &entry) {
  const std::string_view name(directory.real);
  if (entry.d_type == DT_REG && territory_of(directory.real) == Territory::kBoard &&
      name.starts_with("/dev"))
    entry.d_type = DT_CHR;
}

// What a stream has left to give: all names of a directory of the board, in order.
struct Listing {
  const Description *directory;
  dirent64 *entries;
  std::size_t count, room, next;
  dirent64 given;  // a copy: a 32-bit reader changes the layout of what it gets
  Listing *rest;
  int error;  // that ended the reading
};

Listing *listings;  // under the board's lock

void drop_listing(const Description *directory) {
  lock_board();
  for (Listing **at = &listings; *at != nullptr; at = &(*at)->rest) {
    if ((*at)->directory != directory)
      continue;
    Listing *found = *at;
    *at = found->rest;
    free(found->entries);
    free(found);
    break;
  }
  unlock_board();
}

Listing *find_listing(const Description *directory) {
  Listing *found = listings;
  while (found != nullptr && found->directory != directory)
    found = found->rest;
  return found;
}

bool add_entry(Listing &listing, const dirent64 &entry) {
  if (listing.count == listing.room) {
    const std::size_t room = listing.room == 0 ? 32 : 2 * listing.room;
    void *larger = realloc(listing.entries, room * sizeof(dirent64));
    if (larger == nullptr)
      return false;
    listing.entries = static_cast<dirent64 *>(larger);
    listing.room = room;
  }
  memcpy(&listing.entries[listing.count], &entry,
         std::min<std::size_t>(entry.d_reclen, sizeof entry));
  ++listing.count;
  return true;
}

// "." and ".." first, then by name: the kernel's order of a directory is that of its making.
bool comes_before(const dirent64 &left, const dirent64 &right) {
  if (is_dot(left.d_name) != is_dot(right.d_name))
    return is_dot(left.d_name);
  const int order = strcmp(left.d_name, right.d_name);
  return order != 0 ? order < 0 : left.d_off < right.d_off;
}

// Reads all names of a directory and of what lies below it, each name once: the first layer that
// has it counts.
bool fill_listing(Listing &listing, DIR *stream) {
  const Description &directory = *listing.directory;
  for (std::size_t layer = 0; layer <= directory.layer_count; ++layer) {
    DIR *from = layer == 0 ? stream : directory.layers[layer - 1];
    for (;;) {
      errno = 0;
      dirent64 *entry = REAL(readdir64)(from);
      if (entry == nullptr) {
        listing.error = errno;
        break;
      }
      const bool dot = is_dot(entry->d_name);
      if (dot ? layer > 0
              : is_unfinished(entry->d_name) || is_absent_entry(directory, entry->d_name))
        continue;
      show_type(directory, *entry);
      entry->d_off = static_cast<off64_t>(layer);
      if (!add_entry(listing, *entry))
        return false;
    }
  }
  dirent64 *end = listing.entries + listing.count;
  std::sort(listing.entries, end, comes_before);
  end = std::unique(listing.entries, end, [](const dirent64 &left, const dirent64 &right) {
    return strcmp(left.d_name, right.d_name) == 0;
  });
  listing.count = static_cast<std::size_t>(end - listing.entries);
  for (std::size_t i = 0; i < listing.count; ++i)
    listing.entries[i].d_off = static_cast<off64_t>(i + 1);
  return true;
}

// The listing of a stream, made by its first reader. Null without memory.
Listing *listing_of(const Description *directory, DIR *stream) {
  Listing *listing = find_listing(directory);
  if (listing != nullptr)
    return listing;
  listing = static_cast<Listing *>(calloc(1, sizeof(Listing)));
  if (listing == nullptr)
    return nullptr;
  listing->directory = directory;
  listing->rest = listings;
  listings = listing;
  if (fill_listing(*listing, stream))
    return listing;
  drop_listing(directory);
  return nullptr;
}

// Calls `use` with the listing of a directory of the board, null without memory. False for another
// stream.
template <typename Use>
bool with_listing(DIR *stream, Use use) {
  Description *directory = on_board() ? acquire(dirfd(stream)) : nullptr;
  if (directory == nullptr)
    return false;
  const bool is_one = directory->kind == Kind::kDirectory;
  if (is_one) {
    lock_board();
    use(listing_of(directory, stream));
    unlock_board();
  }
  release(directory);
  return is_one;
}

dirent64 *next_entry(DIR *stream) {
  dirent64 *entry = nullptr;
  const int kept = errno;
  const bool known = with_listing(stream, [&](Listing *listing) {
    errno = listing != nullptr ? kept : ENOMEM;
    if (listing == nullptr)
      return;
    if (listing->next >= listing->count) {
      if (listing->error != 0)
        errno = listing->error;
      return;
    }
    listing->given = listing->entries[listing->next++];
    entry = &listing->given;
  });
  return known ? entry : REAL(readdir64)(stream);
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
    drop_listing(directory);
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
      drop_listing(directory);
      release(directory);
      detach(fd);
    }
  }
  return REAL(closedir)(stream);
}

WRAP(dirent64 *, readdir64, DIR *stream) {
  return next_entry(stream);
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
    drop_listing(directory);
    release(directory);
  }
  REAL(rewinddir)(stream);
}

WRAP(long, telldir, DIR *stream) {
  long position = 0;
  const bool known = with_listing(stream, [&](const Listing *listing) {
    position = listing != nullptr ? static_cast<long>(listing->next) : -1;
  });
  return known ? position : REAL(telldir)(stream);
}

WRAP(void, seekdir, DIR *stream, long position) {
  const bool known = with_listing(stream, [&](Listing *listing) {
    if (listing != nullptr)
      listing->next = static_cast<std::size_t>(position);
  });
  if (!known)
    REAL(seekdir)(stream, position);
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
