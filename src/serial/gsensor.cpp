// gsensor: the motion sensor behind /dev/gyro. Initialises the chip, sets and reads ranges and poll
// period, prints samples or the attitude until it is killed, and tests itself for 30 seconds
// ("autotest", samples and attitudes to ./gsensor_log).
//
// The usage offers -w and its branch is there, but the option string has no "w": getopt complains
// and the usage follows. That mismatch belongs to the interface. The attitude filter's state is
// never reset, so that a second read loop goes on from where the first stood.

#include "serial/serial.h"

#include "common/numbers.h"
#include "platform/driver/gyro.h"
#include "serial/attitude_filter.h"
#include "serial/gyro_conversion.h"
#include "serial/gyro_report.h"

#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/time.h>

#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

namespace {

constexpr const char *kLogFile = "./gsensor_log";
constexpr int kSelfTestSeconds = 30;
constexpr int kRangeChecks = 5;
constexpr int kNoIdentity = -19;  // the tool's status when a read loop cannot identify the chip

// What the rest of the tool does after a step; a negative number is returned as the tool's status.
constexpr int kNextOption = 1;
constexpr int kEndOfTool = 0;

constexpr const char *kMainRoutine = "gsensor_main";
constexpr int kOpenLine = 599;
constexpr int kRangeWordLine = 669;
constexpr int kRangeLine = 675;
constexpr const char *kSelfTestRoutine = "gsensor_autotest";
constexpr int kLogLine = 567;

enum class Mode {
  kAttitude,
  kData,
};

struct Session {
  int device;
  FILE *output;  // standard output, the log file in the self-test
  bool self_test;
};

// Set when the applet starts, cleared by the self-test's timer alone.
std::atomic<bool> running;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler stores it");

AttitudeState attitude_state;
Attitude attitude_sums = {0.0f, 0.0f, 0.0f};

void print_usage() {
  puts("usage");
  puts(" -h                   : print help menu");
  puts(" -i                   : init gsensor");
  puts(" -t polltime          : set the poll time");
  puts(" -s accel gyro        : set the accel & gyro full scale");
  puts(" -g                   : get the accel & gyro full scale");
  puts(" -r                   : read the gyro data");
  puts(" -c                   : read the Pitch & Roll & Yaw");
  puts(" -w                   : enable the wake on motion mode");
}

// Decimal, or hexadecimal after a "0x" anywhere in the word.
std::int32_t parse_value(const char *word) {
  const char *prefix = strstr(word, "0x");
  if (prefix != nullptr)
    return static_cast<std::int32_t>(parse_u32(prefix + 2, 16));
  return parse_decimal(word);
}

bool is_blank(const char *word) {
  return word == nullptr || word[strspn(word, " \t\n\v\f\r")] == '\0';
}

void init_chip(int device) {
  GyroIdentity identity = {};
  if (ioctl(device, HAT_GYRO_INIT, &identity) < 0)
    perror("HAT_GYRO_INIT set failure.\n");
  else
    printf("HAT_GYRO_INIT sucess, name = %.32s. type = %x\n", identity.name, identity.type);  // sic
}

void set_poll_period(int device, const char *word) {
  GyroConfig config = {};
  config.poll_ms = parse_value(word);
  if (ioctl(device, HAT_GYRO_TMR_SET, &config) < 0)
    perror("HAT_GYRO_TMR_SET set failure.\n");
  else
    printf("HAT_GYRO_TMR_SET sucess, poll the gyro time is = (%d)ms.\n", config.poll_ms);  // sic
}

void set_wake_on_motion(int device, const char *word) {
  GyroConfig config = {};
  config.wake_on_motion = parse_value(word);
  if (ioctl(device, HAT_GYRO_WOM_SET, &config) < 0)
    perror("HAT_GYRO_WOM_SET set failure.\n");
  else
    puts("HAT_GYRO_WOM_SET sucess.");  // sic
}

void print_ranges(int device) {
  GyroConfig config = {};
  if (ioctl(device, HAT_GYRO_READ_CONFIG, &config) < 0)
    puts("get Accel Full Scale & Gyro Full Scale error");
  else
    printf("Accel Full Scale is %d g,\n Gyro Full Scale is %d \n", config.accel_g, config.gyro_dps);
}

// Reads the ranges back five times, also when the first comparison already holds: a driver that
// reloads the chip's old ranges a moment later is caught this way.
void check_ranges(int device, const GyroConfig &wanted) {
  for (int attempt = 0; attempt < kRangeChecks; ++attempt) {
    GyroConfig config = {};
    if (ioctl(device, HAT_GYRO_READ_CONFIG, &config) < 0)
      perror("HAT_GYRO_READ_CONFIG get failure.\n");

    const bool accel_differs = config.accel_g != wanted.accel_g;
    const bool gyro_differs = config.gyro_dps != wanted.gyro_dps;
    if (accel_differs && gyro_differs)
      printf("[%d]set Accel Full Scale err, %d != %d, %d != %d\n", attempt, config.accel_g,
             wanted.accel_g, config.gyro_dps, wanted.gyro_dps);
    else if (accel_differs)
      printf("[%d]set Accel Full Scale err, %d != %d, %d == %d\n", attempt, config.accel_g,
             wanted.accel_g, wanted.gyro_dps, wanted.gyro_dps);
    else if (gyro_differs)
      printf("[%d]set Accel Full Scale err, %d == %d, %d != %d\n", attempt, wanted.accel_g,
             wanted.accel_g, config.gyro_dps, wanted.gyro_dps);
  }
}

// A word that is no number counts as 0 without a complaint; only a missing or empty second word is
// refused.
int set_ranges(int device, const char *accel_word, const char *gyro_word) {
  if (is_blank(gyro_word)) {
    printf("%s:%d input param gyro_rng err\n", kMainRoutine, kRangeWordLine);
    return -1;
  }
  GyroConfig wanted = {};
  wanted.accel_g = parse_decimal(accel_word);
  wanted.gyro_dps = parse_decimal(gyro_word);
  printf("%s:%d input param accel_rng=%d gyro_rng=%d\n", kMainRoutine, kRangeLine, wanted.accel_g,
         wanted.gyro_dps);

  GyroConfig request = wanted;
  // clang-format off
  if (ioctl(device, HAT_GYRO_SET_RNG, &request) < 0)
    perror("HAT_GYRO_SET_RNG set failure.\n");
  else
    printf("HAT_GYRO_SET_RNG sucess, set the accel full scale is = (%d).set the gyro full scale is = (%d).\n",  // sic
           wanted.accel_g, wanted.gyro_dps);
  // clang-format on
  check_ranges(device, wanted);
  return kNextOption;
}

// False for a chip that the tool does not know.
bool process_sample(const Session &session, Mode mode, const GyroIdentity &identity,
                    const GyroConfig &config, const GyroSample &sample) {
  const GyroChip *chip = find_gyro_chip(identity);
  if (chip == nullptr) {
    printf("no support gsensor, name is %.32s\n", identity.name);
    return false;
  }
  const GyroReading reading = chip->convert(config, sample);

  if (mode == Mode::kData || (session.self_test && chip->line_in_self_test)) {
    FILE *stream = chip->line_target == GyroLineTarget::kOutputStream ? session.output : stdout;
    print_gyro_data(stream, *chip, sample, reading);
  }
  if (mode == Mode::kAttitude) {
    const Attitude attitude = attitude_step(attitude_state, reading);
    if (session.self_test) {
      attitude_sums.pitch -= attitude.pitch;
      attitude_sums.roll -= attitude.roll;
      attitude_sums.yaw -= attitude.yaw;
    }
    print_attitude(session.output, attitude);
  }
  return true;
}

// Ends when the self-test's timer has run out, or with a chip that the tool does not know; else
// never.
int read_samples(const Session &session, Mode mode) {
  GyroIdentity identity = {};
  if (ioctl(session.device, HAT_GYRO_INIT, &identity) < 0) {
    perror("get gsensor id failure.\n");
    return kNoIdentity;
  }
  printf("Gsensor name is %.32s \n", identity.name);

  GyroConfig config = {};
  if (ioctl(session.device, HAT_GYRO_READ_CONFIG, &config) < 0)
    puts("get Accel Full Scale & Gyro Full Scale error");
  else  // unlike the answer to -g, no blank before "Gyro"
    printf("Accel Full Scale is %d g,\nGyro Full Scale is %d \n", config.accel_g, config.gyro_dps);

  while (running.load(std::memory_order_relaxed)) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(session.device, &readable);
    if (select(session.device + 1, &readable, nullptr, nullptr, nullptr) < 0 && errno == EINTR)
      continue;

    GyroSample sample = {};
    if (read(session.device, &sample, sizeof sample) != static_cast<ssize_t>(sizeof sample)) {
      puts("[ERR]read data err");
      continue;
    }
    if (!process_sample(session, mode, identity, config, sample))
      return kEndOfTool;
  }
  return kNextOption;
}

int run_option(const Session &session, int option, const char *following_word) {
  switch (option) {
    case 'i':
    case 'I':
      init_chip(session.device);
      return kNextOption;
    case 't':
    case 'T':
      set_poll_period(session.device, optarg);
      return kNextOption;
    case 's':
    case 'S':
      return set_ranges(session.device, optarg, following_word);
    case 'g':
    case 'G':
      print_ranges(session.device);
      return kNextOption;
    case 'r':
    case 'R':
      return read_samples(session, Mode::kData);
    case 'c':
    case 'C':
      return read_samples(session, Mode::kAttitude);
    case 'w':  // not in the option string, so never reached
    case 'W':
      set_wake_on_motion(session.device, optarg);
      return kNextOption;
    default:
      print_usage();
      return kNextOption;
  }
}

// kNextOption when the options are used up.
int run_options(const Session &session, int argc, char **argv) {
  optind = 0;
  int option;
  while ((option = getopt(argc, argv, "HhT:t:S:s:GgIiRrCc")) != -1) {
    // The second range is the word behind the option's argument; getopt need not know it.
    const char *following_word = optind < argc ? argv[optind] : nullptr;
    const int next = run_option(session, option, following_word);
    if (next != kNextOption)
      return next;
  }
  return kNextOption;
}

void stop_running(int) {
  running.store(false, std::memory_order_relaxed);
}

void arm_timer(int seconds) {
  const itimerval timer = {.it_interval = {}, .it_value = {.tv_sec = seconds, .tv_usec = 0}};
  setitimer(ITIMER_REAL, &timer, nullptr);
}

int judge_self_test(FILE *log) {
  if (!attitude_sums_pass(attitude_sums)) {
    if (log != nullptr) {
      fputs("gsensor autotest faild!\n", log);  // sic
      fclose(log);
    }
    return -1;
  }
  if (log != nullptr)
    fclose(log);
  unlink(kLogFile);
  return 0;
}

// Options beside "autotest" are carried out before the test's own read loop. A failing test leaves
// its log behind.
int run_self_test(int device, int argc, char **argv) {
  FILE *log = fopen(kLogFile, "w");
  if (log == nullptr) {
    printf("%s:%d open gsensor_log failed!\n", kSelfTestRoutine, kLogLine);
    return judge_self_test(nullptr);
  }
  struct sigaction action = {};
  action.sa_handler = stop_running;
  action.sa_flags = SA_RESTART;  // select() is interrupted all the same
  sigaction(SIGALRM, &action, nullptr);
  arm_timer(kSelfTestSeconds);

  const Session session = {.device = device, .output = log, .self_test = true};
  int next = run_options(session, argc, argv);
  if (next == kNextOption)
    next = read_samples(session, Mode::kAttitude);
  arm_timer(0);  // a test that ended early must not interrupt the next applet of this process

  if (next < 0) {
    fclose(log);
    return next;
  }
  return judge_self_test(log);
}

}  // namespace

int gsensor_main(int argc, char **argv) {
  const int device = open(GYRO_DEVICE, O_RDWR);
  if (device < 0) {
    printf("%s:%d no find %s err[%d]\n", kMainRoutine, kOpenLine, GYRO_DEVICE, errno);
    return device;
  }
  running.store(true, std::memory_order_relaxed);

  int status;
  if (argc > 1 && strcmp(argv[1], "autotest") == 0) {
    status = run_self_test(device, argc, argv);
  } else {
    const Session session = {.device = device, .output = stdout, .self_test = false};
    const int next = run_options(session, argc, argv);
    status = next < 0 ? next : 0;
  }
  close(device);
  return status;
}
