// vboard run [OPTION...] -- COMMAND [ARGUMENT...]

#include "vboard/base/calendar.h"
#include "vboard/base/kernel.h"
#include "vboard/board/emulation.h"
#include "vboard/board/run_page.h"
#include "vboard/launcher/attendant.h"
#include "vboard/launcher/board_clock.h"
#include "vboard/launcher/boards.h"
#include "vboard/launcher/commands.h"
#include "vboard/launcher/fault_lines.h"
#include "vboard/launcher/keeper.h"
#include "vboard/launcher/page_check.h"
#include "vboard/launcher/program.h"
#include "vboard/launcher/run_options.h"
#include "vboard/launcher/scratch.h"
#include "vboard/launcher/story.h"
#include "vboard/launcher/terminal.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <string_view>

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
    "  --tty                   the command has a terminal, on which standard input is typed\n"
    "  --type 'TEXT'@SECONDS   types TEXT on a terminal at that board time; may be repeated\n"
    "  --for SECONDS           ends the run at that board time with SIGTERM\n"
    "  --power-cut SECONDS     the power fails at that board time\n"
    "  --date 'YYYY-MM-DD hh:mm:ss'   the board's calendar clock (UTC) at the start\n"
    "The exit status is the command's; 80 after \"board reset\" (the watchdog), 81 after \"board\n"
    "reboot\", 82 after \"power cut\", 125 when vboard itself fails, 126 and 127 when the command\n"
    "cannot be run.\n"
    "Environment: VBOARD_PRELOAD names another interposer. With $LIB, the loader's folder, it is\n"
    "one for the PC's programs and one for 32-bit ARM, which are run by VBOARD_EMULATOR\n"
    "(qemu-arm-static) with the libraries of VBOARD_SYSROOT. ASAN_OPTIONS gets\n"
    "verify_asan_link_order=0, since the interposer comes before any sanitizer.\n";

// How often the launcher looks at the run page while board time runs at a fixed speed.
constexpr std::int64_t kTick = 10'000'000;

// What the processes of the run share, in memory that they can open by its descriptor. None of them
// can cut it off under the others.
RunFile *make_shared(int &out_fd) {
  out_fd = sys_memfd("vboard-run", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  if (out_fd < 0 || ftruncate(out_fd, sizeof(RunFile)) < 0 ||
      fcntl(out_fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) < 0)
    return nullptr;
  void *memory = mmap(nullptr, sizeof(RunFile), PROT_READ | PROT_WRITE, MAP_SHARED, out_fd, 0);
  if (memory == MAP_FAILED)
    return nullptr;
  // All but the page begins as zeros, which the memory is.
  RunFile *shared = static_cast<RunFile *>(memory);
  new (&shared->page) RunPage();
  return shared;
}

struct Run {
  RunFile *shared;
  RunPage *page;
  // What the page holds by right: a process of the run may have written anything to the page
  // itself.
  RunPage own;
  pid_t command;
  std::int64_t end_at;
  std::int64_t ended_at;  // the PC's time of the SIGTERM that ends the run, kNoTime before
};

std::int64_t pc_elapsed(const RunPage &page) {
  return pc_monotonic() - page.monotonic_start;
}

// The PC's time from the start when a moment of board time comes; a jumping run gets there by
// itself.
std::int64_t pc_moment(const Run &run, std::int64_t board) {
  return board == kNoTime || run.own.jumping ? kNoTime : pc_from_board(run.own, board);
}

void send_due_signals(Run &run, std::int64_t now) {
  for (std::uint32_t i = 0; i < run.own.signal_count; ++i) {
    PlannedSignal &planned = run.own.signals[i];
    std::atomic<std::uint32_t> &sent = run.page->signals[i].sent;
    if (pc_moment(run, planned.at) <= now && planned.sent.load() == 0 && sent.exchange(1) == 0)
      kill(run.command, planned.number);
    if (sent.load() != 0)
      planned.sent.store(1);
    if (planned.sent.load() != 0 && planned.at == run.end_at && run.ended_at == kNoTime)
      run.ended_at = now;
  }
}

void type_at_speed(Run &run, std::int64_t now) {
  std::atomic<std::uint32_t> &due = run.page->texts_due;
  while (due < run.own.text_count && pc_moment(run, run.own.text_times[due]) <= now)
    ++due;
  if (!run.own.jumping)
    type_due_texts(*run.page, run.command);
}

// How long to sleep until something of the run may be due.
std::int64_t next_look(const Run &run, std::int64_t now) {
  std::int64_t next = pc_moment(run, std::min(run.page->reset_time.load(), run.own.power_cut_at));
  for (std::uint32_t i = 0; i < run.own.signal_count; ++i) {
    if (run.own.signals[i].sent.load() == 0)
      next = std::min(next, pc_moment(run, run.own.signals[i].at));
  }
  const std::uint32_t text = run.page->texts_due;
  if (text < run.own.text_count)
    next = std::min(next, pc_moment(run, run.own.text_times[text]));
  if (run.ended_at != kNoTime)
    next = std::min(next, run.ended_at + kGrace);
  // The watchdog may be armed at any time.
  const std::int64_t tick =
      run.own.jumping ? std::min(20 * kTick, attendants_pause(*run.shared)) : kTick;
  return std::clamp<std::int64_t>(next == kNoTime ? tick : saturated_sum(next, -now), 100'000,
                                  tick);
}

// Waits for a signal, or for something that the command prints, and passes that on; looks at the
// schedule. The signal, or 0.
int wait_for_event(const Run &run, int signal_fd, std::int64_t pause) {
  pollfd fds[1 + kStoryStreams + kTerminalDescriptors + 1 + kMostAttended] = {
      {signal_fd, POLLIN, 0}};
  std::size_t count = 1 + story_descriptors(fds + 1);
  count += terminal_descriptors(fds + count);
  count += attended_descriptors(fds + count);
  const timespec limit = {static_cast<time_t>(pause / 1'000'000'000),
                          static_cast<long>(pause % 1'000'000'000)};
  ppoll(fds, count, &limit, nullptr);
  continue_story(run.command);
  continue_terminal(run.command);
  attend_schedule(*run.shared);
  signalfd_siginfo received;
  return read(signal_fd, &received, sizeof received) == sizeof received
             ? static_cast<int>(received.ssi_signo)
             : 0;
}

// Waits for the command's end, and ends the run when it is over before. The command's status of
// wait().
int attend(Run &run, int signal_fd) {
  RunPage &page = *run.page;
  for (;;) {
    int status;
    pid_t ended;
    while ((ended = waitpid(-1, &status, WNOHANG)) > 0) {
      if (ended == run.command)
        return status;
    }
    const std::int64_t now = pc_elapsed(run.own);
    send_due_signals(run, now);
    type_at_speed(run, now);
    std::uint32_t going_on = kGoingOn;
    const std::int64_t reset_time = page.reset_time.load();
    if (pc_moment(run, std::min(reset_time, run.own.power_cut_at)) <= now)
      page.outcome.compare_exchange_strong(
          going_on, run.own.power_cut_at <= reset_time ? kPowerCut : kBoardReset);
    const bool over = run.ended_at != kNoTime && now - run.ended_at >= kGrace;
    if (page.outcome.load() != kGoingOn || over || is_launcher_gone() ||
        is_overwritten(page, run.own)) {
      // What has been printed, before the end of the session may throw it away.
      continue_terminal(run.command);
      return end_processes(run.command);
    }
    const int received = wait_for_event(run, signal_fd, next_look(run, now));
    if (received == SIGTERM || received == SIGHUP) {
      kill(run.command, received);
      run.ended_at = std::min(run.ended_at, now);
    }
  }
}

int status_of(int wait_status) {
  return WIFSIGNALED(wait_status) ? 128 + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

// Emulated and instrumented programs take longer for everything.
#ifdef VBOARD_RUNS_INSTRUMENTED
constexpr bool kIsInstrumented = true;
#else
constexpr bool kIsInstrumented = false;
#endif

std::uint32_t patience() {
  return getenv(kEmulatorVariable) != nullptr || kIsInstrumented ? 10 * kPatience : kPatience;
}

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

// ^C, ^Z and ^\\, as a terminal has them when nobody has changed them.
bool has_signal_key(const PlannedText &text) {
  return std::string_view(text.bytes, text.size).find_first_of("\x03\x1a\x1c") !=
         std::string_view::npos;
}

void fill_page(const RunOptions &options, std::int64_t started, RunPage &page) {
  page.magic = kRunMagic;
  page.launcher = getpid();
  page.jumping = options.jumping;
  page.speed_milli = options.speed_milli;
  for (int i = 0; i < options.signal_count; ++i) {
    page.signals[i].at = options.signals[i].at;
    page.signals[i].number = options.signals[i].number;
  }
  page.signal_count = static_cast<std::uint32_t>(options.signal_count);
  for (std::uint32_t i = 0; i < options.text_count; ++i) {
    page.text_times[i] = options.texts[i].at;
    if (has_signal_key(options.texts[i]))
      page.texts_that_signal |= std::uint64_t{1} << i;
  }
  page.text_count = options.text_count;
  page.power_cut_at = options.power_cut_at;
  page.monotonic_start = started;
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
  Run run = {};
  run.shared = make_shared(page_fd);
  if (run.shared == nullptr)
    return fail("no memory for the run: %s", strerror(errno));
  run.page = &run.shared->page;
  RunPage &page = *run.page;
  const std::int64_t started = pc_monotonic();
  fill_page(options, started, page);
  fill_page(options, started, run.own);
  if (!begin_attending(*run.shared))
    return fail("no bell for the run: %s", strerror(errno));
  result = begin_story(options.story, page);
  if (result != 0)
    return result;
  result = begin_terminal(options, page);
  if (result != 0)
    return result;
  run.shared->schedule.has_keyboard = may_be_typed_on();
  run.own.story_records = page.story_records;
  std::copy_n(page.story_streams, kStoryStreams, run.own.story_streams);
  set_environment(options, board, board_template, program, page_fd);
  note_given_files(page);
  page.patience = patience();
  const BoardClock clock = start_board_clock(board, options.date);
  page.calendar_start.store(clock.calendar_start);
  page.reset_time.store(clock.reset_time);
  const sigset_t signals = attended_signals();
  const int signal_fd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (signal_fd < 0)
    return fail("no signals: %s", strerror(errno));

  fflush(nullptr);
  run.command = fork();
  if (run.command < 0)
    return fail("fork: %s", strerror(errno));
  if (run.command == 0) {
    page.command.store(getpid());
    restore_signals();
    enter_story();
    enter_terminal();
    execute(program, options.command);
  }
  leave_session();
  page.command.store(run.command);
  run.own.command.store(run.command);
  attend_command(*run.shared, run.command);
  run.end_at = options.end_at;
  run.ended_at = kNoTime;
  int status = status_of(attend(run, signal_fd));
  continue_terminal(0);
  // What the command left running is a part of the run as well.
  end_processes(0);

  const bool overwritten = is_overwritten(page, run.own);
  const std::uint32_t ended_by = overwritten ? kGoingOn : page.outcome.load();
  const char *outcome = outcome_text(ended_by);
  result = end_story(outcome);
  if (overwritten)
    return fail("the run's memory was overwritten");
  if (outcome != nullptr) {
    if (ended_by == kWaitsForEver)
      fprintf(stderr, "vboard: waits for ever: %.*s\n", static_cast<int>(sizeof page.stuck_on),
              page.stuck_on);
    else
      fprintf(stderr, "%s\n", outcome);
    status = static_cast<int>(ended_by);
  }
  report_faults_not_met(options, page);
  if (board_template == nullptr)
    stop_board_clock(board, page, clock, options.date >= 0);
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

int run_on_board(const RunOptions &options) {
  char board[kFileName];
  int result = open_board(options.board, board);
  if (result == 0)
    result = check_all_faults(options, board);
  return result != 0 ? result : run_on(options, board, nullptr);
}

int run_on_fresh_board(const RunOptions &options) {
  char board[kFileName];
  char from[kFileName];
  int result = find_template(from);
  if (result == 0)
    result = check_all_faults(options, from);
  if (result == 0)
    result = make_scratch(board);
  if (result != 0)
    return result;
  result = run_on(options, board, from);
  remove_scratch(board);
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

  begin_keyboard(options);
  const pid_t keeper = start_keeper();
  if (keeper < 0) {
    end_keyboard();
    return fail("fork: %s", strerror(errno));
  }
  if (keeper == 0)
    return options.board != nullptr ? run_on_board(options) : run_on_fresh_board(options);
  if (options.board == nullptr)
    sweep_scratch();
  // A keeper that was killed leaves its board.
  const bool has_ended = wait_for_keeper(keeper, result);
  end_keyboard();
  if (!has_ended && options.board == nullptr)
    sweep_scratch();
  return result;
}

}  // namespace vboard
