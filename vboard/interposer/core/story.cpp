#include "vboard/interposer/core/story.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/story_record.h"
#include "vboard/interposer/core/state.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>

namespace vboard {

namespace {

int records = -1;
int streams[kStoryStreams];

// The totals of the last record, so that nothing is written where nothing has happened.
std::atomic<std::uint64_t> noted[kStoryStreams];

// Opens a descriptor of the launcher's once more.
int open_of_launcher(int number, int flags) {
  FixedText<64> path;
  append_text(path, "/proc/");
  append_decimal(path, run_page().launcher);
  append_text(path, "/fd/");
  append_decimal(path, number);
  int fd = sys_open(path.c_str(), flags | O_CLOEXEC);
  if (fd < 0)
    return fd;
  fd = sys_move_high(fd, kOwnDescriptors);
  add_own_descriptor(fd);
  return fd;
}

// The bytes that are still in a stream's pipe.
std::uint64_t waiting_in(int pipe) {
  const int kept = errno;
  int bytes = 0;
  const long result = syscall(SYS_ioctl, pipe, FIONREAD, &bytes);
  errno = kept;
  return result == 0 && bytes > 0 ? static_cast<std::uint64_t>(bytes) : 0;
}

// What the run has written to each stream: what the launcher has read, and what it has not. The
// launcher makes the sequence odd while it reads.
void count_written(std::uint64_t (&out)[kStoryStreams]) {
  constexpr int kMostTries = 10'000;  // the launcher may have been killed in between
  RunPage &page = run_page();
  for (int i = 0; i < kMostTries; ++i) {
    const std::uint32_t before = page.story_sequence.load();
    for (int stream = 0; stream < kStoryStreams; ++stream)
      out[stream] = page.story_read[stream].load() + waiting_in(streams[stream]);
    if (before % 2 == 0 && page.story_sequence.load() == before)
      return;
    syscall(SYS_sched_yield);
  }
}

void append_record(const std::uint64_t (&written)[kStoryStreams], std::string_view line) {
  StoryRecord record = {{written[0], written[1]}, static_cast<std::uint32_t>(line.size()), 0};
  iovec pieces[] = {{&record, sizeof record}, {const_cast<char *>(line.data()), line.size()}};
  const int kept = errno;
  syscall(SYS_writev, records, pieces, line.empty() ? 1 : 2);
  errno = kept;
  for (int stream = 0; stream < kStoryStreams; ++stream)
    noted[stream].store(written[stream], std::memory_order_relaxed);
}

}  // namespace

void open_story() {
  const RunPage &page = run_page();
  if (page.story_records < 0)
    return;
  for (int stream = 0; stream < kStoryStreams; ++stream)
    streams[stream] = open_of_launcher(page.story_streams[stream], O_WRONLY | O_NONBLOCK);
  records = open_of_launcher(page.story_records, O_WRONLY | O_APPEND);
}

bool telling() {
  return records >= 0;
}

void tell(std::string_view line) {
  std::uint64_t written[kStoryStreams];
  count_written(written);
  append_record(written, line);
}

void tell_streams() {
  std::uint64_t written[kStoryStreams];
  count_written(written);
  if (written[0] != noted[0].load(std::memory_order_relaxed) ||
      written[1] != noted[1].load(std::memory_order_relaxed))
    append_record(written, {});
}

}  // namespace vboard
