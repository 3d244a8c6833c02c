#include "vboard/launcher/run_options.h"

#include "vboard/base/calendar.h"
#include "vboard/base/text.h"
#include "vboard/launcher/boards.h"
#include "vboard/launcher/commands.h"

#include <signal.h>
#include <string.h>

#include <string_view>

namespace vboard {

namespace {

bool parse_speed(const char *word, RunOptions &out) {
  if (strcmp(word, "max") == 0) {
    out.jumping = true;
    return true;
  }
  std::int64_t nanoseconds;
  if (!parse_seconds(word, nanoseconds))
    return false;
  out.jumping = false;
  out.speed_milli = nanoseconds / 1'000'000;
  return out.speed_milli > 0 && out.speed_milli <= 1'000'000;
}

void add_signal(RunOptions &out, int number, std::int64_t at) {
  PlannedSignal &planned = out.signals[out.signal_count++];
  planned.at = at;
  planned.number = number;
}

bool parse_planned(const char *word, RunOptions &out) {
  const char *at = strchr(word, '@');
  std::int64_t when;
  if (at == nullptr || !parse_seconds(at + 1, when))
    return false;
  const int number = parse_signal({word, static_cast<std::size_t>(at - word)});
  // One place is kept for --for.
  if (number == 0 || out.signal_count == kMaxSignals - 1)
    return false;
  add_signal(out, number, when);
  return true;
}

}  // namespace

int parse_run_options(int argc, char **argv, RunOptions &out) {
  out.speed_milli = 1000;
  out.end_at = kNoTime;
  out.date = -1;
  out.power_cut_at = kNoTime;
  int i = 0;
  for (; i < argc && argv[i][0] == '-'; ++i) {
    const std::string_view option(argv[i]);
    if (option == "--") {
      ++i;
      break;
    }
    if (i + 1 == argc)
      return wrong_usage("run");
    const char *value = argv[++i];
    bool right = true;
    if (option == "--board") {
      out.board = value;
    } else if (option == "--speed") {
      right = parse_speed(value, out);
    } else if (option == "--trace") {
      out.trace = value;
    } else if (option == "--story") {
      out.story = value;
    } else if (option == "--fault") {
      right = out.fault_count < kMostFaultOptions;
      if (right)
        out.faults[out.fault_count++] = value;
    } else if (option == "--signal") {
      right = parse_planned(value, out);
    } else if (option == "--for") {
      right = parse_seconds(value, out.end_at);
    } else if (option == "--power-cut") {
      right = parse_seconds(value, out.power_cut_at);
    } else if (option == "--date") {
      right = parse_calendar(value, out.date);
    } else {
      return fail("no such option: %s", argv[i - 1]);
    }
    if (!right)
      return fail("%s: wrong value '%s'", argv[i - 1], value);
  }
  if (i == argc)
    return wrong_usage("run");
  out.command = argv + i;
  if (out.end_at != kNoTime)
    add_signal(out, SIGTERM, out.end_at);
  return 0;
}

}  // namespace vboard
