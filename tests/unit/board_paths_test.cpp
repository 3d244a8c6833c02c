#include "vboard/board/board_paths.h"

#include <gtest/gtest.h>

#include <string>

namespace vboard {
namespace {

std::string normal(const char *base, const char *path) {
  char out[kPathSize];
  bool directory;
  return std::string(out, normalise_path(base, path, out, directory));
}

bool names_directory(const char *path) {
  char out[kPathSize];
  bool directory = false;
  normalise_path("/", path, out, directory);
  return directory;
}

TEST(BoardPaths, DevAndSysAreTheBoardsAlone) {
  for (const char *path : {"/dev", "/dev/rtc0", "/dev/input/event0", "/dev/nullx", "/sys",
                           "/sys/class/net/eth0/address"})
    EXPECT_EQ(territory_of(path), Territory::kBoard) << path;
}

TEST(BoardPaths, HarmlessDevicesAreThePcs) {
  for (const char *path : {"/dev/null", "/dev/zero", "/dev/full", "/dev/random", "/dev/urandom",
                           "/dev/tty", "/dev/stdin", "/dev/stdout", "/dev/stderr", "/dev/fd",
                           "/dev/fd/3", "/dev/pts/0", "/dev/shm/segment"})
    EXPECT_EQ(territory_of(path), Territory::kPc) << path;
}

TEST(BoardPaths, DevicesThatStartWithAHarmlessNameAreNot) {
  for (const char *path : {"/dev/tty0", "/dev/ttyS1", "/dev/fdx", "/dev/ptmx", "/dev/shmx"})
    EXPECT_EQ(territory_of(path), Territory::kBoard) << path;
}

TEST(BoardPaths, FiveRootsAreLaidOverThePcs) {
  for (const char *path :
       {"/proc", "/proc/version", "/etc/fw_env.config", "/var/lock/x", "/run/lock", "/mnt/sda1/a"})
    EXPECT_EQ(territory_of(path), Territory::kOverlay) << path;
}

TEST(BoardPaths, EverythingElseIsThePcs) {
  for (const char *path : {"/", "/home/a", "/tmp/dev/rtc0", "/devices", "/system", "/etcetera"})
    EXPECT_EQ(territory_of(path), Territory::kPc) << path;
}

TEST(BoardPaths, NormalFormHasNoDotsAndNoDoubleSlashes) {
  EXPECT_EQ(normal("/home", "/dev//lcd"), "/dev/lcd");
  EXPECT_EQ(normal("/home", "/dev/./lcd"), "/dev/lcd");
  EXPECT_EQ(normal("/home", "/tmp/../dev/lcd"), "/dev/lcd");
  EXPECT_EQ(normal("/home", "/dev/lcd/"), "/dev/lcd");
  EXPECT_EQ(normal("/home", "/"), "/");
}

TEST(BoardPaths, RelativeNamesStartFromTheirDirectory) {
  EXPECT_EQ(normal("/home/me", "lcd"), "/home/me/lcd");
  EXPECT_EQ(normal("/home/me", "../../dev/lcd"), "/dev/lcd");
  EXPECT_EQ(normal("/", "dev/lcd"), "/dev/lcd");
  EXPECT_EQ(normal("/home/me", "."), "/home/me");
}

TEST(BoardPaths, NothingLeadsAboveTheRoot) {
  EXPECT_EQ(normal("/home", "/../../dev/lcd"), "/dev/lcd");
  EXPECT_EQ(normal("/home", "../../../.."), "/");
}

TEST(BoardPaths, EmptyAndOverlongNamesHaveNoNormalForm) {
  EXPECT_EQ(normal("/home", ""), "");
  EXPECT_EQ(normal("/home", ("/" + std::string(kPathSize, 'a')).c_str()), "");
}

TEST(BoardPaths, SlashOrDotsAtTheEndNameADirectory) {
  EXPECT_TRUE(names_directory("/sys/class/"));
  EXPECT_TRUE(names_directory("/sys/class/."));
  EXPECT_TRUE(names_directory("/sys/class/.."));
  EXPECT_FALSE(names_directory("/sys/class"));
}

TEST(RebootCommand, IsKnownByItsFirstWord) {
  for (const char *command : {"reboot", "/sbin/reboot", " reboot -f", "exec /sbin/poweroff", "halt",
                              "shutdown -r now", "reboot; sleep 5", "reboot&"})
    EXPECT_TRUE(is_reboot_command(command)) << command;
}

TEST(RebootCommand, OtherCommandsAreNot) {
  for (const char *command : {"", "echo reboot", "rebooted", "/etc/reboot.d/run", "sync"})
    EXPECT_FALSE(is_reboot_command(command)) << command;
}

}  // namespace
}  // namespace vboard
