#include "probe.h"

#include <errno.h>
#include <linux/capability.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

int current = -1;

void report(const char *name, long result) {
  if (result == -1)
    printf("%s %s\n", name, strerrorname_np(errno));
  else
    printf("%s %ld\n", name, result);
}

void report_bytes(const char *name, long result, const unsigned char *bytes, std::size_t count) {
  if (result == -1) {
    report(name, result);
    return;
  }
  printf("%s %ld ", name, result);
  for (std::size_t i = 0; i < count; ++i)
    printf("%02x", bytes[i]);
  printf("\n");
}

std::size_t read_bytes(const char *text, unsigned char *out, std::size_t room) {
  std::size_t count = 0;
  while (*text != '\0') {
    if (*text == '.') {
      ++text;
      continue;
    }
    char digits[3] = {text[0], text[1], '\0'};
    char *end = nullptr;
    const unsigned long byte = strtoul(digits, &end, 16);
    if (end != digits + 2)
      break;
    text += 2;
    unsigned long times = 1;
    if (*text == '*') {
      times = strtoul(text + 1, &end, 10);
      text = end;
    }
    for (; times > 0 && count < room; --times)
      out[count++] = static_cast<unsigned char>(byte);
  }
  return count;
}

namespace {

// Whatever these calls do, they must not do it to the PC, even when the virtual board is broken and
// a test runs as root: without capabilities the kernel itself refuses to mount, reboot and so on.
void drop_capabilities() {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct none[2] = {};
  if (syscall(SYS_capset, &header, none) != 0) {
    perror("probe: capset");
    exit(2);
  }
}

const Step *find_step(const char *name) {
  const Step *const tables[] = {kFileSteps, kSystemSteps, kTimeSteps, kThreadSteps, kTimedSteps};
  for (const Step *table : tables) {
    for (const Step *step = table; step->name != nullptr; ++step) {
      if (strcmp(step->name, name) == 0)
        return step;
    }
  }
  return nullptr;
}

// Runs the steps up to "join" or the end; where it stopped.
char **run_steps(char **word) {
  while (*word != nullptr && strcmp(*word, "join") != 0) {
    // "fork STEP... join": the steps are a child's; the parent waits for it.
    if (strcmp(*word, "fork") == 0) {
      fflush(stdout);
      const pid_t child = fork();
      char **end = word + 1;
      while (*end != nullptr && strcmp(*end, "join") != 0)
        ++end;
      if (child == 0) {
        run_steps(word + 1);
        fflush(stdout);
        _exit(0);
      }
      int status = 0;
      waitpid(child, &status, 0);
      report("child", WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
      word = *end == nullptr ? end : end + 1;
      continue;
    }
    const Step *step = find_step(*word);
    if (step == nullptr) {
      fprintf(stderr, "probe: no step %s\n", *word);
      exit(2);
    }
    for (int i = 1; i <= step->words; ++i) {
      if (word[i] == nullptr) {
        fprintf(stderr, "probe: %s takes %d words\n", *word, step->words);
        exit(2);
      }
    }
    step->run(word + 1);
    word += 1 + step->words;
  }
  return word;
}

}  // namespace

int main(int, char **argv) {
  drop_capabilities();
  setvbuf(stdout, nullptr, _IOLBF, 0);
  run_steps(argv + 1);
  return 0;
}
