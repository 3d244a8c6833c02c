// /dev/gyro: the motion sensor. What it feels is a time line in physical units (the medium),
// counted from the open of the device; each sample is that motion at its moment, in raw steps of
// the chip and its ranges.
//
//   chip                which sensor (GYRO_LSM6DS3TR), vboard/board/gyro_chips.h
//   chip_type           its identification, the chip's own when it is missing
//   medium              the time line
//   poll_ms             time from sample to sample (50)
//   accel_g, gyro_dps   full scales
//   keeps_range         1: new ranges are accepted and not taken over; accel or gyro: only that one
//   wake_on_motion      what was set last
//   silent              1: no sample ever comes (a broken interrupt line)

#include "platform/driver/gyro.h"
#include "vboard/base/kernel.h"
#include "vboard/board/gyro_chips.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

namespace vboard {
namespace {

constexpr std::int64_t kDefaultPoll = 50;  // milliseconds
constexpr std::int64_t kLongestPoll = 60'000;
constexpr std::size_t kLongestTimeline = 16 << 20;
// Samples that wait for a late reader; older ones are lost. With them the number of samples in a
// stretch of time does not depend on how punctually the program is scheduled.
constexpr std::int64_t kFifo = 32;

struct GyroState {
  const GyroChip *chip;
  BoardTime sampling_since;  // sample n is taken at sampling_since + n * period
  BoardTime period;
  std::int64_t next;  // the number of the next sample to deliver, from 1 on
  std::int32_t accel_g;
  std::int32_t gyro_dps;
  std::string_view rest;  // of the time line
  Motion current;
  Motion upcoming;
  bool has_upcoming;
  bool silent;
};

void start_sampling(GyroState &state, std::int64_t poll_ms) {
  state.sampling_since = board_time();
  state.period = poll_ms * (kSecond / 1000);
  state.next = 1;
}

bool is_poll(std::int64_t poll_ms) {
  return poll_ms >= 1 && poll_ms <= kLongestPoll;
}

// The whole file, in file.extra. No time line is a board at rest.
std::string_view load_timeline(OpenFile &file) {
  const std::int64_t size = sys_size(file.fd);
  if (size <= 0 || size > static_cast<std::int64_t>(kLongestTimeline))
    return {};
  const std::size_t length = static_cast<std::size_t>(size);
  file.extra = malloc(length);
  if (file.extra == nullptr || read_medium(file, file.extra, length, 0) < 0)
    return {};
  return {static_cast<const char *>(file.extra), length};
}

void next_line(GyroState &state) {
  int bad_lines = 0;
  state.has_upcoming = next_motion(state.rest, state.upcoming, bad_lines);
}

int gyro_open(OpenFile &file) {
  GyroState &state = state_of<GyroState>(file);
  const Node &node = file.node;
  // A name that no row has is still reported by HAT_GYRO_INIT: its scales are the first chip's.
  const GyroChip *chip = find_gyro_chip(node_text(node, "chip"));
  state.chip = chip != nullptr ? chip : &gyro_chips()[0];
  const std::int64_t accel = node_number(node, "accel_g", 2);
  const std::int64_t gyro = node_number(node, "gyro_dps", 250);
  state.accel_g = is_accel_range(accel) ? static_cast<std::int32_t>(accel) : 2;
  state.gyro_dps = is_gyro_range(gyro) ? static_cast<std::int32_t>(gyro) : 250;
  state.silent = node_number(node, "silent", 0) != 0;
  state.current = kAtRest;
  state.rest = load_timeline(file);
  next_line(state);
  const std::int64_t poll = node_number(node, "poll_ms", kDefaultPoll);
  start_sampling(state, is_poll(poll) ? poll : kDefaultPoll);
  return 0;
}

void gyro_close(OpenFile &file) {
  free(file.extra);
  file.extra = nullptr;
}

BoardTime due_at(const GyroState &state) {
  return state.sampling_since + state.next * state.period;
}

BoardTime gyro_readable_at(OpenFile &file, BoardTime) {
  const GyroState &state = state_of<GyroState>(file);
  return state.silent ? kNever : due_at(state);
}

const Motion &motion_at(GyroState &state, BoardTime since_open) {
  const double seconds = static_cast<double>(since_open) / static_cast<double>(kSecond);
  while (state.has_upcoming && state.upcoming.seconds <= seconds) {
    state.current = state.upcoming;
    next_line(state);
  }
  return state.current;
}

ssize_t gyro_read(OpenFile &file, void *buffer, std::size_t size) {
  GyroState &state = state_of<GyroState>(file);
  const BoardTime now = board_time();
  if (state.silent || due_at(state) > now)
    return -EAGAIN;

  const std::int64_t newest = (now - state.sampling_since) / state.period;
  state.next = std::max(state.next, newest - kFifo + 1);
  const BoardTime taken_at = due_at(state);
  ++state.next;

  const Motion &motion = motion_at(state, taken_at - file.opened_at);
  GyroSample sample = {};
  raw_acceleration(*state.chip, motion.accel, state.accel_g, sample.accel);
  raw_rate(*state.chip, motion.gyro, state.gyro_dps, sample.gyro);
  const std::int64_t calendar = board_calendar_time() - (now - taken_at);
  sample.seconds = static_cast<std::int32_t>(calendar / kSecond);
  sample.microseconds = static_cast<std::int32_t>(calendar % kSecond / 1000);
  // A reader with less room loses the rest of the sample.
  const std::size_t taken = std::min(size, sizeof sample);
  memcpy(buffer, &sample, taken);
  return static_cast<ssize_t>(taken);
}

void identify(const OpenFile &file, GyroIdentity &out) {
  out = {};
  std::string_view name = node_text(file.node, "chip");
  if (name.empty())
    name = gyro_chips()[0].name;
  // A name that fills the field has no terminator, as some drivers have it.
  memcpy(out.name, name.data(), std::min(name.size(), sizeof out.name));
  const GyroChip *chip = find_gyro_chip(name);
  out.type = static_cast<std::uint32_t>(
      node_number(file.node, "chip_type", chip != nullptr ? chip->type : 0));
}

int set_poll(OpenFile &file, std::int32_t poll_ms) {
  if (!is_poll(poll_ms))
    return -EINVAL;
  start_sampling(state_of<GyroState>(file), poll_ms);
  return store_number(file, "poll_ms", poll_ms);
}

int set_ranges(OpenFile &file, const GyroConfig &config) {
  if (!is_accel_range(config.accel_g) || !is_gyro_range(config.gyro_dps))
    return -EINVAL;
  GyroState &state = state_of<GyroState>(file);
  const std::string_view keeps = node_text(file.node, "keeps_range");
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

int gyro_ioctl(OpenFile &file, std::uint32_t request, void *argument) {
  const GyroState &state = state_of<GyroState>(file);
  if (request == HAT_GYRO_INIT) {
    GyroIdentity identity;
    identify(file, identity);
    memcpy(argument, &identity, sizeof identity);
    return 0;
  }
  GyroConfig config;
  memcpy(&config, argument, sizeof config);
  switch (request) {
    case HAT_GYRO_TMR_SET:
      return set_poll(file, config.poll_ms);
    case HAT_GYRO_READ_CONFIG:
      config.accel_g = state.accel_g;
      config.gyro_dps = state.gyro_dps;
      memcpy(argument, &config, sizeof config);
      return 0;
    case HAT_GYRO_SET_RNG:
      return set_ranges(file, config);
    case HAT_GYRO_WOM_SET:
      return store_number(file, "wake_on_motion", config.wake_on_motion);
    default:
      return -ENOTTY;
  }
}

using enum Direction;

// clang-format off
constexpr Request kRequests[] = {
    {.number = HAT_GYRO_INIT,        .name = "HAT_GYRO_INIT",        .size = 36, .direction = kOut},
    {.number = HAT_GYRO_TMR_SET,     .name = "HAT_GYRO_TMR_SET",     .size = 20, .direction = kIn},
    {.number = HAT_GYRO_READ_CONFIG, .name = "HAT_GYRO_READ_CONFIG", .size = 20, .direction = kOut},
    {.number = HAT_GYRO_SET_RNG,     .name = "HAT_GYRO_SET_RNG",     .size = 20, .direction = kIn},
    {.number = HAT_GYRO_WOM_SET,     .name = "HAT_GYRO_WOM_SET",     .size = 20, .direction = kIn},
};
// clang-format on

}  // namespace

extern constexpr Model kGyroModel = {
    .name = "gyro",
    .requests = kRequests,
    .medium_size = 0,
    .medium_fill = 0,
    .open = gyro_open,
    .close = gyro_close,
    .read = gyro_read,
    .write = nullptr,
    .ioctl = gyro_ioctl,
    .readable_at = gyro_readable_at,
};

}  // namespace vboard
