// bt2 blktrace: a storage device's block requests, from the storage driver into a log, until
// SIGTERM.
//
// A busy poll by design: the driver cannot wait. The stop flag counts only after an empty poll, so
// that nothing that was traced is lost: a steady stream of events delays the stop, and so does a
// driver that only fails. Each line goes into the log with its NUL, and is synced at once: the log
// is for machines that lose power. An older, longer log keeps its tail.

#include "storage/storage.h"

#include "storage/block_event.h"

#include <sys/ioctl.h>

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

namespace {

constexpr char kUsage[] =
    "\n blktrace v1.0\n"
    "Usage:\n\n"
    "    blktrace  dev  path      ---dev name\n\n\n"
    "example:\n\n"
    "    blktrace  mmcblk0  /var/log/mmcblk0_blktrace.log  \n\n\n";
static_assert(sizeof kUsage - 1 == 134);

constexpr std::size_t kLogPathSize = 128;

std::atomic<bool> stop_requested;
static_assert(std::atomic<bool>::is_always_lock_free);

void request_stop(int) {
  stop_requested.store(true, std::memory_order_relaxed);
}

// Read without stdio, whose buffer would be allocated for every event.
void read_process_name(std::uint32_t pid, char (&out)[kProcessNameSize]) {
  char path[32];
  char status[128] = "";
  snprintf(path, sizeof path, "/proc/%d/status", static_cast<int>(pid));
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file >= 0) {
    const ssize_t count = read(file, status, sizeof status - 1);
    status[count > 0 ? count : 0] = '\0';
    close(file);
  }
  parse_process_name(status, out);
}

void log_event(int log, const char *name, const StorTraceEvent &event) {
  char process[kProcessNameSize];
  char line[kEventLineSize];
  read_process_name(event.pid, process);
  const std::size_t size = format_event(name, process, event, line);
  // A line that the full disk does not take is lost; the trace goes on.
  [[maybe_unused]] const ssize_t written = write(log, line, size);
  sync();
}

void trace_until_stopped(int device, int log, const char *name, std::int32_t handle) {
  StorTraceEvent event = {};
  event.handle = handle;
  for (;;) {
    if (ioctl(device, STOR_CMD_TRACE_READ, &event) < 0)
      continue;
    if (event.time != 0)
      log_event(log, name, event);
    else if (stop_requested.load(std::memory_order_relaxed))
      return;
  }
}

int trace(int device, int log, const char *name) {
  StorTraceStart start = {};
  memcpy(start.name, name, strnlen(name, sizeof start.name - 1));
  start.option = STOR_TRACE_OPTION;
  int result = ioctl(device, STOR_CMD_TRACE_DEVICE_START, &start);
  if (result != 0) {
    puts("\033[0;32mSTOR_CMD_TRACE_DEVICE_START faild!\033[m");  // sic
    return result;
  }
  trace_until_stopped(device, log, name, start.handle);
  result = ioctl(device, STOR_CMD_TRACE_DEVICE_STOP, &start);
  if (result != 0)
    puts("\033[0;32mSTOR_CMD_TRACE_DEVICE_STOP faild!\033[m");  // sic
  return result;
}

// Clears the flag first: a signal that comes as soon as it is caught is not lost.
void catch_stop() {
  stop_requested.store(false, std::memory_order_relaxed);
  struct sigaction action = {};
  action.sa_handler = request_stop;
  action.sa_flags = SA_RESTART;
  sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

int blktrace_applet(int argc, char **argv) {
  if (argc < 2) {
    fputs(kUsage, stderr);
    return -1;
  }
  char default_path[kLogPathSize];
  snprintf(default_path, sizeof default_path, "/var/%.109s_blktrace.log", argv[1]);
  const char *path = argc == 3 ? argv[2] : default_path;

  catch_stop();
  const int log = open(path, O_WRONLY | O_CREAT, 0777);
  if (log < 0) {
    printf("%s open error! \n", path);
    return -1;
  }
  int status = -1;
  const int device = open(KORSTORAGE_DEVICE, O_RDWR);
  if (device < 0)
    puts("Open /dev/korstorage failed!");
  else
    status = trace(device, log, argv[1]);
  close(log);  // first the log, then the device
  if (device >= 0)
    close(device);
  return status;
}
