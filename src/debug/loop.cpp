// loop: keeps one processor busy for ever; with -r as a real-time task on the last one, which takes
// at least two, so that something is left for the shell that has to end it.

#include "debug/debug_tools.h"

#include "debug/processor_count.h"
#include "platform/thread.h"

#include <errno.h>
#include <getopt.h>
#include <pthread.h>
#include <sched.h>
#include <stdio.h>
#include <string.h>

namespace {

constexpr char kUsage[] =
    "\nUsage: loop [option]\n"
    "\noption: -h help\n"
    "        -r runtime task\n"
    "        -n normal task\n"
    "example:\n"
    "  loop -r\n\n";

constexpr const char *kCpuinfoPath = "/proc/cpuinfo";
constexpr int kPriority = 10;

[[noreturn]] void fill_forever() {
  unsigned char buffer[512];
  for (unsigned char value = 0;; ++value) {
    memset(buffer, value, sizeof buffer);
    asm volatile("" : : "r"(buffer) : "memory");  // the optimiser must believe that it is read
  }
}

// -1 when the list cannot be opened.
int cpu_number() {
  FILE *cpuinfo = fopen(kCpuinfoPath, "rb");
  if (cpuinfo == nullptr) {
    printf("Open %s faild[%d]!\n", kCpuinfoPath, errno);  // sic
    return -1;
  }
  const int count = count_processors(cpuinfo);
  fclose(cpuinfo);
  return count;
}

bool become_realtime() {
  const int count = cpu_number();
  if (count < 2) {
    printf("Get CPU number fail! cpu_number[%d]\n", count);
    return false;
  }
  rig_thread_set_cpu(pthread_self(), count - 1);
  sched_param parameters = {};
  parameters.sched_priority = kPriority;
  sched_setscheduler(0, SCHED_RR, &parameters);  // without the privilege the loop runs as it is
  return true;
}

int loop_usage() {
  fwrite(kUsage, 1, sizeof kUsage - 1, stderr);
  return -1;
}

}  // namespace

int loop_main(int argc, char **argv) {
  if (argc < 2)
    return loop_usage();
  bool is_realtime = false;
  int option;
  optind = 0;
  while ((option = getopt(argc, argv, "hrn")) != -1) {
    if (option == 'h')
      return loop_usage();
    if (option == 'r')
      is_realtime = true;
  }
  if (is_realtime && !become_realtime())
    return -1;
  fill_forever();
}
