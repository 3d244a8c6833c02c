#include "vboard/interposer/core/shared_files.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/interposer/core/device_lock.h"
#include "vboard/interposer/core/state.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>

namespace vboard {

namespace {

constexpr std::string_view kLink = "/memfd:";
constexpr std::string_view kName = "vboard:";

// Whether nobody has it any more: free, or left behind by a process that was killed or replaced.
bool is_free(const SharedFile &shared) {
  return shared.use == SharedFile::kFree ||
         (shared.use == SharedFile::kOpen && shared.processes <= 0);
}

}  // namespace

SharedFile *new_shared_file() {
  RunFile *run = run_file();
  if (run == nullptr) {
    SharedFile *own = static_cast<SharedFile *>(calloc(1, sizeof(SharedFile)));
    if (own != nullptr) {
      own->use = SharedFile::kOpen;
      own->processes = 1;
    }
    return own;
  }
  const DeviceLock lock;
  for (SharedFile &shared : run->files) {
    if (!is_free(shared))
      continue;
    const std::uint32_t generation = shared.generation + 1;
    memset(&shared, 0, sizeof shared);
    shared.use = SharedFile::kOpen;
    shared.generation = generation;
    shared.processes = 1;
    const std::uint32_t end = static_cast<std::uint32_t>(&shared - run->files) + 1;
    run->page.files_end = std::max(run->page.files_end, end);
    return &shared;
  }
  return nullptr;
}

bool leave_shared_file(SharedFile &shared) {
  if (--shared.processes > 0)
    return false;
  shared.use = SharedFile::kClosed;
  return true;
}

void free_shared_file(SharedFile &shared) {
  if (run_file() == nullptr)
    free(&shared);
  else if (shared.use == SharedFile::kClosed)
    shared.use = SharedFile::kFree;
}

void append_shared_name(TextBuffer &out, const SharedFile &shared) {
  const RunFile *run = run_file();
  if (run == nullptr)
    return;
  append_decimal(out, &shared - run->files);
  append_text(out, ":");
  append_decimal(out, shared.generation);
}

SharedFile *find_shared_file(std::string_view name) {
  RunFile *run = run_file();
  const std::size_t colon = name.find(':');
  std::int64_t index;
  std::int64_t generation;
  if (run == nullptr || colon == name.npos || !parse_number(name.substr(0, colon), index) ||
      !parse_number(name.substr(colon + 1), generation) || index < 0 ||
      index >= static_cast<std::int64_t>(kSharedFiles))
    return nullptr;
  SharedFile &shared = run->files[index];
  return shared.use == SharedFile::kOpen && shared.generation == generation ? &shared : nullptr;
}

int open_stand_in(const SharedFile &shared, int flags) {
  FixedText<48> name;
  append_text(name, kName);
  append_with(name, [&](TextBuffer &text) { append_shared_name(text, shared); });
  return sys_memfd(name.c_str(), (flags & O_CLOEXEC) != 0 ? MFD_CLOEXEC : 0);
}

SharedFile *shared_file_behind(int fd) {
  FixedText<40> path;
  append_text(path, "/proc/self/fd/");
  append_decimal(path, fd);
  char link[96];
  const ssize_t length = sys_readlink(path.c_str(), link, sizeof link);
  std::string_view name(link, length > 0 ? static_cast<std::size_t>(length) : 0);
  if (!name.starts_with(kLink) || !name.substr(kLink.size()).starts_with(kName))
    return nullptr;
  name.remove_prefix(kLink.size() + kName.size());
  return find_shared_file(take_word(name));  // without " (deleted)"
}

}  // namespace vboard
