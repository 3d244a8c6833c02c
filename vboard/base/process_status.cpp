#include "vboard/base/process_status.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace vboard {

namespace {

// The beginning of a small file, as much as there is room for.
std::string_view read_beginning(const char *path, std::span<char> room) {
  const int fd = sys_open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return {};
  const ssize_t size = sys_read(fd, room.data(), room.size());
  sys_close(fd);
  return {room.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
}

FixedText<64> file_of(pid_t process, pid_t thread, const char *name) {
  FixedText<64> path;
  append_text(path, "/proc/");
  append_decimal(path, process);
  if (thread != 0) {
    append_text(path, "/task/");
    append_decimal(path, thread);
  }
  append_text(path, name);
  return path;
}

}  // namespace

bool read_status(pid_t process, pid_t thread, ProcessStatus &out) {
  const FixedText<64> path = file_of(process, thread, "/stat");
  char room[512];
  std::string_view line = read_beginning(path.c_str(), room);
  // "PID (NAME) STATE PARENT ...": the name may hold anything.
  const std::size_t name_end = line.rfind(") ");
  if (name_end == std::string_view::npos)
    return false;
  line.remove_prefix(name_end + 2);
  const std::string_view state = take_word(line);
  std::int64_t parent;
  std::int64_t threads;
  if (state.size() != 1 || !parse_number(take_word(line), parent))
    return false;
  constexpr int kWordsBeforeThreads = 15;
  for (int i = 0; i < kWordsBeforeThreads; ++i)
    take_word(line);
  if (!parse_number(take_word(line), threads))
    return false;
  out = {state[0], static_cast<pid_t>(parent), static_cast<int>(threads)};
  return true;
}

bool thread_has_died(pid_t thread) {
  ProcessStatus status;
  return !read_status(thread, 0, status) || status.state == 'Z' || status.state == 'X';
}

bool process_has_ended(pid_t process) {
  ProcessStatus status;
  return !read_status(process, 0, status) ||
         ((status.state == 'Z' || status.state == 'X') && status.threads <= 1);
}

std::int64_t processor_time(pid_t process) {
  // The number of a process's clock, as clock_getcpuclockid() makes it.
  const long clock = static_cast<long>((~static_cast<unsigned long>(process) << 3) | 2);
  struct {
    long seconds, nanoseconds;
  } time;
  if (syscall(SYS_clock_gettime, clock, &time) < 0)
    return -1;
  return std::int64_t{time.seconds} * 1'000'000'000 + time.nanoseconds;
}

std::int64_t times_run(pid_t process, pid_t thread) {
  const FixedText<64> path = file_of(process, thread, "/schedstat");
  char room[64];
  // The time on a processor, the time of waiting for one, and the times.
  std::string_view text = read_beginning(path.c_str(), room);
  std::string_view line;
  take_line(text, line);
  take_word(line);
  take_word(line);
  std::int64_t times;
  return parse_number(take_word(line), times) ? times : 0;
}

pid_t tracer_of(pid_t process) {
  const FixedText<64> path = file_of(process, 0, "/status");
  char room[1024];
  std::string_view text = read_beginning(path.c_str(), room);
  std::string_view line;
  while (take_line(text, line)) {
    std::int64_t tracer;
    if (take_word(line) == "TracerPid:" && parse_number(take_word(line), tracer))
      return static_cast<pid_t>(tracer);
  }
  return 0;
}

void read_program_name(pid_t process, std::span<char> out) {
  const FixedText<64> path = file_of(process, 0, "/comm");
  char room[32];
  std::string_view text = read_beginning(path.c_str(), room);
  std::string_view name;
  take_line(text, name);
  copy_text(out, name);
}

}  // namespace vboard
