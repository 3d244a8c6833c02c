// vboard fault DIR add NODE ... | list | clear

#include "vboard/base/text.h"
#include "vboard/board/faults.h"
#include "vboard/launcher/boards.h"
#include "vboard/launcher/commands.h"
#include "vboard/launcher/fault_lines.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

namespace vboard {

namespace {

constexpr char kUsage[] =
    "usage: vboard fault DIR add NODE CALL EFFECT [WHEN...]\n"
    "       vboard fault DIR add NODE absent [time=A..B...]\n"
    "       vboard fault DIR list\n"
    "       vboard fault DIR clear\n"
    "Breaks a device of the board in the directory DIR, tells what is broken, mends everything.\n"
    "  CALL     open close read write ioctl ioctl:NAME mmap socket\n"
    "  EFFECT   errno=NAME  short=N  result=N\n"
    "  WHEN     nth=N  from=N  time=A..B (board seconds)\n"
    "  add /dev/watchdog ioctl:WDIOC_KEEPALIVE errno=EIO nth=3\n"
    "  add /dev/iccard absent time=1.0..2.5 time=6.0..\n";

bool is_fault(std::string_view line) {
  Fault fault;
  char reason[128];
  return parse_fault(line, fault, reason) != FaultLine::kNothing;
}

// Opens the board's faults file under an exclusive lock.
int open_faults(const char *board) {
  char file[kFileName];
  if (!join_path(file, board, "faults"))
    return -1;
  const int fd = open(file, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0 || flock(fd, LOCK_EX) < 0) {
    fail("%s: %s", file, strerror(errno));
    if (fd >= 0)
      close(fd);
    return -1;
  }
  return fd;
}

int add_fault(const char *board, int argc, char **argv) {
  FixedText<1025> line;
  for (int i = 0; i < argc; ++i)
    append_text(line, i > 0 ? " " : "", argv[i]);
  append_text(line, "\n");
  if (line.overflow || line.view().find('\n') != line.length - 1)
    return wrong_usage("fault");
  int result = check_faults("fault", line.view());
  if (result != 0)
    return result;
  const int fd = open_faults(board);
  if (fd < 0)
    return kFailed;
  // A last line without its end is ended first.
  const off_t size = lseek(fd, 0, SEEK_END);
  char last = '\n';
  if (size > 0 && pread(fd, &last, 1, size - 1) == 1 && last != '\n' && write(fd, "\n", 1) != 1)
    result = fail("faults: %s", strerror(errno));
  if (result == 0 && write(fd, line.data, line.length) != static_cast<ssize_t>(line.length))
    result = fail("faults: %s", strerror(errno));
  close(fd);
  return result;
}

int list_faults(const char *board) {
  static char text[kFaultsSize];
  const long length = read_faults(board, text);
  if (length < 0)
    return kFailed;
  std::string_view rest(text, static_cast<std::size_t>(length));
  std::string_view line;
  while (take_line(rest, line)) {
    if (is_fault(line))
      printf("%.*s\n", static_cast<int>(line.size()), line.data());
  }
  return check_faults("faults", {text, static_cast<std::size_t>(length)});
}

// Comments stay: they tell how a fault is written.
int clear_faults(const char *board) {
  static char text[kFaultsSize];
  const int fd = open_faults(board);
  if (fd < 0)
    return kFailed;
  int result = 0;
  const ssize_t length = pread(fd, text, sizeof text, 0);
  static char kept_text[kFaultsSize + 1];
  TextBuffer kept = {kept_text, sizeof kept_text, 0, false};
  std::string_view rest(text, length > 0 ? static_cast<std::size_t>(length) : 0);
  std::string_view line;
  while (take_line(rest, line)) {
    if (is_fault(line))
      continue;
    append_text(kept, line);
    append_text(kept, "\n");
  }
  if (length < 0 || pwrite(fd, kept_text, kept.length, 0) != static_cast<ssize_t>(kept.length) ||
      ftruncate(fd, static_cast<off_t>(kept.length)) < 0)
    result = fail("faults: %s", strerror(errno));
  close(fd);
  return result;
}

}  // namespace

long read_faults(const char *board, char *out) {
  char file[kFileName];
  if (!join_path(file, board, "faults"))
    return -1;
  const int fd = open(file, O_RDONLY | O_CLOEXEC);
  if (fd < 0 && errno == ENOENT)
    return 0;
  ssize_t length = fd < 0 ? -1 : read(fd, out, kFaultsSize);
  if (length < 0)
    fail("%s: %s", file, strerror(errno));
  if (length == static_cast<ssize_t>(kFaultsSize)) {
    fail("%s: more than %zu bytes", file, kFaultsSize - 1);
    length = -1;
  }
  if (fd >= 0)
    close(fd);
  return length;
}

int check_faults(const char *origin, std::string_view text) {
  std::string_view line;
  for (int number = 1; take_line(text, line); ++number) {
    Fault fault;
    char reason[160];
    if (parse_fault(line, fault, reason) == FaultLine::kWrong)
      return fail("%s:%d: %s", origin, number, reason);
  }
  return 0;
}

int fault_command(int argc, char **argv) {
  if (asks_for_help(argc, argv)) {
    fputs(kUsage, stdout);
    return 0;
  }
  if (argc < 2)
    return wrong_usage("fault");
  char board[kFileName];
  const int result = open_board(argv[0], board);
  if (result != 0)
    return result;
  if (strcmp(argv[1], "add") == 0 && argc > 2)
    return add_fault(board, argc - 2, argv + 2);
  if (strcmp(argv[1], "list") == 0 && argc == 2)
    return list_faults(board);
  if (strcmp(argv[1], "clear") == 0 && argc == 2)
    return clear_faults(board);
  return wrong_usage("fault");
}

}  // namespace vboard
