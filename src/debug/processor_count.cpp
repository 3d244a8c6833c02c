// Processors in /proc/cpuinfo.

#include "debug/processor_count.h"

#include <string.h>

int count_processors(FILE *cpuinfo) {
  int count = 0;
  char line[128];
  while (fgets(line, sizeof line, cpuinfo) != nullptr) {
    if (strncmp(line, "processor", strlen("processor")) == 0)
      ++count;
  }
  return count;
}
