// bt2 stor on storage devices in memory.
//
// The library's four operations are defined here and take the place of librigcore's in this
// program.

#include "platform/storage.h"
#include "storage/storage.h"

#include <string.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

struct FakeDevices {
  std::vector<StorDev> devices;
  std::int32_t count = -100;  // what is reported instead, when it is not this
  int list_fails_at = 0;      // the n-th listing, from 1
  std::string refuses;        // a device that does not switch
  int state = STOR_ONLINE;
  int power_state = STOR_POWERUP;
  int listings = 0;
  std::vector<std::string> calls;
};

FakeDevices *fake = nullptr;

StorDev device(const char *name, std::uint32_t state, std::uint32_t power) {
  StorDev one = {};
  strcpy(one.name, name);
  one.state = state;
  one.power_state = power;
  return one;
}

}  // namespace

int rig_stor_devlist(StorDevList *list) {
  const StorDevList zero = {};
  EXPECT_EQ(memcmp(list, &zero, sizeof zero), 0) << "the list is cleared before each listing";
  fake->calls.push_back("list");
  if (++fake->listings == fake->list_fails_at)
    return -1;
  for (std::size_t i = 0; i < fake->devices.size(); ++i)
    list->devices[i] = fake->devices[i];
  list->count = fake->count != -100 ? fake->count : static_cast<std::int32_t>(fake->devices.size());
  return 0;
}

int rig_stor_dev_state(StorDev *one) {
  fake->calls.push_back(std::string("state ") + one->name);
  return fake->state;
}

int rig_stor_dev_power_state(StorDev *one) {
  fake->calls.push_back(std::string("power_state ") + one->name);
  return fake->power_state;
}

int rig_stor_dev_power_ctrl(StorDev *one, std::uint32_t power) {
  fake->calls.push_back(std::string("power ") + one->name + " " + std::to_string(power));
  if (fake->refuses == one->name)
    return -5;
  for (StorDev &known : fake->devices) {
    if (strcmp(known.name, one->name) == 0)
      known.power_state = power;
  }
  return 0;
}

namespace {

const std::string kUsage =
    "\n stor v1.0\nUsage:\n\n    stor  -l                     ---list all stor name\n    stor  -s  "
    "stor_name   1/0    ---set stor state, stor_name(mmcblk0; msa) 1:POWERUP  0:POWEROFF\n    stor "
    " "
    "-g  stor_name          ---get stor state, stor_name(mmcblk0; msa)\n\n\nexample:\n\n    stor  "
    "-s  msa   1       ---set msa  POWERUP\n    stor  -g  msa           ---get msa  state\n\n\n";

class Stor : public testing::Test {
 protected:
  void SetUp() override {
    fake = &devices;
    devices.devices = {device("mmcblk0", STOR_ONLINE, 1), device("msa", STOR_READONLY, 0)};
  }
  void TearDown() override {
    fake = nullptr;
  }

  int run(std::vector<std::string> words) {
    std::vector<char *> argv;
    words.insert(words.begin(), "stor");
    for (std::string &word : words)
      argv.push_back(word.data());
    const int argc = static_cast<int>(argv.size());
    argv.push_back(nullptr);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = stor_applet(argc, argv.data());
    out = testing::internal::GetCapturedStdout();
    err = testing::internal::GetCapturedStderr();
    return status;
  }

  FakeDevices devices;
  std::string out;
  std::string err;
};

const std::string kListing =
    "rig_stor_devlist sucess!\n have 2 storarge devices:\n"
    "dev[0]name:mmcblk0, state:0x1, power_state:1\n"
    "dev[1]name:msa, state:0x6, power_state:0\n";

std::string listing(int first, int second) {
  return "rig_stor_devlist sucess!\n have 2 storarge devices:\n"
         "dev[0]name:mmcblk0, state:0x1, power_state:" +
         std::to_string(first) +
         "\ndev[1]name:msa, state:0x6, power_state:" + std::to_string(second) + "\n";
}

const std::string kStart = "**********stor_autotest start**********\n";
const std::string kOff = "***stor_autotest unpower the devices***\n";
const std::string kOn = "***stor_autotest power the devices***\n";
const std::string kRecover = "*******recovering*******\n";
const std::string kGood = "*********stor_autotest sucess*********\n";
const std::string kBad = "*********stor_autotest fail***********\n";

TEST_F(Stor, no_argument_and_h_are_the_usage_and_minus_one) {
  EXPECT_EQ(kUsage.size(), 357u);
  for (const auto &words :
       {std::vector<std::string>{}, {"-h"}, {"-h", "-l"}, {"-g", "msa", "-h"}}) {
    EXPECT_EQ(run(words), -1);
    EXPECT_EQ(err.substr(err.size() - kUsage.size()), kUsage);
    EXPECT_EQ(out, "");
  }
}

TEST_F(Stor, words_without_an_option_do_nothing) {
  EXPECT_EQ(run({"msa"}), 0);
  EXPECT_EQ(out + err, "");
  EXPECT_TRUE(devices.calls.empty());
}

TEST_F(Stor, unknown_options_are_named_and_the_rest_runs) {
  EXPECT_EQ(run({"-x"}), 0);
  EXPECT_EQ(out, "Set command  error, no this command!\n");
  EXPECT_EQ(run({"-xl"}), 0);
  EXPECT_EQ(out, "Set command  error, no this command!\n" + kListing);
  EXPECT_EQ(run({"-g"}), 0);  // without its argument
  EXPECT_EQ(out, "Set command  error, no this command!\n");
}

TEST_F(Stor, lists) {
  EXPECT_EQ(run({"-l"}), 0);
  EXPECT_EQ(out, kListing);
  EXPECT_EQ(err, "");
}

TEST_F(Stor, lists_nothing) {
  devices.devices.clear();
  EXPECT_EQ(run({"-l"}), 0);
  EXPECT_EQ(out, "rig_stor_devlist sucess!\n have 0 storarge devices:\n");
}

TEST_F(Stor, failed_listing_is_no_failure_of_the_applet) {
  devices.list_fails_at = 1;
  EXPECT_EQ(run({"-l"}), 0);
  EXPECT_EQ(out, "rig_stor_devlist failure.\n");
}

TEST_F(Stor, a_count_beyond_the_record_lists_what_the_record_holds) {
  devices.count = 1000;
  EXPECT_EQ(run({"-l"}), 0);
  EXPECT_NE(out.find("dev[15]name:, state:0x0, power_state:0\n"), std::string::npos);
  EXPECT_EQ(out.find("dev[16]"), std::string::npos);
  devices.count = -5;
  EXPECT_EQ(run({"-l"}), 0);
  EXPECT_EQ(out.find("dev["), std::string::npos);
}

TEST_F(Stor, list_takes_no_further_word) {
  EXPECT_EQ(run({"-l", "msa"}), 0);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, kUsage);
  EXPECT_TRUE(devices.calls.empty());
  EXPECT_EQ(run({"-l", "-l"}), 0);
  EXPECT_EQ(err, kUsage + kUsage);
}

TEST_F(Stor, get_prints_names_of_states) {
  const char *names[] = {"STOR_OFFLINE", "STOR_ONLINE",   "STOR_ERROR",   "STOR_DAMAGE",
                         "STOR_DET",     "STOR_FS_PANIC", "STOR_READONLY"};
  for (int state = 0; state < 7; ++state) {
    devices.state = state;
    EXPECT_EQ(run({"-g", "msa"}), 0);
    EXPECT_EQ(out,
              "msa state: " + std::string(names[state]) + ".\nmsa power_state: STOR_POWERUP.\n");
  }
  EXPECT_EQ(devices.calls[0], "state msa");
  EXPECT_EQ(devices.calls[1], "power_state msa");
}

TEST_F(Stor, get_prints_numbers_without_a_name) {
  devices.state = 7;
  devices.power_state = 2;
  EXPECT_EQ(run({"-g", "msa"}), 0);
  EXPECT_EQ(out, "msa state: 7.\nmsa power_state: 2.\n");
  devices.state = -1;
  devices.power_state = 0;
  EXPECT_EQ(run({"-gmsa", "x"}), 0);
  EXPECT_EQ(out, "msa state: -1.\nmsa power_state: STOR_POWEROFF.\n");
}

TEST_F(Stor, get_takes_one_word) {
  for (const auto &words : {std::vector<std::string>{"-g", "msa", "1"}, {"-gmsa"}}) {
    EXPECT_EQ(run(words), 0);
    EXPECT_EQ(out, "");
    EXPECT_EQ(err, kUsage);
  }
  EXPECT_TRUE(devices.calls.empty());
}

TEST_F(Stor, get_of_no_name) {
  EXPECT_EQ(run({"-g", "  "}), 0);
  EXPECT_EQ(out, "stor_main:287 input stor_state.name err\n");
  EXPECT_EQ(err, kUsage);
}

TEST_F(Stor, names_are_one_word_of_31_characters) {
  run({"-g", " msa x"});
  EXPECT_EQ(devices.calls[0], "state msa");
  devices.calls.clear();
  run({"-g", std::string(40, 'n')});
  EXPECT_EQ(devices.calls[0], "state " + std::string(31, 'n'));
}

TEST_F(Stor, set_switches_and_prints_what_was_asked_for) {
  EXPECT_EQ(run({"-s", "msa", "1"}), 0);
  EXPECT_EQ(out, "stor_state.name = msa\nmsa power_state: STOR_POWERUP.\n");
  EXPECT_EQ(run({"-s", "msa", "0"}), 0);
  EXPECT_EQ(out, "stor_state.name = msa\nmsa power_state: STOR_POWEROFF.\n");
  EXPECT_EQ(run({"-s", "msa", "7x"}), 0);
  EXPECT_EQ(out, "stor_state.name = msa\nmsa power_state: 7.\n");
  EXPECT_EQ(devices.calls, (std::vector<std::string>{"power msa 1", "power msa 0", "power msa 7"}));
}

TEST_F(Stor, set_that_fails) {
  devices.refuses = "msa";
  EXPECT_EQ(run({"-s", "msa", "1"}), 0);
  EXPECT_EQ(out, "stor_state.name = msa\nrig_stor_dev_power_ctrl failure.\n");
}

TEST_F(Stor, set_without_a_name_or_a_number) {
  EXPECT_EQ(run({"-s", "", "1"}), 0);
  EXPECT_EQ(out, "stor_main:250 input stor_state.name err\n");
  EXPECT_EQ(err, kUsage);
  EXPECT_EQ(run({"-s", "msa", "on"}), 0);
  EXPECT_EQ(out, "stor_main:257 input stor_state.power_state err\n");
  EXPECT_EQ(err, kUsage);
  EXPECT_TRUE(devices.calls.empty());
}

TEST_F(Stor, set_takes_two_words) {
  for (const auto &words : {std::vector<std::string>{"-s", "msa"}, {"-s", "msa", "1", "2"}}) {
    EXPECT_EQ(run(words), 0);
    EXPECT_EQ(out, "");
    EXPECT_EQ(err, kUsage);
  }
  EXPECT_TRUE(devices.calls.empty());
}

TEST_F(Stor, power_cycle_ends_in_the_state_of_its_start) {
  EXPECT_EQ(run({"-a"}), 0);
  EXPECT_EQ(out, kStart + listing(1, 0) + kOff + listing(0, 0) + kOn + listing(1, 1) + kRecover +
                     listing(1, 0) + kGood);
  EXPECT_EQ(devices.calls, (std::vector<std::string>{
                               "list", "power mmcblk0 0", "power msa 0", "list", "power mmcblk0 1",
                               "power msa 1", "list", "power mmcblk0 1", "power msa 0", "list"}));
}

TEST_F(Stor, power_cycle_of_no_devices_succeeds) {
  devices.devices.clear();
  const std::string none = "rig_stor_devlist sucess!\n have 0 storarge devices:\n";
  EXPECT_EQ(run({"-a"}), 0);
  EXPECT_EQ(out, kStart + none + kOff + none + kOn + none + kRecover + none + kGood);
}

TEST_F(Stor, power_cycle_that_fails_at_the_second_device_leaves_the_first_one_off) {
  devices.refuses = "msa";
  EXPECT_EQ(run({"-a"}), 0);
  EXPECT_EQ(out, kStart + listing(1, 0) + kOff + "rig_stor_dev_power_ctrl msa failure.\n" + kBad);
  EXPECT_EQ(devices.calls, (std::vector<std::string>{"list", "power mmcblk0 0", "power msa 0"}));
  EXPECT_EQ(devices.devices[0].power_state, 0u);
}

TEST_F(Stor, power_cycle_ends_at_a_failed_listing) {
  const std::string fails = "rig_stor_devlist failure.\n";
  const std::string expected[] = {
      kStart + fails + kBad,
      kStart + listing(1, 0) + kOff + fails + kBad,
      kStart + listing(1, 0) + kOff + listing(0, 0) + kOn + fails + kBad,
      kStart + listing(1, 0) + kOff + listing(0, 0) + kOn + listing(1, 1) + kRecover + fails + kBad,
  };
  for (int at = 1; at <= 4; ++at) {
    devices.devices = {device("mmcblk0", STOR_ONLINE, 1), device("msa", STOR_READONLY, 0)};
    devices.listings = 0;
    devices.list_fails_at = at;
    EXPECT_EQ(run({"-a"}), 0);
    EXPECT_EQ(out, expected[at - 1]);
  }
}

}  // namespace
