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

int hex_digit(char one) {
  if (one >= '0' && one <= '9')
    return one - '0';
  const char small = static_cast<char>(one | 0x20);
  return small >= 'a' && small <= 'f' ? small - 'a' + 10 : -1;
}

// The byte of an escape as in C, whose backslash has been taken, and which is taken from `text`. -1
// for another one.
int parse_escape(std::string_view &text) {
  if (text.empty())
    return -1;
  const char letter = text.front();
  text.remove_prefix(1);
  switch (letter) {
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    case 'e':
      return '\x1b';
    case '\\':
      return '\\';
    case 'x':
      break;
    default:
      return -1;
  }
  if (text.size() < 2 || hex_digit(text[0]) < 0 || hex_digit(text[1]) < 0)
    return -1;
  const int byte = hex_digit(text[0]) << 4 | hex_digit(text[1]);
  text.remove_prefix(2);
  return byte;
}

// TEXT@SECONDS; the text may have an '@' of its own.
bool parse_typed(const char *word, RunOptions &out) {
  const char *at = strrchr(word, '@');
  PlannedText typed = {};
  if (at == nullptr || at == word || out.text_count == kMaxTexts ||
      !parse_seconds(at + 1, typed.at))
    return false;
  std::string_view text(word, static_cast<std::size_t>(at - word));
  while (!text.empty()) {
    int byte = static_cast<unsigned char>(text.front());
    text.remove_prefix(1);
    if (byte == '\\')
      byte = parse_escape(text);
    if (byte < 0 || typed.size == sizeof typed.bytes)
      return false;
    typed.bytes[typed.size++] = static_cast<char>(byte);
  }
  // Those of one moment are typed in the order in which they were given.
  std::uint32_t place = out.text_count++;
  for (; place > 0 && out.texts[place - 1].at > typed.at; --place)
    out.texts[place] = out.texts[place - 1];
  out.texts[place] = typed;
  out.has_terminal = true;
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
    if (option == "--tty") {
      out.has_terminal = true;
      continue;
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
    } else if (option == "--type") {
      right = parse_typed(value, out);
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
  if (out.has_terminal && out.story != nullptr)
    return fail(
        "--story: what a terminal shows has no order with requests; leave out --tty and --type");
  out.command = argv + i;
  if (out.end_at != kNoTime)
    add_signal(out, SIGTERM, out.end_at);
  return 0;
}

}  // namespace vboard
