// /dev/gyro: the motion sensor. What it feels is a time line in physical units (the medium),
// counted from the open of the device; each sample is that motion at its moment, in raw steps of
// the chip and its ranges.

#include "platform/driver/gyro.h"
#include "vboard/board/gyro_chips.h"
#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <string.h>

#include <algorithm>

namespace vboard {
namespace {

using enum Direction;
using enum SettingKind;

constexpr std::int64_t kLongestPoll = 60'000;  // milliseconds
constexpr std::size_t kLongestTimeline = 16 << 20;
// Samples that wait for a late reader; older ones are lost. With them the number of samples in a
// stretch of time does not depend on how punctually the program is scheduled.
constexpr std::int64_t kFifo = 32;

struct GyroState {
  BoardTime sampling_since;  // sample n is taken at sampling_since + n * period
  BoardTime period;
  std::int64_t next;  // the number of the next sample to deliver, from 1 on
  std::int32_t accel_g;
  std::int32_t gyro_dps;
  Motion current;
  std::uint64_t read;  // bytes of the time line up to here
};

constexpr Setting kSettings[] = {
    {.key = "chip", .kind = kText, .otherwise = "GYRO_LSM6DS3TR", .help = "which sensor it is"},
    {.key = "chip_type",
     .kind = kNumber,
     .otherwise = "",
     .help = "its identification; the chip's own when it is missing",
     .most = UINT32_MAX},
    {.key = "poll_ms",
     .kind = kNumber,
     .otherwise = "50",
     .help = "time from sample to sample",
     .least = 1,
     .most = kLongestPoll},
    {.key = "accel_g",
     .kind = kWord,
     .otherwise = "2",
     .help = "full scale of the accelerometer",
     .words = "2 4 8 16"},
    {.key = "gyro_dps",
     .kind = kWord,
     .otherwise = "250",
     .help = "full scale of the gyroscope",
     .words = "250 500 1000 2000"},
    {.key = "keeps_range",
     .kind = kWord,
     .otherwise = "0",
     .help = "new ranges are accepted and not taken over: both, or one of them",
     .words = "0 1 accel gyro"},
    {.key = "wake_on_motion",
     .kind = kNumber,
     .otherwise = "0",
     .help = "what was set last",
     .least = INT32_MIN,
     .most = INT32_MAX},
    {.key = "silent", .kind = kFlag, .otherwise = "0", .help = "1: no sample ever comes"},
};

const GyroChip &chip_of(const OpenFile &file) {
  // A name that no row has is still reported by HAT_GYRO_INIT: its scales are the first chip's.
  const GyroChip *chip = find_gyro_chip(setting_text(file, "chip"));
  return chip != nullptr ? *chip : gyro_chips()[0];
}

void start_sampling(GyroState &state, std::int64_t poll_ms) {
  state.sampling_since = board_time();
  state.period = poll_ms * (kSecond / 1000);
  state.next = 1;
}

int gyro_open(OpenFile &file) {
  GyroState &state = state_of<GyroState>(file);
  state.accel_g = static_cast<std::int32_t>(setting_number(file, "accel_g"));
  state.gyro_dps = static_cast<std::int32_t>(setting_number(file, "gyro_dps"));
  state.current = kAtRest;
  start_sampling(state, setting_number(file, "poll_ms"));
  return 0;
}

BoardTime due_at(const GyroState &state) {
  return state.sampling_since + state.next * state.period;
}

Readiness gyro_ready(OpenFile &file, short events, BoardTime now) {
  const short others = static_cast<short>(events & ~POLLIN);
  if (setting_is_on(file, "silent"))
    return {.events = others};
  const BoardTime due = due_at(state_of<GyroState>(file));
  return due <= now ? Readiness{.events = events} : Readiness{.events = others, .next = due};
}

// The motion at a moment: what the last line before it says. No time line is a board at rest.
const Motion &motion_at(OpenFile &file, BoardTime since_open) {
  GyroState &state = state_of<GyroState>(file);
  const double seconds = static_cast<double>(since_open) / static_cast<double>(kSecond);
  const std::string_view timeline = load_medium(file, kLongestTimeline);
  std::string_view rest =
      timeline.substr(std::min(static_cast<std::size_t>(state.read), timeline.size()));
  Motion upcoming;
  int bad_lines = 0;
  while (next_motion(rest, upcoming, bad_lines) && upcoming.seconds <= seconds) {
    state.current = upcoming;
    state.read = timeline.size() - rest.size();
  }
  return state.current;
}

ssize_t gyro_read(OpenFile &file, const UserMemory &to, std::int64_t) {
  GyroState &state = state_of<GyroState>(file);
  const BoardTime now = board_time();
  if (setting_is_on(file, "silent") || due_at(state) > now)
    return -EAGAIN;

  const std::int64_t newest = (now - state.sampling_since) / state.period;
  state.next = std::max(state.next, newest - kFifo + 1);
  const BoardTime taken_at = due_at(state);
  ++state.next;

  const Motion &motion = motion_at(file, taken_at - file.opened_at);
  GyroSample sample = {};
  raw_acceleration(chip_of(file), motion.accel, state.accel_g, sample.accel);
  raw_rate(chip_of(file), motion.gyro, state.gyro_dps, sample.gyro);
  const std::int64_t calendar = board_calendar_time() - (now - taken_at);
  sample.seconds = static_cast<std::int32_t>(calendar / kSecond);
  sample.microseconds = static_cast<std::int32_t>(calendar % kSecond / 1000);
  // A reader with less room loses the rest of the sample.
  return give(to, &sample, sizeof sample);
}

int identify(OpenFile &file, GyroIdentity &out) {
  const std::string_view name = setting_text(file, "chip");
  // A name that fills the field has no terminator, as some drivers have it.
  memcpy(out.name, name.data(), std::min(name.size(), sizeof out.name));
  const GyroChip *chip = find_gyro_chip(name);
  out.type = static_cast<std::uint32_t>(
      node_number(file.node, "chip_type", chip != nullptr ? chip->type : 0));
  return 0;
}

int set_poll(OpenFile &file, GyroConfig &config) {
  if (config.poll_ms < 1 || config.poll_ms > kLongestPoll)
    return -EINVAL;
  start_sampling(state_of<GyroState>(file), config.poll_ms);
  return store_number(file, "poll_ms", config.poll_ms);
}

int get_ranges(OpenFile &file, GyroConfig &config) {
  const GyroState &state = state_of<GyroState>(file);
  config.accel_g = state.accel_g;
  config.gyro_dps = state.gyro_dps;
  return 0;
}

int set_ranges(OpenFile &file, GyroConfig &config) {
  if (!is_accel_range(config.accel_g) || !is_gyro_range(config.gyro_dps))
    return -EINVAL;
  GyroState &state = state_of<GyroState>(file);
  const std::string_view keeps = setting_text(file, "keeps_range");
  int error = 0;
  if (keeps != "1" && keeps != "accel") {
    state.accel_g = config.accel_g;
    error = store_number(file, "accel_g", config.accel_g);
  }
  if (error == 0 && keeps != "1" && keeps != "gyro") {
    state.gyro_dps = config.gyro_dps;
    error = store_number(file, "gyro_dps", config.gyro_dps);
  }
  return error;
}

int set_wake_on_motion(OpenFile &file, GyroConfig &config) {
  return store_number(file, "wake_on_motion", config.wake_on_motion);
}

// clang-format off
constexpr Request kRequests[] = {
    {.number = HAT_GYRO_INIT,        .name = "HAT_GYRO_INIT",        .direction = kOut,   .handler = answers<identify>},
    {.number = HAT_GYRO_TMR_SET,     .name = "HAT_GYRO_TMR_SET",     .direction = kIn,    .handler = answers<set_poll>},
    {.number = HAT_GYRO_READ_CONFIG, .name = "HAT_GYRO_READ_CONFIG", .direction = kOut,   .handler = answers<get_ranges>},
    {.number = HAT_GYRO_SET_RNG,     .name = "HAT_GYRO_SET_RNG",     .direction = kIn,    .handler = answers<set_ranges>},
    {.number = HAT_GYRO_WOM_SET,     .name = "HAT_GYRO_WOM_SET",     .direction = kIn,    .handler = answers<set_wake_on_motion>},
};
// clang-format on

}  // namespace

extern constexpr Model kGyroModel = {
    .name = "gyro",
    .settings = kSettings,
    .requests = kRequests,
    .open = gyro_open,
    .read = gyro_read,
    .ready = gyro_ready,
};

}  // namespace vboard
