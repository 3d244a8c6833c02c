// vboard fault DIR add NODE ... | list | clear

#include "vboard/base/text.h"
#include "vboard/board/faults.h"
#include "vboard/board/file_updates.h"
#include "vboard/launcher/boards.h"
#include "vboard/launcher/commands.h"
#include "vboard/launcher/fault_checks.h"
#include "vboard/launcher/fault_lines.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

namespace vboard {

namespace {

constexpr char kUsage[] =
    "usage: vboard fault DIR add NODE CALL EFFECT [WHEN...]\n"
    "       vboard fault DIR add NODE absent [time=A..B...]\n"
    "       vboard fault DIR list\n"
    "       vboard fault DIR clear\n"
    "Breaks a device of the board in the directory DIR, tells what is broken, mends everything.\n"
    "  NODE     a device, an attribute or a file of the board, net:NAME, socket; what is not "
    "there\n"
    "           is refused, unless a last '*' stands for any rest of the name\n"
    "  CALL     open close read write ioctl ioctl:NAME mmap socket\n"
    "  EFFECT   errno=NAME  short=N  result=N  power-cut\n"
    "  WHEN     nth=N  from=N  time=A..B (board seconds)\n"
    "  add /dev/watchdog ioctl:WDIOC_KEEPALIVE errno=EIO nth=3\n"
    "  add /dev/iccard absent time=1.0..2.5 time=6.0..\n"
    "  add /dev/mtd1 write power-cut nth=2\n";

bool is_fault(std::string_view line) {
  Fault fault;
  char reason[128];
  return parse_fault(line, fault, reason) != FaultLine::kNothing;
}

// The faults of a board while they are changed.
struct FaultsFile {
  BoardPath path;
  int fd;
  FixedText<kFaultsSize> text;
};

// Reads the board's faults file under its exclusive lock. 0, or kFailed with a message; the lock
// ends with the descriptor.
int open_faults(const char *board, FaultsFile &out) {
  if (!locate(board, "faults", out.path))
    return kFailed;
  out.fd = hold_file(out.path.c_str(), O_CREAT);
  if (out.fd < 0)
    return fail("%s: %s", out.path.c_str(), strerror(-out.fd));
  char bytes[4096];
  ssize_t size;
  while ((size = read(out.fd, bytes, sizeof bytes)) > 0)
    append_text(out.text, std::string_view(bytes, static_cast<std::size_t>(size)));
  if (size == 0 && !out.text.overflow)
    return 0;
  close(out.fd);
  return size < 0 ? fail("%s: %s", out.path.c_str(), strerror(errno))
                  : fail("%s: more than %zu bytes", out.path.c_str(), kFaultsSize - 1);
}

// Puts the changed faults in place of the file, and gives its lock up.
int close_faults(FaultsFile &file) {
  const int result =
      file.text.overflow ? -E2BIG : replace_file(file.path.c_str(), file.fd, file.text.view());
  close(file.fd);
  return result < 0 ? fail("%s: %s", file.path.c_str(), strerror(-result)) : 0;
}

int add_fault(const char *board, int argc, char **argv) {
  FixedText<1025> line;
  for (int i = 0; i < argc; ++i)
    append_text(line, i > 0 ? " " : "", argv[i]);
  append_text(line, "\n");
  if (line.overflow || line.view().find('\n') != line.length - 1)
    return wrong_usage("fault");
  int result = check_faults_of(board, "fault", line.view());
  FaultsFile file;
  if (result == 0)
    result = open_faults(board, file);
  if (result != 0)
    return result;
  // A last line without its end is ended first.
  const bool is_ended = file.text.length == 0 || file.text.view().ends_with('\n');
  append_text(file.text, is_ended ? "" : "\n", line.view());
  return close_faults(file);
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
  FaultsFile file;
  if (const int result = open_faults(board, file); result != 0)
    return result;
  const FixedText<kFaultsSize> before = file.text;
  file.text = {};
  std::string_view rest = before.view();
  std::string_view line;
  while (take_line(rest, line)) {
    if (!is_fault(line))
      append_text(file.text, line, "\n");
  }
  return close_faults(file);
}

}  // namespace

long read_faults(const char *board, char *out) {
  BoardPath path;
  if (!locate(board, "faults", path))
    return -1;
  const char *file = path.c_str();
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
  return check_faults_of(nullptr, origin, text);
}

int check_faults_of(const char *board, const char *origin, std::string_view text) {
  std::string_view line;
  for (int number = 1; take_line(text, line); ++number) {
    Fault fault;
    char reason[160];
    const FaultLine kind = parse_fault(line, fault, reason);
    if (kind == FaultLine::kWrong)
      return fail("%s:%d: %s", origin, number, reason);
    if (kind == FaultLine::kNothing || board == nullptr)
      continue;
    const Reason problem = fault_problem(board, fault);
    if (problem.length > 0)
      return fail("%s:%d: %s", origin, number, problem.c_str());
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
