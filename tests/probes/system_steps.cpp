// Calls that would reach the PC itself: the network, mounts, the clock, processes.

#include "probe.h"

#include <arpa/inet.h>
#include <errno.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace {

void step_mount(char **words) {
  report("mount", mount(words[0], words[1], words[2], 0, nullptr));
}

void step_umount(char **words) {
  report("umount", umount(words[0]));
}

void step_umount2(char **words) {
  report("umount2", umount2(words[0], MNT_DETACH));
}

void step_reboot(char **) {
  report("reboot", reboot(RB_AUTOBOOT));
}

void step_settimeofday(char **words) {
  const timeval now = {atol(words[0]), 0};
  report("settimeofday", settimeofday(&now, nullptr));
}

void step_clock_settime(char **words) {
  const timespec now = {atol(words[0]), 0};
  report("clock_settime", clock_settime(CLOCK_REALTIME, &now));
}

void step_scheduler(char **) {
  sched_param parameter = {};
  parameter.sched_priority = 50;
  report("scheduler", sched_setscheduler(0, SCHED_RR, &parameter));
}

// Of a process: 0 and -1 are this one.
void step_scheduler_of(char **words) {
  sched_param parameter = {};
  parameter.sched_priority = 50;
  const int process = atoi(words[0]) == -1 ? getpid() : atoi(words[0]);
  report("scheduler_of", sched_setscheduler(process, SCHED_RR, &parameter));
  report("scheduler_of", sched_setparam(process, &parameter));
}

void step_thread_scheduler(char **) {
  sched_param parameter = {};
  parameter.sched_priority = 50;
  report("thread_scheduler", pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameter));
}

int family(const char *name) {
  return strcmp(name, "inet") == 0      ? AF_INET
         : strcmp(name, "inet6") == 0   ? AF_INET6
         : strcmp(name, "packet") == 0  ? AF_PACKET
         : strcmp(name, "netlink") == 0 ? AF_NETLINK
                                        : AF_UNIX;
}

void step_socket(char **words) {
  const int type = strcmp(words[1], "stream") == 0  ? SOCK_STREAM
                   : strcmp(words[1], "dgram") == 0 ? SOCK_DGRAM
                                                    : SOCK_RAW;
  current = socket(family(words[0]), type, 0);
  report("socket", current);
}

sockaddr_in address(const char *host, const char *port) {
  sockaddr_in result = {};
  result.sin_family = AF_INET;
  inet_pton(AF_INET, host, &result.sin_addr);
  result.sin_port = htons(static_cast<in_port_t>(atoi(port)));
  return result;
}

void step_connect(char **words) {
  sockaddr_in to = address(words[0], words[1]);
  report("connect", connect(current, reinterpret_cast<const sockaddr *>(&to), sizeof to));
}

void step_sendto(char **words) {
  sockaddr_in to = address(words[0], words[1]);
  report("sendto", sendto(current, words[2], strlen(words[2]), 0,
                          reinterpret_cast<const sockaddr *>(&to), sizeof to));
}

void step_bind(char **words) {
  sockaddr_in at = address(words[0], words[1]);
  report("bind", bind(current, reinterpret_cast<const sockaddr *>(&at), sizeof at));
}

void step_interface_address(char **words) {
  ifreq request = {};
  snprintf(request.ifr_name, sizeof request.ifr_name, "%s", words[0]);
  if (ioctl(current, SIOCGIFADDR, &request) != 0) {
    report("interface_address", -1);
    return;
  }
  char text[INET_ADDRSTRLEN];
  const sockaddr_in *found = reinterpret_cast<const sockaddr_in *>(&request.ifr_addr);
  printf("interface_address %s\n", inet_ntop(AF_INET, &found->sin_addr, text, sizeof text));
}

void step_interface_rename(char **words) {
  ifreq request = {};
  snprintf(request.ifr_name, sizeof request.ifr_name, "%s", words[0]);
  snprintf(request.ifr_newname, sizeof request.ifr_newname, "%s", words[1]);
  report("interface_rename", ioctl(current, SIOCSIFNAME, &request));
}

void step_interface_down(char **words) {
  ifreq request = {};
  snprintf(request.ifr_name, sizeof request.ifr_name, "%s", words[0]);
  report("interface_down", ioctl(current, SIOCSIFFLAGS, &request));
}

void step_interfaces(char **) {
  struct if_nameindex *list = if_nameindex();
  printf("interfaces");
  for (struct if_nameindex *one = list; one != nullptr && one->if_index != 0; ++one)
    printf(" %s", one->if_name);
  printf("\n");
}

void step_interface_addresses(char **) {
  ifaddrs *list = nullptr;
  if (getifaddrs(&list) != 0) {
    report("interface_addresses", -1);
    return;
  }
  printf("interface_addresses");
  for (ifaddrs *one = list; one != nullptr; one = one->ifa_next)
    printf(" %s", one->ifa_name);
  printf("\n");
}

void step_system(char **words) {
  report("system", system(words[0]));
}

void step_popen(char **words) {
  FILE *pipe = popen(words[0], "r");
  if (pipe == nullptr) {
    report("popen", -1);
    return;
  }
  char line[4096] = "";
  if (fgets(line, sizeof line, pipe) == nullptr)
    line[0] = '\0';
  line[strcspn(line, "\n")] = '\0';
  printf("popen %s\n", line);
  pclose(pipe);
}

void step_exec(char **words) {
  fflush(stdout);
  execlp("sh", "sh", "-c", words[0], static_cast<char *>(nullptr));
  report("exec", -1);
}

void step_exit(char **words) {
  exit(atoi(words[0]));
}

void step_quick_exit(char **words) {
  fflush(stdout);
  _exit(atoi(words[0]));
}

void step_abort(char **) {
  abort();
}

void step_ids(char **) {
  printf("ids %d %d\n", static_cast<int>(getuid()), static_cast<int>(geteuid()));
}

}  // namespace

const Step kSystemSteps[] = {
    {"mount", 3, step_mount},
    {"umount", 1, step_umount},
    {"umount2", 1, step_umount2},
    {"reboot", 0, step_reboot},
    {"settimeofday", 1, step_settimeofday},
    {"clock_settime", 1, step_clock_settime},
    {"scheduler", 0, step_scheduler},
    {"scheduler_of", 1, step_scheduler_of},
    {"thread_scheduler", 0, step_thread_scheduler},
    {"socket", 2, step_socket},
    {"connect", 2, step_connect},
    {"sendto", 3, step_sendto},
    {"bind", 2, step_bind},
    {"interface_address", 1, step_interface_address},
    {"interface_rename", 2, step_interface_rename},
    {"interface_down", 1, step_interface_down},
    {"interfaces", 0, step_interfaces},
    {"interface_addresses", 0, step_interface_addresses},
    {"system", 1, step_system},
    {"popen", 1, step_popen},
    {"exec", 1, step_exec},
    {"exit", 1, step_exit},
    {"quick_exit", 1, step_quick_exit},
    {"abort", 0, step_abort},
    {"ids", 0, step_ids},
    {nullptr, 0, nullptr},
};
