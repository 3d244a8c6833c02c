// /dev/korstorage: the storage driver's view of the SATA ports, and block traces.
//
//   ports               how many ports the driver knows (1); others are ENODEV
//   scan_failed         1: the bus scan is not done (EAGAIN)
//   P.NAME              a counter of port P by its name in the driver: 0.readErr = 3
//   P.hdStatus          bits 0 and 1 abnormal, bit 2 idle
//   P.resets, P.reset_time, P.err_type, P.err_count, P.cmd_type, P.sector, P.trim
//   devices             names of the devices that can be traced, separated by blanks
//   trace_result        what the start of a trace answers instead of 0
//   stop_result         likewise its stop
//   medium              the time line of a trace, one event a line:
//                       SECONDS ACTION SECTOR BYTES PID ERROR [CATEGORY...]
//                       ACTION is the code; a CATEGORY is write, flush, sync, ahead, meta, discard
//                       or fua. Seconds count from the start of the trace.

#include "platform/driver/korstorage.h"
#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace vboard {
namespace {

constexpr std::int32_t kHandle = 7;
constexpr std::size_t kLongestTimeline = 1 << 20;
constexpr std::uint32_t kMagic = 0x65617407;  // the kernel's, with its version

struct TraceState {
  bool tracing;
  BoardTime started;
  std::size_t next;  // byte of the time line
  std::uint32_t sequence;
};

// The driver's names of the statistics' words, in the record's order; the word without one is not
// reported.
constexpr const char *kWords[] = {
    "readErr",          "writeErr",       "keyAreaErr",     "lbaOverflow",     "NoReady",
    "BSYCount",         "DRQSetErr",      "hdStatus",       "retryCmdCount",   "abortCmdCount",
    "CmdAborted",       "CmdOverUnknown", "CmdOverErr",     "BadSCSICmdParam", "UAReset",
    "UAParamChanged",   "QueueFull",      "OverRun",        "UnderRun",        "ParityErr",
    "BadSCSICmdResult", "unreported",     "RecoverableErr", "DeviceFault",     "SerrInt",
    "LinkCtlRxErr",     "LinkCtlTxErr",   "RecovData",      "RecovComm",       "UnrecovData",
    "Persist",          "Proto",          "HostInt",        "PHYRdyChg",       "PHYInt",
    "CommWake",         "SERR_10B_8B",    "Dispar",         "BadCRC",          "Handshk",
    "LinkSeq",          "TrStaTrns",      "UnrecFIS",       "DevExch",         "HostBusError",
    "ATABusError",      "TimeOutError",   "HSMviolation",   "SystemError",     "MediaError",
    "InvalidArgument",  "DeviceError",    "UnknownError",   "accessTime",
};
static_assert(sizeof kWords / sizeof kWords[0] == 54);

std::int64_t port_number(const OpenFile &file, std::int32_t port, const char *name) {
  char key[40];
  snprintf(key, sizeof key, "%d.%s", port, name);
  return node_number(file.node, key, 0);
}

int check_port(const OpenFile &file, std::int32_t port) {
  return port >= 0 && port < node_number(file.node, "ports", 1) ? 0 : -ENODEV;
}

void fill_statistics(const OpenFile &file, std::int32_t port, StorStatistics &out) {
  out = {};
  for (std::size_t i = 0; i < 54; ++i) {
    const auto value = static_cast<std::int32_t>(port_number(file, port, kWords[i]));
    memcpy(reinterpret_cast<unsigned char *>(&out) + 4 * i, &value, 4);
  }
}

void fill_resets(const OpenFile &file, std::int32_t port, StorResetStatus &out) {
  out = {};
  out.count = static_cast<std::int32_t>(port_number(file, port, "resets"));
  out.last_time = static_cast<std::int32_t>(port_number(file, port, "reset_time"));
}

void fill_error(const OpenFile &file, std::int32_t port, StorErrorRequest &out) {
  out = {};
  out.err_type = static_cast<std::int32_t>(port_number(file, port, "err_type"));
  out.err_count = static_cast<std::int32_t>(port_number(file, port, "err_count"));
  out.cmd_type = static_cast<std::int32_t>(port_number(file, port, "cmd_type"));
  out.sector = port_number(file, port, "sector");
}

bool is_traceable(const OpenFile &file, const StorTraceStart &start) {
  const std::string_view name(start.name, strnlen(start.name, sizeof start.name));
  std::string_view devices = node_text(file.node, "devices");
  for (std::string_view word = take_word(devices); !word.empty(); word = take_word(devices)) {
    if (word == name)
      return true;
  }
  return false;
}

int start_trace(OpenFile &file, StorTraceStart &start) {
  TraceState &state = state_of<TraceState>(file);
  if (start.option != STOR_TRACE_OPTION)
    return -EINVAL;
  if (!is_traceable(file, start))
    return -ENODEV;
  if (state.tracing)
    return -EBUSY;
  if (const std::int64_t result = node_number(file.node, "trace_result", 0))
    return static_cast<int>(result);
  state = {.tracing = true, .started = board_time(), .next = 0, .sequence = 0};
  start.handle = kHandle;
  return 0;
}

int stop_trace(OpenFile &file, const StorTraceStart &start) {
  TraceState &state = state_of<TraceState>(file);
  if (!state.tracing || start.handle != kHandle)
    return -EINVAL;
  state.tracing = false;
  return static_cast<int>(node_number(file.node, "stop_result", 0));
}

// The whole time line, in file.extra; empty without one.
std::string_view load_timeline(OpenFile &file) {
  if (file.extra == nullptr) {
    const std::int64_t size = sys_size(file.fd);
    if (size <= 0 || size > static_cast<std::int64_t>(kLongestTimeline))
      return {};
    char *text = static_cast<char *>(calloc(1, static_cast<std::size_t>(size) + 1));
    if (text == nullptr || sys_pread(file.fd, text, static_cast<std::size_t>(size), 0) != size) {
      free(text);
      return {};
    }
    file.extra = text;
  }
  return static_cast<const char *>(file.extra);
}

std::uint32_t category_of(std::string_view word) {
  constexpr struct {
    std::string_view word;
    std::uint32_t bit;
  } kCategories[] = {
      {"write", STOR_TRACE_WRITE}, {"flush", STOR_TRACE_FLUSH}, {"sync", STOR_TRACE_SYNC},
      {"ahead", STOR_TRACE_AHEAD}, {"meta", STOR_TRACE_META},   {"discard", STOR_TRACE_DISCARD},
      {"fua", STOR_TRACE_FUA},
  };
  for (const auto &row : kCategories) {
    if (row.word == word)
      return row.bit;
  }
  return 0;
}

bool parse_event(std::string_view line, std::int64_t &seconds, StorTraceEvent &out) {
  std::int64_t numbers[5];
  if (!parse_seconds(take_word(line), seconds))
    return false;
  for (std::int64_t &number : numbers) {
    if (!parse_number(take_word(line), number))
      return false;
  }
  out.action = static_cast<std::uint32_t>(numbers[0]);
  out.sector = static_cast<std::uint64_t>(numbers[1]);
  out.bytes = static_cast<std::uint32_t>(numbers[2]);
  out.pid = static_cast<std::uint32_t>(numbers[3]);
  out.error = static_cast<std::uint16_t>(numbers[4]);
  for (std::string_view word = take_word(line); !word.empty(); word = take_word(line))
    out.action |= category_of(word);
  return true;
}

// The next event that is due; one with time 0 when there is none.
int read_event(OpenFile &file, StorTraceEvent &out) {
  TraceState &state = state_of<TraceState>(file);
  if (!state.tracing || out.handle != kHandle)
    return -EINVAL;
  const std::string_view timeline = load_timeline(file);
  out = {};
  out.handle = kHandle;
  std::string_view rest = timeline.substr(std::min(state.next, timeline.size()));
  std::string_view line;
  while (take_line(rest, line)) {
    std::int64_t due = 0;
    StorTraceEvent event = {};
    if (parse_event(line, due, event)) {
      if (board_time() - state.started < due)
        return 0;
      event.handle = kHandle;
      event.magic = kMagic;
      event.sequence = ++state.sequence;
      event.time = static_cast<std::uint64_t>(due) + 1;  // never 0
      out = event;
      state.next = timeline.size() - rest.size();
      return 0;
    }
    state.next = timeline.size() - rest.size();
  }
  return 0;
}

int korstorage_ioctl(OpenFile &file, std::uint32_t request, void *argument) {
  std::int32_t port;
  memcpy(&port, argument, sizeof port);
  switch (request) {
    case STOR_CMD_SCAN_DONE:
      return node_number(file.node, "scan_failed", 0) != 0 ? -EAGAIN : 0;
    case STOR_CMD_TRACE_DEVICE_START:
      return start_trace(file, *static_cast<StorTraceStart *>(argument));
    case STOR_CMD_TRACE_DEVICE_STOP:
      return stop_trace(file, *static_cast<StorTraceStart *>(argument));
    case STOR_CMD_TRACE_READ:
      return read_event(file, *static_cast<StorTraceEvent *>(argument));
    default:
      break;
  }
  if (const int error = check_port(file, port))
    return error;
  switch (request) {
    case STOR_CMD_GET:
      fill_statistics(file, port, *static_cast<StorStatistics *>(argument));
      return 0;
    case STOR_CMD_HD_RESET_STATUS:
      fill_resets(file, port, *static_cast<StorResetStatus *>(argument));
      return 0;
    case STOR_CMD_ERR_REQ:
      fill_error(file, port, *static_cast<StorErrorRequest *>(argument));
      return 0;
    case STOR_CMD_TRIM_SUPPORT:
      port = static_cast<std::int32_t>(port_number(file, port, "trim"));
      memcpy(argument, &port, sizeof port);
      return 0;
    default:
      return -ENOTTY;
  }
}

void korstorage_close(OpenFile &file) {
  free(file.extra);
  file.extra = nullptr;
}

using enum Direction;

constexpr Request kRequests[] = {
    {.number = STOR_CMD_GET,
     .name = "STOR_CMD_GET",
     .size = sizeof(StorStatistics),
     .direction = kInOut},
    {.number = STOR_CMD_SCAN_DONE, .name = "STOR_CMD_SCAN_DONE", .size = 4, .direction = kInOut},
    {.number = STOR_CMD_HD_RESET_STATUS,
     .name = "STOR_CMD_HD_RESET_STATUS",
     .size = sizeof(StorResetStatus),
     .direction = kInOut},
    {.number = STOR_CMD_ERR_REQ,
     .name = "STOR_CMD_ERR_REQ",
     .size = sizeof(StorErrorRequest),
     .direction = kInOut},
    {.number = STOR_CMD_TRIM_SUPPORT,
     .name = "STOR_CMD_TRIM_SUPPORT",
     .size = 4,
     .direction = kInOut},
    {.number = STOR_CMD_TRACE_DEVICE_START,
     .name = "STOR_CMD_TRACE_DEVICE_START",
     .size = sizeof(StorTraceStart),
     .direction = kInOut},
    {.number = STOR_CMD_TRACE_DEVICE_STOP,
     .name = "STOR_CMD_TRACE_DEVICE_STOP",
     .size = sizeof(StorTraceStart),
     .direction = kInOut},
    {.number = STOR_CMD_TRACE_READ,
     .name = "STOR_CMD_TRACE_READ",
     .size = sizeof(StorTraceEvent),
     .direction = kInOut},
};

ssize_t no_read(OpenFile &, void *, std::size_t) {
  return -EINVAL;
}

ssize_t no_write(OpenFile &, const void *, std::size_t) {
  return -EINVAL;
}

}  // namespace

extern constexpr Model kKorstorageModel = {
    .name = "korstorage",
    .requests = kRequests,
    .medium_size = 0,
    .medium_fill = 0,
    .open = nullptr,
    .close = korstorage_close,
    .read = no_read,
    .write = no_write,
    .ioctl = korstorage_ioctl,
    .readable_at = nullptr,
};

}  // namespace vboard
