// /dev/korstorage: the storage driver's view of the SATA ports, and block traces. The medium is the
// time line of a trace, one event a line:
//
//   SECONDS ACTION SECTOR BYTES PID ERROR [CATEGORY...]
//
// Seconds count from the start of the trace; ACTION is the code; a CATEGORY is write, flush, sync,
// ahead, meta, discard or fua.

#include "platform/driver/korstorage.h"
#include "vboard/base/text.h"
#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <iterator>

namespace vboard {
namespace {

using enum Direction;
using enum SettingKind;

constexpr std::int32_t kHandle = 7;
constexpr std::size_t kLongestTimeline = 1 << 20;
constexpr std::uint32_t kMagic = 0x65617407;  // the kernel's, with its version

constexpr std::size_t kWordCount = 54;

struct TraceState {
  bool tracing;
  BoardTime started;
  std::uint64_t next;  // byte of the time line
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
static_assert(std::size(kWords) == kWordCount);

// The settings of a port stand behind its number.
constexpr Setting kOwnSettings[] = {
    {.key = "ports",
     .kind = kNumber,
     .otherwise = "1",
     .help = "how many ports the driver knows; others are ENODEV",
     .most = INT32_MAX},
    {.key = "scan_failed",
     .kind = kFlag,
     .otherwise = "0",
     .help = "1: the scan of the bus is not done (EAGAIN)"},
    {.key = "devices",
     .kind = kText,
     .otherwise = "",
     .help = "names of the devices that can be traced, separated by blanks"},
    {.key = "trace_result",
     .kind = kNumber,
     .otherwise = "0",
     .help = "what the start of a trace answers",
     .least = INT32_MIN,
     .most = INT32_MAX},
    {.key = "stop_result",
     .kind = kNumber,
     .otherwise = "0",
     .help = "what its stop answers",
     .least = INT32_MIN,
     .most = INT32_MAX},
    {.key = "#.resets",
     .kind = kNumber,
     .otherwise = "0",
     .help = "resets of the port",
     .least = INT64_MIN},
    {.key = "#.reset_time",
     .kind = kNumber,
     .otherwise = "0",
     .help = "when the last one was",
     .least = INT64_MIN},
    {.key = "#.err_type",
     .kind = kNumber,
     .otherwise = "0",
     .help = "STOR_CMD_ERR_REQ: err_type",
     .least = INT64_MIN},
    {.key = "#.err_count",
     .kind = kNumber,
     .otherwise = "0",
     .help = "err_count",
     .least = INT64_MIN},
    {.key = "#.cmd_type",
     .kind = kNumber,
     .otherwise = "0",
     .help = "cmd_type",
     .least = INT64_MIN},
    {.key = "#.sector", .kind = kNumber, .otherwise = "0", .help = "sector", .least = INT64_MIN},
    {.key = "#.trim",
     .kind = kNumber,
     .otherwise = "0",
     .help = "1: the drive can trim",
     .least = INT64_MIN},
};

struct Keys {
  char text[kWordCount][24];
};

constexpr Keys kWordKeys = [] {
  Keys keys = {};
  for (std::size_t i = 0; i < kWordCount; ++i) {
    keys.text[i][0] = '#';
    keys.text[i][1] = '.';
    for (std::size_t at = 0; kWords[i][at] != '\0'; ++at)
      keys.text[i][2 + at] = kWords[i][at];
  }
  return keys;
}();

constexpr auto kSettings = [] {
  std::array<Setting, std::size(kOwnSettings) + kWordCount> all = {};
  auto next = std::copy(std::begin(kOwnSettings), std::end(kOwnSettings), all.begin());
  for (const auto &key : kWordKeys.text)
    *next++ = {.key = key,
               .kind = kNumber,
               .otherwise = "0",
               .help = "a word of STOR_CMD_GET",
               .least = INT32_MIN,
               .most = UINT32_MAX};
  return all;
}();

std::int64_t port_number(const OpenFile &file, std::int32_t port, const char *name) {
  char key[40];
  snprintf(key, sizeof key, "%d.%s", port, name);
  return setting_number(file, key);
}

int check_port(const OpenFile &file, std::int32_t port) {
  return port >= 0 && port < setting_number(file, "ports") ? 0 : -ENODEV;
}

// A record about a port begins with the port's number, and its answer stands in its place.
int get_statistics(OpenFile &file, StorStatistics &record) {
  std::int32_t port;
  memcpy(&port, &record, sizeof port);
  if (const int error = check_port(file, port))
    return error;
  record = {};
  for (std::size_t i = 0; i < kWordCount; ++i) {
    const auto value = static_cast<std::int32_t>(port_number(file, port, kWords[i]));
    memcpy(reinterpret_cast<unsigned char *>(&record) + 4 * i, &value, 4);
  }
  return 0;
}

int get_resets(OpenFile &file, StorResetStatus &record) {
  std::int32_t port;
  memcpy(&port, &record, sizeof port);
  if (const int error = check_port(file, port))
    return error;
  record = {};
  record.count = static_cast<std::int32_t>(port_number(file, port, "resets"));
  record.last_time = static_cast<std::int32_t>(port_number(file, port, "reset_time"));
  return 0;
}

int get_error(OpenFile &file, StorErrorRequest &record) {
  std::int32_t port;
  memcpy(&port, &record, sizeof port);
  if (const int error = check_port(file, port))
    return error;
  record = {};
  record.err_type = static_cast<std::int32_t>(port_number(file, port, "err_type"));
  record.err_count = static_cast<std::int32_t>(port_number(file, port, "err_count"));
  record.cmd_type = static_cast<std::int32_t>(port_number(file, port, "cmd_type"));
  record.sector = port_number(file, port, "sector");
  return 0;
}

int get_trim(OpenFile &file, std::int32_t &port) {
  if (const int error = check_port(file, port))
    return error;
  port = static_cast<std::int32_t>(port_number(file, port, "trim"));
  return 0;
}

int ask_scan(OpenFile &file, std::int32_t &) {
  return setting_is_on(file, "scan_failed") ? -EAGAIN : 0;
}

bool is_traceable(const OpenFile &file, const StorTraceStart &start) {
  const std::string_view name(start.name, strnlen(start.name, sizeof start.name));
  std::string_view devices = setting_text(file, "devices");
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
  if (const std::int64_t result = setting_number(file, "trace_result"))
    return static_cast<int>(result);
  state = {.tracing = true, .started = board_time(), .next = 0, .sequence = 0};
  start.handle = kHandle;
  return 0;
}

int stop_trace(OpenFile &file, StorTraceStart &start) {
  TraceState &state = state_of<TraceState>(file);
  if (!state.tracing || start.handle != kHandle)
    return -EINVAL;
  state.tracing = false;
  return static_cast<int>(setting_number(file, "stop_result"));
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
  const std::string_view timeline = load_medium(file, kLongestTimeline);
  out = {};
  out.handle = kHandle;
  std::string_view rest =
      timeline.substr(std::min(static_cast<std::size_t>(state.next), timeline.size()));
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

// clang-format off
constexpr Request kRequests[] = {
    {.number = STOR_CMD_GET,                .name = "STOR_CMD_GET",                .direction = kInOut, .handler = answers<get_statistics>},
    {.number = STOR_CMD_SCAN_DONE,          .name = "STOR_CMD_SCAN_DONE",          .direction = kInOut, .handler = answers<ask_scan>},
    {.number = STOR_CMD_HD_RESET_STATUS,    .name = "STOR_CMD_HD_RESET_STATUS",    .direction = kInOut, .handler = answers<get_resets>},
    {.number = STOR_CMD_ERR_REQ,            .name = "STOR_CMD_ERR_REQ",            .direction = kInOut, .handler = answers<get_error>},
    {.number = STOR_CMD_TRIM_SUPPORT,       .name = "STOR_CMD_TRIM_SUPPORT",       .direction = kInOut, .handler = answers<get_trim>},
    {.number = STOR_CMD_TRACE_DEVICE_START, .name = "STOR_CMD_TRACE_DEVICE_START", .direction = kInOut, .handler = answers<start_trace>},
    {.number = STOR_CMD_TRACE_DEVICE_STOP,  .name = "STOR_CMD_TRACE_DEVICE_STOP",  .direction = kInOut, .handler = answers<stop_trace>},
    {.number = STOR_CMD_TRACE_READ,         .name = "STOR_CMD_TRACE_READ",         .direction = kInOut, .handler = answers<read_event>},
};
// clang-format on

}  // namespace

extern constexpr Model kKorstorageModel = {
    .name = "korstorage",
    .settings = kSettings,
    .requests = kRequests,
};

}  // namespace vboard
