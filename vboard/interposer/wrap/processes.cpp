// Wraps fork vfork execve execv execvp execvpe execl execlp execle execveat fexecve
// posix_spawn posix_spawnp _exit _Exit quick_exit.
//
// Children stay on the board: what they are started with names it, whatever environment the program
// made for them. Restarting the system, in any of these ways, restarts the board.

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/emulation.h"
#include "vboard/interposer/core/children.h"
#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/paths.h"
#include "vboard/interposer/core/seats.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/core/wrap.h"

#include <alloca.h>
#include <errno.h>
#include <pthread.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

using namespace vboard;

DECLARE_WRAPPED(int, execve, const char *, char *const[], char *const[]);

namespace {

[[noreturn]] void reboot_board(const char *call, const char *what) {
  trace_call(call, what, 0, 0);
  end_run(kBoardReboot);
}

void check_program(const char *path) {
  if (on_board() && path != nullptr && is_reboot_command(path))
    reboot_board("exec", path);
}

std::size_t count_words(char *const words[]) {
  std::size_t count = 0;
  while (words != nullptr && words[count] != nullptr)
    ++count;
  return count;
}

char *const *emulated(const char *path, char *const words[], char **room) {
  const std::size_t count = count_words(words);
  room[0] = const_cast<char *>(emulator());
  room[1] = const_cast<char *>("-0");
  room[2] = count > 0 ? words[0] : const_cast<char *>("");
  room[3] = const_cast<char *>(path);
  for (std::size_t i = 1; i < count; ++i)
    room[kEmulatorWords + i] = words[i];
  room[kEmulatorWords + (count > 0 ? count : 1)] = nullptr;
  return room;
}

// The path when what it names is an ARM program that can be executed, else null.
const char *arm_program(const char *path) {
  const bool is_one = on_board() && emulator() != nullptr && path != nullptr &&
                      sys_access(path, X_OK) == 0 && is_arm_program(path);
  return is_one ? path : nullptr;
}

// The same for a name as execvp() looks it up. Any other program is libc's to find.
const char *find_arm_program(const char *name, FixedText<kPathSize> &out) {
  if (name == nullptr || strchr(name, '/') != nullptr)
    return arm_program(name);
  const char *variable = getenv("PATH");
  if (!on_board() || emulator() == nullptr || variable == nullptr)
    return nullptr;
  std::string_view path = variable;
  while (!path.empty()) {
    const std::size_t end = path.find(':');
    out = {};
    append_text(out, end == 0 ? "." : path.substr(0, end), "/", name);
    if (!out.overflow && sys_access(out.c_str(), X_OK) == 0)
      return arm_program(out.c_str());
    path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
  }
  return nullptr;
}

// Calls `exec` with the environment for the program that takes this one's place.
template <typename Exec>
int replace_program(char *const given[], Exec exec) {
  if (!on_board())
    return exec(given);
  FixedText<kPathSize> open;
  append_text(open, kOpenVariable, "=");
  append_with(open, [](TextBuffer &text) { list_open(text); });
  char **room = static_cast<char **>(alloca(count_environment(given) * sizeof(char *)));
  return exec(complete_environment(given, room, open.overflow ? nullptr : open.data));
}

}  // namespace

WRAP(pid_t, fork, void) {
  const bool ours = on_board();
  const pid_t child = REAL(fork)();
  if (ours && child > 0)
    expect_process(child);
  return child;
}

// A child of vfork() would close the parent's devices when it closes its own.
WRAP(pid_t, vfork, void) {
  return on_board() ? vboard_fork() : REAL(vfork)();
}

// The environment `given`, completed on the caller's stack.
#define COMPLETED(given)                                                                     \
  (on_board()                                                                                \
       ? complete_environment(                                                               \
             given, static_cast<char **>(alloca(count_environment(given) * sizeof(char *))), \
             nullptr)                                                                        \
       : given)

// Hands an ARM program, if it is one, to the emulator: the words are on the caller's stack.
#define EMULATE(program, path, words)                                                              \
  if (const char *arm = (program); arm != nullptr) {                                               \
    words = emulated(                                                                              \
        arm, words,                                                                                \
        static_cast<char **>(alloca((count_words(words) + kEmulatorWords + 2) * sizeof(char *)))); \
    path = emulator();                                                                             \
  }

WRAP(int, execve, const char *path, char *const words[], char *const given[]) {
  check_program(path);
  EMULATE(arm_program(path), path, words);
  return replace_program(
      given, [&](char *const environment[]) { return REAL(execve)(path, words, environment); });
}

WRAP(int, execv, const char *path, char *const words[]) {
  return vboard_execve(path, words, environ);
}

WRAP(int, execvpe, const char *file, char *const words[], char *const given[]) {
  check_program(file);
  FixedText<kPathSize> place;
  EMULATE(find_arm_program(file, place), file, words);
  return replace_program(
      given, [&](char *const environment[]) { return REAL(execvpe)(file, words, environment); });
}

WRAP(int, execvp, const char *file, char *const words[]) {
  return vboard_execvpe(file, words, environ);
}

WRAP(int, execveat, int directory, const char *path, char *const words[], char *const given[],
     int flags) {
  check_program(path);
  return replace_program(given, [&](char *const environment[]) {
    return REAL(execveat)(directory, path, words, environment, flags);
  });
}

WRAP(int, fexecve, int fd, char *const words[], char *const given[]) {
  return replace_program(
      given, [&](char *const environment[]) { return REAL(fexecve)(fd, words, environment); });
}

namespace {

// Starts a child by `start`, which is given where to put its number.
template <typename Start>
int spawn(pid_t *child, Start start) {
  pid_t made = 0;
  const int result = start(&made);
  if (result == 0 && on_board())
    expect_process(made);
  if (result == 0 && child != nullptr)
    *child = made;
  return result;
}

}  // namespace

WRAP(int, posix_spawn, pid_t *child, const char *path, const posix_spawn_file_actions_t *actions,
     const posix_spawnattr_t *attributes, char *const words[], char *const given[]) {
  check_program(path);
  EMULATE(arm_program(path), path, words);
  return spawn(child, [&](pid_t *made) {
    return REAL(posix_spawn)(made, path, actions, attributes, words, COMPLETED(given));
  });
}

WRAP(int, posix_spawnp, pid_t *child, const char *file, const posix_spawn_file_actions_t *actions,
     const posix_spawnattr_t *attributes, char *const words[], char *const given[]) {
  check_program(file);
  FixedText<kPathSize> place;
  EMULATE(find_arm_program(file, place), file, words);
  return spawn(child, [&](pid_t *made) {
    return REAL(posix_spawnp)(made, file, actions, attributes, words, COMPLETED(given));
  });
}

// The forms with the words as arguments: they become a list, and `arguments` stands behind its end.
#define COLLECT_WORDS(words, first, arguments)                                       \
  va_list arguments;                                                                 \
  va_start(arguments, first);                                                        \
  std::size_t words##_count = 1;                                                     \
  while (va_arg(arguments, char *) != nullptr)                                       \
    words##_count++;                                                                 \
  va_end(arguments);                                                                 \
  char **words = static_cast<char **>(alloca((words##_count + 1) * sizeof(char *))); \
  words[0] = const_cast<char *>(first);                                              \
  va_start(arguments, first);                                                        \
  for (std::size_t i = 1; i <= words##_count; ++i) {                                 \
    words[i] = va_arg(arguments, char *);                                            \
  }

WRAP(int, execl, const char *path, const char *first, ...) {
  COLLECT_WORDS(words, first, arguments)
  va_end(arguments);
  return vboard_execve(path, words, environ);
}

WRAP(int, execlp, const char *file, const char *first, ...) {
  COLLECT_WORDS(words, first, arguments)
  va_end(arguments);
  return vboard_execvpe(file, words, environ);
}

WRAP(int, execle, const char *path, const char *first, ...) {
  COLLECT_WORDS(words, first, arguments)
  char *const *given = va_arg(arguments, char *const *);
  va_end(arguments);
  return vboard_execve(path, words, given);
}

namespace {

// As the kernel does: devices that are still open are closed. libc writes out its streams only
// after the destructors: too late for those on a device.
__attribute__((destructor)) void end_with_program() {
  if (!on_board())
    return;
  fflush(nullptr);
  close_all();
}

}  // namespace

WRAP(void, _exit, int status) {
  if (on_board())
    close_all();
  REAL(_exit)(status);
  __builtin_unreachable();
}
WRAP_ALIAS(_Exit, _exit);

WRAP(void, quick_exit, int status) {
  if (on_board())
    close_all();
  REAL(quick_exit)(status);
  __builtin_unreachable();
}
