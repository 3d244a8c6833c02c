// vboard run [OPTION...] -- COMMAND [ARGUMENT...]

#include <elf.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "vboard/board/kernel.h"
#include "vboard/board/run_page.h"
#include "vboard/board/text.h"
#include "vboard/launcher/board_clock.h"
#include "vboard/launcher/boards.h"
#include "vboard/launcher/commands.h"
#include "vboard/launcher/fault_lines.h"

namespace vboard {

namespace {

constexpr char kUsage[] =
    "usage: vboard run [OPTION...] -- COMMAND [ARGUMENT...]\n"
    "Runs a command on a board: its devices are the board's, nothing of the PC is reached.\n"
    "  --board DIR             the board; a fresh temporary one when it is not given\n"
    "  --speed N               board time runs N times as fast as the PC's (1; at most 1000)\n"
    "  --speed max             board time jumps from wait to wait\n"
    "  --trace FILE            one line for each call that reaches the board\n"
    "  --fault 'LINE'          a fault for this run only; may be repeated\n"
    "  --signal NAME@SECONDS   sends the command a signal at that board time; may be repeated\n"
    "  --for SECONDS           ends the run at that board time with SIGTERM\n"
    "  --date 'YYYY-MM-DD hh:mm:ss'   the board's calendar clock (UTC) at the start\n"
    "The exit status is the command's; 80 after \"board reset\" (the watchdog), 81 after \"board\n"
    "reboot\", 125 when vboard itself fails, 126 and 127 when the command cannot be run.\n"
    "Environment: VBOARD_PRELOAD names another interposer; a 32-bit ARM command is run by\n"
    "qemu-arm-static with the libraries of VBOARD_SYSROOT and that interposer. ASAN_OPTIONS gets\n"
    "verify_asan_link_order=0, since the interposer comes before any sanitizer.\n";

constexpr int kMostFaultOptions = 64;
// How long a command may take to end after --for's SIGTERM, in nanoseconds of the PC.
constexpr std::int64_t kGrace = 5'000'000'000;
// How often the launcher looks at the run page while board time runs at a fixed speed.
constexpr std::int64_t kTick = 10'000'000;

struct Options {
  const char *board;
  bool jumping;
  std::int64_t speed_milli;
  const char *trace;
  const char *faults[kMostFaultOptions];
  int fault_count;
  PlannedSignal *signals;  // in the order given
  int signal_count;
  std::int64_t end_at;  // of --for, kNoTime without it
  std::int64_t date;    // -1 without it
  char **command;
};

// --- Arguments ------------------------------------------------------------------------------------

bool parse_speed(const char *word, Options &out) {
  if (strcmp(word, "max") == 0) {
    out.jumping = true;
    return true;
  }
  std::int64_t nanoseconds;
  if (!parse_seconds(word, nanoseconds))
    return false;
  out.jumping = false;
  out.speed_milli = nanoseconds / 1'000'000;
  return out.speed_milli > 0 && out.speed_milli <= 1'000'000;
}

bool add_signal(Options &out, int number, std::int64_t at) {
  // One place is kept for --for.
  if (out.signal_count == kMaxSignals - 1 && number != 0)
    return false;
  PlannedSignal &planned = out.signals[out.signal_count++];
  planned.at = at;
  planned.number = number;
  return true;
}

bool parse_planned(const char *word, Options &out) {
  const char *at = strchr(word, '@');
  std::int64_t when;
  if (at == nullptr || !parse_seconds(at + 1, when))
    return false;
  int number = parse_signal({word, static_cast<std::size_t>(at - word)});
  return number != 0 && add_signal(out, number, when);
}

// Takes the options; 0, or a status. `out.command` is null when none follows.
int parse_options(int argc, char **argv, Options &out) {
  int i = 0;
  for (; i < argc && argv[i][0] == '-'; i++) {
    std::string_view option(argv[i]);
    if (option == "--") {
      i++;
      break;
    }
    if (i + 1 == argc)
      return wrong_usage("run");
    const char *value = argv[++i];
    bool right = true;
    if (option == "--board") {
      out.board = value;
    } else if (option == "--speed") {
      right = parse_speed(value, out);
    } else if (option == "--trace") {
      out.trace = value;
    } else if (option == "--fault") {
      right = out.fault_count < kMostFaultOptions;
      if (right)
        out.faults[out.fault_count++] = value;
    } else if (option == "--signal") {
      right = parse_planned(value, out);
    } else if (option == "--for") {
      right = parse_seconds(value, out.end_at);
    } else if (option == "--date") {
      right = parse_date(value, out.date);
    } else {
      return fail("no such option: %s", argv[i - 1]);
    }
    if (!right)
      return fail("%s: wrong value '%s'", argv[i - 1], value);
  }
  if (i == argc)
    return wrong_usage("run");
  out.command = argv + i;
  return 0;
}

// --- The command ----------------------------------------------------------------------------------

// Searches PATH as a shell would. 0, or the status to fail with.
int find_command(const char *name, char *out) {
  if (strchr(name, '/') != nullptr) {
    if (access(name, F_OK) < 0) {
      fail("%s: %s", name, strerror(errno));
      return kNotFound;
    }
    copy_text({out, kFileName}, name);
  } else {
    const char *variable = getenv("PATH");
    std::string_view path = variable != nullptr ? variable : "/usr/bin:/bin";
    bool found = false;
    while (!found && !path.empty()) {
      std::size_t end = path.find(':');
      std::string_view directory = path.substr(0, end);
      path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
      TextBuffer file = {out, kFileName - 1, 0, false};
      append_text(file, directory.empty() ? "." : directory);
      append_text(file, "/");
      append_text(file, name);
      out[file.length] = '\0';
      struct stat status;
      found = !file.overflow && stat(out, &status) == 0 && S_ISREG(status.st_mode) &&
              access(out, X_OK) == 0;
    }
    if (!found) {
      fail("%s: command not found", name);
      return kNotFound;
    }
  }
  struct stat status;
  if (stat(out, &status) == 0 && S_ISDIR(status.st_mode)) {
    fail("%s: is a directory", out);
    return kNotRunnable;
  }
  if (access(out, X_OK) < 0) {
    fail("%s: %s", out, strerror(errno));
    return kNotRunnable;
  }
  return 0;
}

// A 32-bit ARM program on a machine of another kind.
bool is_foreign_arm(const char *file) {
#ifdef __arm__
  (void)file;
  return false;
#else
  unsigned char head[20] = {};
  int fd = open(file, O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return false;
  ssize_t size = read(fd, head, sizeof(head));
  close(fd);
  return size == sizeof(head) && memcmp(head, ELFMAG, SELFMAG) == 0 && head[4] == ELFCLASS32 &&
         head[18] == EM_ARM && head[19] == 0;
#endif
}

int find_interposer(char *out) {
  const char *chosen = getenv("VBOARD_PRELOAD");
  if (chosen != nullptr && *chosen != '\0') {
    char absolute[PATH_MAX];
    if (realpath(chosen, absolute) == nullptr)
      return fail("VBOARD_PRELOAD: %s: %s", chosen, strerror(errno));
    return copy_text({out, kFileName}, absolute) ? 0 : kFailed;
  }
  constexpr const char *places[] = {"../lib/libvboard.so", "../" VBOARD_LIBDIR "/vboard/libvboard.so",
                                    "../lib/vboard/libvboard.so"};
  if (!find_own_file(places, std::size(places), out))
    return fail("libvboard.so is not where vboard is installed");
  return 0;
}

// LD_PRELOAD splits its value at blanks and colons; a path with one of them goes by a descriptor.
int preload_name(const char *interposer, char *out, std::size_t size) {
  if (strpbrk(interposer, " :") == nullptr) {
    snprintf(out, size, "%s", interposer);
    return 0;
  }
  int fd = open(interposer, O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return fail("%s: %s", interposer, strerror(errno));
  snprintf(out, size, "/proc/%d/fd/%d", getpid(), fd);
  return 0;
}

void set_environment(const Options &options, const char *board, const char *preload, bool foreign,
                     int page_fd) {
  char text[kFileName * 2];
  setenv(kBoardVariable, board, 1);
  snprintf(text, sizeof(text), "/proc/%d/fd/%d", getpid(), page_fd);
  setenv(kRunVariable, text, 1);
  char work[PATH_MAX];
  setenv(kWorkVariable, getcwd(work, sizeof(work)) != nullptr ? work : "/", 1);
  unsetenv(kTraceVariable);
  if (options.trace != nullptr) {
    char absolute[PATH_MAX];
    if (realpath(options.trace, absolute) != nullptr)
      setenv(kTraceVariable, absolute, 1);
  }

  static char faults[kFaultsSize];
  TextBuffer lines = {faults, sizeof(faults) - 1, 0, false};
  for (int i = 0; i < options.fault_count; i++) {
    append_text(lines, options.faults[i]);
    append_text(lines, "\n");
  }
  faults[lines.length] = '\0';
  if (options.fault_count > 0) {
    setenv(kFaultsVariable, faults, 1);
  } else {
    unsetenv(kFaultsVariable);
  }

  const char *before = getenv("LD_PRELOAD");
  if (!foreign) {
    snprintf(text, sizeof(text), "%s%s%s", preload, before != nullptr && *before ? ":" : "",
             before != nullptr ? before : "");
    setenv("LD_PRELOAD", text, 1);
  }
  constexpr char order[] = "verify_asan_link_order=0";
  const char *asan = getenv("ASAN_OPTIONS");
  if (asan == nullptr || strstr(asan, "verify_asan_link_order") == nullptr) {
    snprintf(text, sizeof(text), "%s%s%s", order, asan != nullptr && *asan ? ":" : "",
             asan != nullptr ? asan : "");
    setenv("ASAN_OPTIONS", text, 1);
  }
}

// In the child: does not return.
[[noreturn]] void execute(const char *file, char **command, const char *preload, bool foreign) {
  if (!foreign) {
    execv(file, command);
    // A script without its "#!" line is the shell's.
    if (errno == ENOEXEC) {
      int count = 0;
      while (command[count] != nullptr)
        count++;
      char **words = static_cast<char **>(calloc(static_cast<std::size_t>(count) + 2, sizeof(char *)));
      if (words != nullptr) {
        words[0] = const_cast<char *>("sh");
        words[1] = const_cast<char *>(file);
        for (int i = 1; i < count; i++)
          words[i + 1] = command[i];
        execv("/bin/sh", words);
      }
    }
  } else {
    int count = 0;
    while (command[count] != nullptr)
      count++;
    const char *sysroot = getenv("VBOARD_SYSROOT");
    char setting[kFileName + 16];
    snprintf(setting, sizeof(setting), "LD_PRELOAD=%s", preload);
    char **words = static_cast<char **>(calloc(static_cast<std::size_t>(count) + 8, sizeof(char *)));
    if (words != nullptr) {
      int at = 0;
      words[at++] = const_cast<char *>("qemu-arm-static");
      words[at++] = const_cast<char *>("-L");
      words[at++] = const_cast<char *>(sysroot != nullptr ? sysroot : "/usr/arm-linux-gnueabihf");
      words[at++] = const_cast<char *>("-E");
      words[at++] = setting;
      words[at++] = const_cast<char *>("-0");
      words[at++] = command[0];
      words[at++] = const_cast<char *>(file);
      for (int i = 1; i < count; i++)
        words[at++] = command[i];
      execvp(words[0], words);
      file = words[0];
    }
  }
  int error = errno;
  fail("%s: %s", file, strerror(error));
  _exit(error == ENOENT && foreign ? kNotFound : kNotRunnable);
}

// --- The run --------------------------------------------------------------------------------------

// The run page, in memory that the processes of the run can open by its descriptor.
RunPage *make_page(int &out_fd) {
  out_fd = sys_memfd("vboard-run", MFD_CLOEXEC);
  if (out_fd < 0 || ftruncate(out_fd, 4096) < 0)
    return nullptr;
  void *memory = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, out_fd, 0);
  return memory == MAP_FAILED ? nullptr : new (memory) RunPage();
}

// Kills the children of a process, theirs first. Orphans of the run are children of the launcher.
void kill_children(pid_t process) {
  char path[64];
  snprintf(path, sizeof(path), "/proc/%d/task/%d/children", process, process);
  FILE *file = fopen(path, "r");
  if (file == nullptr)
    return;
  int child;
  while (fscanf(file, "%d", &child) == 1) {
    // Stopped first, so that it makes no more of them meanwhile.
    kill(child, SIGSTOP);
    kill_children(child);
    kill(child, SIGKILL);
  }
  fclose(file);
}

void kill_everything(pid_t command) {
  kill_children(getpid());
  kill(command, SIGKILL);
}

struct Run {
  RunPage *page;
  pid_t command;
  std::int64_t end_at;
  std::int64_t ended_at;  // the PC's time of --for's signal, kNoTime before
};

std::int64_t pc_elapsed(const RunPage &page) {
  return pc_monotonic() - page.monotonic_start;
}

// The PC's time from the start after which a moment of board time has surely come. A jumping run
// gets there by itself unless the command computes, or sleeps in the kernel, without ever reaching
// the board: then board time is taken to have passed like the PC's.
std::int64_t pc_moment(const RunPage &page, std::int64_t board) {
  return board == kNoTime || page.jumping ? board : pc_from_board(page, board);
}

void send_due_signals(Run &run, std::int64_t now) {
  RunPage &page = *run.page;
  for (std::uint32_t i = 0; i < page.signal_count; i++) {
    PlannedSignal &planned = page.signals[i];
    if (pc_moment(page, planned.at) <= now && planned.sent.exchange(1) == 0)
      kill(run.command, planned.number);
    if (planned.sent.load() != 0 && planned.at == run.end_at && run.ended_at == kNoTime)
      run.ended_at = now;
  }
}

// How long to sleep until something of the run may be due.
std::int64_t next_look(const Run &run, std::int64_t now) {
  const RunPage &page = *run.page;
  std::int64_t next = pc_moment(page, page.reset_time.load());
  for (std::uint32_t i = 0; i < page.signal_count; i++) {
    if (page.signals[i].sent.load() == 0)
      next = std::min(next, pc_moment(page, page.signals[i].at));
  }
  if (run.ended_at != kNoTime)
    next = std::min(next, run.ended_at + kGrace);
  // The watchdog may be armed at any time.
  std::int64_t tick = page.jumping ? 20 * kTick : kTick;
  return std::clamp<std::int64_t>(next == kNoTime ? tick : next - now, 100'000, tick);
}

// Waits for the command's end. The status of wait(), or of a command that was killed.
int attend(Run &run, const sigset_t &signals) {
  RunPage &page = *run.page;
  for (;;) {
    int status;
    pid_t ended;
    while ((ended = waitpid(-1, &status, WNOHANG)) > 0) {
      if (ended == run.command)
        return status;
    }
    std::int64_t now = pc_elapsed(page);
    send_due_signals(run, now);
    std::uint32_t going_on = kGoingOn;
    if (pc_moment(page, page.reset_time.load()) <= now)
      page.outcome.compare_exchange_strong(going_on, kBoardReset);
    bool over = run.ended_at != kNoTime && now - run.ended_at >= kGrace;
    if (page.outcome.load() != kGoingOn || over) {
      kill_everything(run.command);
      while (waitpid(run.command, &status, 0) < 0 && errno == EINTR) {
      }
      return status;
    }
    std::int64_t pause = next_look(run, now);
    timespec limit = {static_cast<time_t>(pause / 1'000'000'000),
                      static_cast<long>(pause % 1'000'000'000)};
    int received = sigtimedwait(&signals, nullptr, &limit);
    if (received == SIGTERM || received == SIGHUP)
      kill(run.command, received);
  }
}

int status_of(int wait_status) {
  return WIFSIGNALED(wait_status) ? 128 + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

int run_on(const Options &options, const char *board, bool temporary) {
  char file[kFileName];
  int result = find_command(options.command[0], file);
  if (result != 0)
    return result;
  char interposer[kFileName];
  char preload[kFileName];
  bool foreign = is_foreign_arm(file);
  if (find_interposer(interposer) != 0 || preload_name(interposer, preload, sizeof(preload)) != 0)
    return kFailed;
  if (options.trace != nullptr) {
    int fd = open(options.trace, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0)
      return fail("%s: %s", options.trace, strerror(errno));
    close(fd);
  }
  int page_fd;
  RunPage *page = make_page(page_fd);
  if (page == nullptr)
    return fail("no memory for the run: %s", strerror(errno));
  set_environment(options, board, preload, foreign, page_fd);

  page->magic = kRunMagic;
  page->launcher = getpid();
  page->jumping = options.jumping;
  page->speed_milli = options.speed_milli;
  for (int i = 0; i < options.signal_count; i++) {
    page->signals[i].at = options.signals[i].at;
    page->signals[i].number = options.signals[i].number;
  }
  page->signal_count = static_cast<std::uint32_t>(options.signal_count);
  page->monotonic_start = pc_monotonic();
  BoardClock clock = start_board_clock(board, options.date);
  page->calendar_start.store(clock.calendar_start);
  page->reset_time.store(clock.reset_time);

  sigset_t signals;
  sigset_t before;
  sigemptyset(&signals);
  for (int number : {SIGCHLD, SIGUSR1, SIGTERM, SIGHUP})
    sigaddset(&signals, number);
  sigprocmask(SIG_BLOCK, &signals, &before);
  // What a terminal sends reaches the command as well; the launcher waits for what it makes of it.
  struct sigaction ignore = {};
  ignore.sa_handler = SIG_IGN;
  struct sigaction interrupt;
  struct sigaction quit;
  sigaction(SIGINT, &ignore, &interrupt);
  sigaction(SIGQUIT, &ignore, &quit);
  prctl(PR_SET_CHILD_SUBREAPER, 1);

  fflush(nullptr);
  pid_t child = fork();
  if (child < 0)
    return fail("fork: %s", strerror(errno));
  if (child == 0) {
    page->command.store(getpid());
    sigaction(SIGINT, &interrupt, nullptr);
    sigaction(SIGQUIT, &quit, nullptr);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    execute(file, options.command, preload, foreign);
  }
  page->command.store(child);
  Run run = {page, child, options.end_at, kNoTime};
  int status = status_of(attend(run, signals));

  std::uint32_t outcome = page->outcome.load();
  if (outcome != kGoingOn) {
    kill_everything(child);
    fputs(outcome == kBoardReset ? "board reset\n" : "board reboot\n", stderr);
    status = static_cast<int>(outcome);
  }
  if (!temporary)
    stop_board_clock(board, *page, clock, options.date >= 0);
  return status;
}

int check_all_faults(const Options &options, const char *board) {
  static char text[kFaultsSize];
  long length = read_faults(board, text);
  if (length < 0)
    return kFailed;
  int result = check_faults("faults", {text, static_cast<std::size_t>(length)});
  for (int i = 0; i < options.fault_count && result == 0; i++)
    result = check_faults("--fault", options.faults[i]);
  return result;
}

}  // namespace

int run_command(int argc, char **argv) {
  if (asks_for_help(argc, argv)) {
    fputs(kUsage, stdout);
    return 0;
  }
  PlannedSignal signals[kMaxSignals] = {};
  Options options = {};
  options.speed_milli = 1000;
  options.signals = signals;
  options.end_at = kNoTime;
  options.date = -1;
  int result = parse_options(argc, argv, options);
  if (result != 0)
    return result;
  if (options.end_at != kNoTime) {
    PlannedSignal &last = signals[options.signal_count++];
    last.at = options.end_at;
    last.number = SIGTERM;
  }

  char board[kFileName];
  if (options.board != nullptr) {
    result = open_board(options.board, board);
    if (result == 0)
      result = check_all_faults(options, board);
    return result != 0 ? result : run_on(options, board, false);
  }
  const char *temporary = getenv("TMPDIR");
  if (!join_path(board, temporary != nullptr && *temporary ? temporary : P_tmpdir, "vboard.XXXXXX"))
    return kFailed;
  if (mkdtemp(board) == nullptr)
    return fail("%s: %s", board, strerror(errno));
  char absolute[PATH_MAX];
  if (realpath(board, absolute) == nullptr)
    return fail("%s: %s", board, strerror(errno));
  result = make_board(absolute, nullptr);
  if (result == 0)
    result = check_all_faults(options, absolute);
  if (result == 0)
    result = run_on(options, absolute, true);
  remove_tree(absolute);
  return result;
}

}  // namespace vboard
