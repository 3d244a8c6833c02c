// vboard run [OPTION...] -- COMMAND [ARGUMENT...]

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/emulation.h"
#include "vboard/board/run_page.h"
#include "vboard/launcher/attendant.h"
#include "vboard/launcher/board_clock.h"
#include "vboard/launcher/boards.h"
#include "vboard/launcher/commands.h"
#include "vboard/launcher/fault_lines.h"
#include "vboard/launcher/program.h"
#include "vboard/launcher/run_options.h"
#include "vboard/launcher/story.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <new>

namespace vboard {

namespace {

constexpr char kUsage[] =
    "usage: vboard run [OPTION...] -- COMMAND [ARGUMENT...]\n"
    "Runs a command on a board: its devices are the board's, nothing of the PC is reached.\n"
    "  --board DIR             the board; a fresh temporary one when it is not given\n"
    "  --speed N               board time runs N times as fast as the PC's (1; at most 1000)\n"
    "  --speed max             board time jumps from wait to wait\n"
    "  --trace FILE            one line for each call that reaches the board\n"
    "  --story FILE            the same without times, and what the command prints, in one order\n"
    "  --fault 'LINE'          a fault for this run only; may be repeated\n"
    "  --signal NAME@SECONDS   sends the command a signal at that board time; may be repeated\n"
    "  --for SECONDS           ends the run at that board time with SIGTERM\n"
    "  --date 'YYYY-MM-DD hh:mm:ss'   the board's calendar clock (UTC) at the start\n"
    "The exit status is the command's; 80 after \"board reset\" (the watchdog), 81 after \"board\n"
    "reboot\", 125 when vboard itself fails, 126 and 127 when the command cannot be run.\n"
    "Environment: VBOARD_PRELOAD names another interposer. With $LIB, the loader's folder, it is\n"
    "one for the PC's programs and one for 32-bit ARM, which are run by VBOARD_EMULATOR\n"
    "(qemu-arm-static) with the libraries of VBOARD_SYSROOT. ASAN_OPTIONS gets\n"
    "verify_asan_link_order=0, since the interposer comes before any sanitizer.\n";

// How long a command may take to end after --for's SIGTERM, in nanoseconds of the PC.
constexpr std::int64_t kGrace = 5'000'000'000;
// How often the launcher looks at the run page while board time runs at a fixed speed.
constexpr std::int64_t kTick = 10'000'000;

// What the processes of the run share, in memory that they can open by its descriptor.
RunFile *make_shared(int &out_fd) {
  out_fd = sys_memfd("vboard-run", MFD_CLOEXEC);
  if (out_fd < 0 || ftruncate(out_fd, sizeof(RunFile)) < 0)
    return nullptr;
  void *memory = mmap(nullptr, sizeof(RunFile), PROT_READ | PROT_WRITE, MAP_SHARED, out_fd, 0);
  if (memory == MAP_FAILED)
    return nullptr;
  // All but the page begins as zeros, which the memory is.
  RunFile *shared = static_cast<RunFile *>(memory);
  new (&shared->page) RunPage();
  return shared;
}

// Kills the children of a process, theirs first. Orphans of the run are children of the launcher.
void kill_children(pid_t process) {
  FixedText<64> path;
  append_text(path, "/proc/");
  append_decimal(path, process);
  append_text(path, "/task/");
  append_decimal(path, process);
  append_text(path, "/children");
  FILE *file = fopen(path.c_str(), "r");
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
  RunFile *shared;
  RunPage *page;
  pid_t command;
  std::int64_t end_at;
  std::int64_t ended_at;  // the PC's time of --for's signal, kNoTime before
};

std::int64_t pc_elapsed(const RunPage &page) {
  return pc_monotonic() - page.monotonic_start;
}

// The PC's time from the start when a moment of board time comes; a jumping run gets there by
// itself.
std::int64_t pc_moment(const RunPage &page, std::int64_t board) {
  return board == kNoTime || page.jumping ? kNoTime : pc_from_board(page, board);
}

void send_due_signals(Run &run, std::int64_t now) {
  RunPage &page = *run.page;
  for (std::uint32_t i = 0; i < page.signal_count; ++i) {
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
  for (std::uint32_t i = 0; i < page.signal_count; ++i) {
    if (page.signals[i].sent.load() == 0)
      next = std::min(next, pc_moment(page, page.signals[i].at));
  }
  if (run.ended_at != kNoTime)
    next = std::min(next, run.ended_at + kGrace);
  // The watchdog may be armed at any time.
  const std::int64_t tick =
      page.jumping ? std::min(20 * kTick, attendants_pause(*run.shared)) : kTick;
  return std::clamp<std::int64_t>(next == kNoTime ? tick : next - now, 100'000, tick);
}

// Waits for a signal, or for something that the command prints, and passes that on; looks at the
// schedule. The signal, or 0.
int wait_for_event(const Run &run, int signal_fd, std::int64_t pause) {
  pollfd fds[1 + kStoryStreams + 1 + kMostAttended] = {{signal_fd, POLLIN, 0}};
  std::size_t count = 1 + story_descriptors(fds + 1);
  count += attended_descriptors(fds + count);
  const timespec limit = {static_cast<time_t>(pause / 1'000'000'000),
                          static_cast<long>(pause % 1'000'000'000)};
  ppoll(fds, count, &limit, nullptr);
  continue_story(run.command);
  attend_schedule(*run.shared);
  signalfd_siginfo received;
  return read(signal_fd, &received, sizeof received) == sizeof received
             ? static_cast<int>(received.ssi_signo)
             : 0;
}

// Waits for the command's end. The status of wait(), or of a command that was killed.
int attend(Run &run, int signal_fd) {
  RunPage &page = *run.page;
  for (;;) {
    int status;
    pid_t ended;
    while ((ended = waitpid(-1, &status, WNOHANG)) > 0) {
      if (ended == run.command)
        return status;
    }
    const std::int64_t now = pc_elapsed(page);
    send_due_signals(run, now);
    std::uint32_t going_on = kGoingOn;
    if (pc_moment(page, page.reset_time.load()) <= now)
      page.outcome.compare_exchange_strong(going_on, kBoardReset);
    const bool over = run.ended_at != kNoTime && now - run.ended_at >= kGrace;
    if (page.outcome.load() != kGoingOn || over) {
      kill_everything(run.command);
      while (waitpid(run.command, &status, 0) < 0 && errno == EINTR) {
      }
      return status;
    }
    const int received = wait_for_event(run, signal_fd, next_look(run, now));
    if (received == SIGTERM || received == SIGHUP)
      kill(run.command, received);
  }
}

const char *name_of_outcome(std::uint32_t outcome) {
  switch (outcome) {
    case kBoardReset:
      return "board reset";
    case kBoardReboot:
      return "board reboot";
    case kWaitsForEver:
      return "waits for ever";
    default:
      return nullptr;
  }
}

int status_of(int wait_status) {
  return WIFSIGNALED(wait_status) ? 128 + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

// How long a thread may compute without a call until time goes on without it, in milliseconds of
// processor time. Emulated and instrumented programs take longer for everything.
constexpr std::uint32_t kPatience = 5;
#ifdef VBOARD_SANITIZER
constexpr bool kIsInstrumented = true;
#else
constexpr bool kIsInstrumented = false;
#endif

// Pipes and sockets that the command inherits come from outside of the run.
void note_given_files(RunPage &page) {
  constexpr int kLooked = 64;
  int ends[2];
  FileStatus status;
  if (pipe2(ends, O_CLOEXEC) == 0) {
    if (sys_fstat(ends[0], status) == 0)
      page.pipe_device = status.filesystem;
    close(ends[0]);
    close(ends[1]);
  }
  for (int fd = 0; fd < kLooked && page.given_count < kMostGiven; ++fd) {
    if (sys_fstat(fd, status) == 0 && (S_ISFIFO(status.mode) || S_ISSOCK(status.mode)))
      page.given[page.given_count++] = {status.filesystem, status.inode};
  }
}

void fill_page(const RunOptions &options, RunPage &page) {
  page.magic = kRunMagic;
  page.launcher = getpid();
  page.jumping = options.jumping;
  page.speed_milli = options.speed_milli;
  for (int i = 0; i < options.signal_count; ++i) {
    page.signals[i].at = options.signals[i].at;
    page.signals[i].number = options.signals[i].number;
  }
  page.signal_count = static_cast<std::uint32_t>(options.signal_count);
  note_given_files(page);
  page.monotonic_start = pc_monotonic();
}

// A fault that was given for this run and never showed is a test that tested nothing. Those of the
// faults file describe the board, whatever is run on it.
void report_faults_not_met(const RunOptions &options, const RunPage &page) {
  const std::uint64_t met = page.faults_met.load();
  for (int i = 0; i < options.fault_count && i < 64; ++i) {
    if ((met >> i & 1) == 0)
      fprintf(stderr, "vboard: this fault did not show: %s\n", options.faults[i]);
  }
}

// `board_template` is that of a board which is used for this run only, else null.
int run_on(const RunOptions &options, const char *board, const char *board_template) {
  Program program;
  int result = find_program(options.command[0], program);
  if (result != 0)
    return result;
  if (options.trace != nullptr) {
    const int fd = open(options.trace, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0)
      return fail("%s: %s", options.trace, strerror(errno));
    close(fd);
  }
  int page_fd;
  RunFile *shared = make_shared(page_fd);
  if (shared == nullptr)
    return fail("no memory for the run: %s", strerror(errno));
  RunPage *page = &shared->page;
  fill_page(options, *page);
  if (!begin_attending(*shared))
    return fail("no bell for the run: %s", strerror(errno));
  result = begin_story(options.story, *page);
  if (result != 0)
    return result;
  set_environment(options, board, board_template, program, page_fd);
  page->patience =
      getenv(kEmulatorVariable) != nullptr || kIsInstrumented ? 10 * kPatience : kPatience;
  const BoardClock clock = start_board_clock(board, options.date);
  page->calendar_start.store(clock.calendar_start);
  page->reset_time.store(clock.reset_time);

  sigset_t signals;
  sigset_t before;
  sigemptyset(&signals);
  for (const int number : {SIGCHLD, SIGUSR1, SIGTERM, SIGHUP})
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
  const int signal_fd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (signal_fd < 0)
    return fail("no signals: %s", strerror(errno));

  fflush(nullptr);
  const pid_t child = fork();
  if (child < 0)
    return fail("fork: %s", strerror(errno));
  if (child == 0) {
    page->command.store(getpid());
    sigaction(SIGINT, &interrupt, nullptr);
    sigaction(SIGQUIT, &quit, nullptr);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    enter_story();
    execute(program, options.command);
  }
  page->command.store(child);
  attend_command(*shared, child);
  Run run = {shared, page, child, options.end_at, kNoTime};
  int status = status_of(attend(run, signal_fd));

  const char *outcome = name_of_outcome(page->outcome.load());
  if (outcome != nullptr)
    kill_everything(child);
  result = end_story(child, outcome);
  if (outcome != nullptr) {
    if (page->outcome.load() == kWaitsForEver)
      fprintf(stderr, "vboard: waits for ever: %.*s\n", static_cast<int>(sizeof page->stuck_on),
              page->stuck_on);
    else
      fprintf(stderr, "%s\n", outcome);
    status = static_cast<int>(page->outcome.load());
  }
  report_faults_not_met(options, *page);
  if (board_template == nullptr)
    stop_board_clock(board, *page, clock, options.date >= 0);
  return result != 0 ? result : status;
}

int check_all_faults(const RunOptions &options, const char *board) {
  static char text[kFaultsSize];
  const long length = read_faults(board, text);
  if (length < 0)
    return kFailed;
  int result = check_faults("faults", {text, static_cast<std::size_t>(length)});
  for (int i = 0; i < options.fault_count && result == 0; ++i)
    result = check_faults("--fault", options.faults[i]);
  return result;
}

}  // namespace

int run_command(int argc, char **argv) {
  if (asks_for_help(argc, argv)) {
    fputs(kUsage, stdout);
    return 0;
  }
  RunOptions options = {};
  int result = parse_run_options(argc, argv, options);
  if (result != 0)
    return result;

  char board[kFileName];
  if (options.board != nullptr) {
    result = open_board(options.board, board);
    if (result == 0)
      result = check_all_faults(options, board);
    return result != 0 ? result : run_on(options, board, nullptr);
  }
  char from[kFileName];
  result = find_template(from);
  if (result == 0)
    result = check_all_faults(options, from);
  if (result == 0)
    result = make_scratch(board);
  if (result != 0)
    return result;
  result = run_on(options, board, from);
  remove_tree(board);
  return result;
}

}  // namespace vboard
