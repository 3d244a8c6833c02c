// pstat: prints one process's /proc/PID/stat under readable labels.

#include "debug/debug_tools.h"

#include "debug/stat_fields.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

namespace {

constexpr std::size_t kPathSize = 50;
constexpr std::size_t kMostText = 500;  // of the file; what follows is not looked at

void usage_pstat() {
  puts("======================================================");
  putchar('\n');
  puts("usage:");
  puts("btdbg pstat /proc/[pid]/stat     ");
  putchar('\n');
  puts("example:");
  puts("btdbg pstat /proc/333/stat       ");
  putchar('\n');
  puts("======================================================");
}

int print_stat(int file) {
  char text[kMostText + 1] = "";
  if (read(file, text, kMostText) < 0) {  // as when the process has ended since the open
    puts("This node failed to read!");
    return -1;
  }
  print_stat_text(text);
  return 0;
}

}  // namespace

int main_pstat(int argc, char **argv) {
  if (argc != 2) {
    usage_pstat();
    return -1;
  }
  // No stat file has a longer path, and half a path would name another file.
  const bool fits = strlen(argv[1]) < kPathSize;
  const int file = fits ? open(argv[1], O_RDONLY) : -1;
  if (file < 0) {
    puts("======================================================");
    puts("This node does not exist!");
    usage_pstat();
    return -1;
  }
  const int status = print_stat(file);
  close(file);
  return status;
}
