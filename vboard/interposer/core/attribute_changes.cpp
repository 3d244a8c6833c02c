#include "vboard/interposer/core/attribute_changes.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/attributes.h"
#include "vboard/board/board_files.h"
#include "vboard/interposer/core/device_lock.h"
#include "vboard/interposer/core/state.h"

#include <span>

namespace vboard {

namespace {

constexpr std::size_t kMostText = 512;  // of which changes are noticed

std::string_view value_in(const char *text, ssize_t size) {
  return attribute_value({text, size > 0 ? static_cast<std::size_t>(size) : 0});
}

void look_at(SharedFile &shared) {
  char text[kMostText];
  const std::string_view value = value_in(text, load_state(board_root(), shared.real, text));
  const std::uint64_t mark = text_hash(value);
  if (mark == shared.seen)
    return;
  shared.seen = mark;
  if (announces_change(board_directory(), shared.real, value))
    shared.changed = 1;
}

bool is_open_attribute(const SharedFile &shared) {
  return shared.use == SharedFile::kOpen && shared.processes > 0 &&
         shared.kind == static_cast<std::uint32_t>(Kind::kAttribute);
}

}  // namespace

bool has_changed(const Description &description) {
  const DeviceLock lock;
  SharedFile &shared = *description.shared;
  if (shared.changed == 0)
    look_at(shared);
  return shared.changed != 0;
}

void note_attribute_read(const Description &description) {
  SharedFile &shared = *description.shared;
  char text[kMostText];
  shared.seen = text_hash(value_in(text, sys_pread(description.file.medium, text, sizeof text, 0)));
  shared.changed = 0;
}

void note_attribute_changes() {
  RunFile *run = run_file();
  if (run == nullptr)
    return;
  for (SharedFile &shared : std::span(run->files, run->page.files_end)) {
    // Of one that nobody has read since its last change nothing new can be said.
    if (is_open_attribute(shared) && shared.changed == 0)
      look_at(shared);
  }
}

}  // namespace vboard
