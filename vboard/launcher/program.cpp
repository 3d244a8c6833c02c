#include "vboard/launcher/program.h"

#include "vboard/base/text.h"
#include "vboard/board/emulation.h"
#include "vboard/board/run_page.h"
#include "vboard/launcher/fault_lines.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vboard {

namespace {

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
      const std::size_t end = path.find(':');
      const std::string_view directory = path.substr(0, end);
      path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
      FixedText<kFileName> file;
      append_text(file, directory.empty() ? "." : directory, "/", name);
      struct stat status;
      found = !file.overflow && stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
              access(file.c_str(), X_OK) == 0;
      copy_text({out, kFileName}, file.view());
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

// A machine of the board's own kind needs no emulator.
#ifdef __arm__
constexpr bool kIsArm = true;
#else
constexpr bool kIsArm = false;
#endif

// An interposer for programs of two kinds, "/DIRECTORY/$LIB/libvboard.so": each must be there,
// since the loader goes on without one that it misses.
int check_interposers(const char *chosen, std::size_t folder) {
  if (chosen[0] != '/')
    return fail("VBOARD_PRELOAD: %s: $LIB takes an absolute path", chosen);
  for (const char *kind : {VBOARD_LOADERS_FOLDER, kArmFolder}) {
    FixedText<kFileName> path;
    append_text(path, std::string_view(chosen, folder), kind,
                chosen + folder + strlen(kLoadersFolder));
    if (access(path.c_str(), R_OK) < 0)
      return fail("VBOARD_PRELOAD: %s: %s", path.c_str(), strerror(errno));
  }
  return 0;
}

int find_interposer(char *out) {
  const char *chosen = getenv("VBOARD_PRELOAD");
  if (chosen != nullptr && *chosen != '\0') {
    const char *folder = strstr(chosen, kLoadersFolder);
    if (folder != nullptr) {
      const int result = check_interposers(chosen, static_cast<std::size_t>(folder - chosen));
      return result != 0 || copy_text({out, kFileName}, chosen) ? result : kFailed;
    }
    char absolute[PATH_MAX];
    if (realpath(chosen, absolute) == nullptr)
      return fail("VBOARD_PRELOAD: %s: %s", chosen, strerror(errno));
    return copy_text({out, kFileName}, absolute) ? 0 : kFailed;
  }
  constexpr const char *places[] = {"../lib/libvboard.so", VBOARD_TO_LIBDIR "/vboard/libvboard.so"};
  if (!find_own_file(places, std::size(places), out))
    return fail("libvboard.so is not where vboard is installed");
  return 0;
}

// LD_PRELOAD splits its value at blanks and colons; a path with one of them goes by a descriptor,
// of the file or of the directory in front of $LIB.
int preload_name(const char *interposer, char *out, std::size_t size) {
  if (strpbrk(interposer, " :") == nullptr) {
    snprintf(out, size, "%s", interposer);
    return 0;
  }
  const char *folder = strstr(interposer, kLoadersFolder);
  FixedText<kFileName> opened;
  append_text(opened, folder != nullptr ? std::string_view(interposer, folder) : interposer);
  const int fd = open(opened.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return fail("%s: %s", opened.c_str(), strerror(errno));
  snprintf(out, size, "/proc/%d/fd/%d%s%s", getpid(), fd, folder != nullptr ? "/" : "",
           folder != nullptr ? folder : "");
  return 0;
}

// What the interposer needs of a build with the address sanitizer, and a foreign program lacks. The
// loader puts it after the interposer: the sanitizer's own functions are wrapped as libc's are.
#ifdef VBOARD_SANITIZER
constexpr char kAfterInterposer[] = ":" VBOARD_SANITIZER;
#else
constexpr char kAfterInterposer[] = "";
#endif

// What ARM programs run with: the command itself, or what it starts. 0, or a status.
int prepare_emulator(const char *interposer, bool foreign) {
  if (kIsArm || strstr(interposer, kLoadersFolder) == nullptr) {
    unsetenv(kEmulatorVariable);
    return !foreign ? 0
                    : fail(
                          "a 32-bit ARM program takes an interposer of its kind: VBOARD_PRELOAD="
                          "/DIRECTORY/$LIB/libvboard.so");
  }
  const char *chosen = getenv(kEmulatorVariable);
  char file[kFileName];
  char absolute[PATH_MAX];
  const int result = find_command(chosen != nullptr && *chosen ? chosen : "qemu-arm-static", file);
  if (result != 0)
    return result;
  if (realpath(file, absolute) == nullptr)
    return fail("%s: %s", file, strerror(errno));
  const char *libraries = getenv("VBOARD_SYSROOT");
  setenv(kEmulatorVariable, absolute, 1);
  setenv(kEmulatorLibraries, libraries != nullptr ? libraries : "/usr/arm-linux-gnueabihf", 1);
  return 0;
}

}  // namespace

int find_program(const char *name, Program &out) {
  int result = find_command(name, out.file);
  if (result != 0)
    return result;
  out.foreign = !kIsArm && is_arm_program(out.file);
  char interposer[kFileName];
  result = find_interposer(interposer);
  if (result == 0)
    result = preload_name(interposer, out.preload, sizeof out.preload);
  return result != 0 ? result : prepare_emulator(interposer, out.foreign);
}

void set_environment(const RunOptions &options, const char *board, const char *board_template,
                     const Program &program, int page_fd) {
  setenv(kBoardVariable, board, 1);
  if (board_template != nullptr)
    setenv(kTemplateVariable, board_template, 1);
  else
    unsetenv(kTemplateVariable);
  FixedText<64> page;
  append_text(page, "/proc/");
  append_decimal(page, getpid());
  append_text(page, "/fd/");
  append_decimal(page, page_fd);
  setenv(kRunVariable, page.c_str(), 1);
  char work[PATH_MAX];
  setenv(kWorkVariable, getcwd(work, sizeof work) != nullptr ? work : "/", 1);
  unsetenv(kTraceVariable);
  if (options.trace != nullptr) {
    char absolute[PATH_MAX];
    if (realpath(options.trace, absolute) != nullptr)
      setenv(kTraceVariable, absolute, 1);
  }

  FixedText<kFaultsSize> faults;
  for (int i = 0; i < options.fault_count; ++i)
    append_text(faults, options.faults[i], "\n");
  if (options.fault_count > 0)
    setenv(kFaultsVariable, faults.c_str(), 1);
  else
    unsetenv(kFaultsVariable);

  const char *before = getenv("LD_PRELOAD");
  FixedText<2 * kFileName> preload;
  append_text(preload, program.preload, kAfterInterposer);
  if (before != nullptr && *before)
    append_text(preload, ":", before);
  setenv("LD_PRELOAD", preload.c_str(), 1);
  constexpr char order[] = "verify_asan_link_order=0";
  const char *asan = getenv("ASAN_OPTIONS");
  if (asan == nullptr || strstr(asan, "verify_asan_link_order") == nullptr) {
    FixedText<2 * kFileName> options_of_asan;
    append_text(options_of_asan, order);
    if (asan != nullptr && *asan)
      append_text(options_of_asan, ":", asan);
    setenv("ASAN_OPTIONS", options_of_asan.c_str(), 1);
  }
}

[[noreturn]] void execute(const Program &program, char **command) {
  const char *file = program.file;
  if (!program.foreign) {
    execv(file, command);
    // A script without its "#!" line is the shell's.
    if (errno == ENOEXEC) {
      int count = 0;
      while (command[count] != nullptr)
        ++count;
      char **words =
          static_cast<char **>(calloc(static_cast<std::size_t>(count) + 2, sizeof(char *)));
      if (words != nullptr) {
        words[0] = const_cast<char *>("sh");
        words[1] = const_cast<char *>(file);
        for (int i = 1; i < count; ++i)
          words[i + 1] = command[i];
        execv("/bin/sh", words);
      }
    }
  } else {
    int count = 0;
    while (command[count] != nullptr)
      ++count;
    const char *emulator = getenv(kEmulatorVariable);
    char **words = static_cast<char **>(
        calloc(static_cast<std::size_t>(count) + kEmulatorWords + 1, sizeof(char *)));
    if (words != nullptr && emulator != nullptr) {
      int at = 0;
      words[at++] = const_cast<char *>(emulator);
      words[at++] = const_cast<char *>("-0");
      words[at++] = command[0];
      words[at++] = const_cast<char *>(file);
      for (int i = 1; i < count; ++i)
        words[at++] = command[i];
      execv(words[0], words);
      file = words[0];
    }
  }
  const int error = errno;
  fail("%s: %s", file, strerror(error));
  _exit(error == ENOENT && program.foreign ? kNotFound : kNotRunnable);
}

}  // namespace vboard
