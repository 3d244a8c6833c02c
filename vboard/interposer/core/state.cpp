#include "vboard/interposer/core/state.h"

#include "vboard/base/kernel.h"
#include "vboard/board/board_files.h"
#include "vboard/interposer/core/children.h"
#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/host.h"
#include "vboard/interposer/core/paths.h"
#include "vboard/interposer/core/jumping.h"
#include "vboard/interposer/core/seats.h"
#include "vboard/interposer/core/story.h"
#include "vboard/interposer/core/trace.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vboard {

std::atomic<int> run_state;
bool run_jumps;

namespace {

char root[kPathSize];
std::size_t root_length;

// Taken at the start: the program may change its environment.
const char *work = "";
const char *faults = "";

// Stands in when there is no launcher: a board on the PC's own time.
RunPage own_page;
RunPage *page = &own_page;
RunFile *shared_file;
pid_t launcher;
pid_t command;

SharedLock board_lock;  // this process's own
int board_lock_depth;

// One bit a descriptor; nothing of ours ever stands above.
std::atomic<std::uint64_t> own_descriptors[64];

void map_page() {
  own_page.magic = kRunMagic;
  own_page.speed_milli = 1000;
  own_page.monotonic_start = pc_monotonic();
  own_page.calendar_start = pc_calendar();
  own_page.reset_time = kNoTime;
  own_page.power_cut_at = kNoTime;
  own_page.story_records = -1;
  const char *file = getenv(kRunVariable);
  if (file == nullptr)
    return;
  const int fd = sys_open(file, O_RDWR | O_CLOEXEC);
  if (fd < 0)
    return;
  int error;
  void *memory =
      sys_mmap(nullptr, sizeof(RunFile), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0, error);
  sys_close(fd);
  if (memory == nullptr)
    return;
  RunFile *shared = static_cast<RunFile *>(memory);
  if (shared->page.magic != kRunMagic)
    return;
  shared_file = shared;
  page = &shared->page;
  run_jumps = page->jumping != 0;
  launcher = page->launcher;
  command = page->command.load();
}

__attribute__((constructor)) void start_with_program() {
  on_board();
}

}  // namespace

int start_run() {
  int expected = kUnknown;
  if (!run_state.compare_exchange_strong(expected, kStarting))
    return expected;
  const char *directory = getenv(kBoardVariable);
  const std::size_t length = directory == nullptr ? 0 : strlen(directory);
  if (length == 0 || length >= sizeof root || directory[0] != '/') {
    run_state.store(kInactive, std::memory_order_release);
    return kInactive;
  }
  memcpy(root, directory, length + 1);
  root_length = length;
  map_page();
  if (const char *value = getenv(kTemplateVariable))
    set_template(root, value, &page->board_is_whole);
  if (const char *value = getenv(kWorkVariable))
    work = value;
  if (const char *value = getenv(kFaultsVariable))
    faults = value;
  open_trace(getenv(kTraceVariable));
  open_story();
  keep_settings();
  start_host();
  begin_process();
  run_state.store(kActive, std::memory_order_release);
  if (page->has_opened.load(std::memory_order_relaxed) != 0) {
    take_working_directory();
    const char *open = getenv(kOpenVariable);
    take_inherited_descriptors(open != nullptr ? open : "");
    unsetenv(kOpenVariable);
  }
  return kActive;
}

void begin_call() {
  Seat *seat = own_seat;
  if (seat == nullptr || seat->use.load(std::memory_order_relaxed) != Seat::kRuns) {
    take_baton();
    return;
  }
  seat->calls.store(seat->calls.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  spend_other();
}

RunPage &run_page() {
  return *page;
}

pid_t launcher_process() {
  return launcher;
}

pid_t command_process() {
  return command;
}

RunFile *run_file() {
  return shared_file;
}

std::string_view board_root() {
  return {root, root_length};
}

const char *board_directory() {
  return root;
}

const char *work_directory() {
  return work;
}

const char *given_faults() {
  return faults;
}

void lock_board() {
  if (!has_lock(board_lock))
    take_lock(board_lock);
  ++board_lock_depth;
}

void unlock_board() {
  if (--board_lock_depth == 0)
    give_up_lock(board_lock);
}

bool has_board_lock() {
  return has_lock(board_lock);
}

void renew_board_lock() {
  board_lock_depth = 0;
  board_lock.word = 0;
}

bool is_own_descriptor(int fd) {
  if (fd < 0 || fd >= 64 * 64)
    return false;
  return own_descriptors[fd / 64].load(std::memory_order_relaxed) >> (fd % 64) & 1;
}

void add_own_descriptor(int fd) {
  if (fd >= 0 && fd < 64 * 64)
    own_descriptors[fd / 64].fetch_or(std::uint64_t{1} << (fd % 64));
}

void remove_own_descriptor(int fd) {
  if (fd >= 0 && fd < 64 * 64)
    own_descriptors[fd / 64].fetch_and(~(std::uint64_t{1} << (fd % 64)));
}

void end_run(std::uint32_t outcome) {
  RunPage &run = run_page();
  std::uint32_t going_on = kGoingOn;
  run.outcome.compare_exchange_strong(going_on, outcome);
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, nullptr);
  // The launcher ends every process of the run, says what happened and gives the status. This one
  // stops here: nothing after a reset may still run, not even the shell that started it.
  while (launcher > 0 && syscall(SYS_kill, launcher, SIGUSR1) == 0) {
    struct {
      long seconds, nanoseconds;
    } pause = {0, 20'000'000};
    syscall(SYS_nanosleep, &pause, nullptr);
  }
  const char *text = outcome_text(outcome);
  sys_write(2, text, strlen(text));
  sys_write(2, "\n", 1);
  for (;;)
    syscall(SYS_exit_group, static_cast<int>(outcome));
}

}  // namespace vboard
