#include "vboard/interposer/core/children.h"

#include "vboard/base/shared_lock.h"
#include "vboard/board/emulation.h"
#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/device_lock.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/seats.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/timers.h"

#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <iterator>

namespace vboard {

namespace {

// What makes a process one of the board's, as this process found it.
constexpr const char *kNames[] = {"LD_PRELOAD",  kBoardVariable,    kTemplateVariable,
                                  kRunVariable,  kTraceVariable,    kFaultsVariable,
                                  kWorkVariable, kEmulatorVariable, kEmulatorLibraries};
char *settings[std::size(kNames)];
// The emulator for ARM programs, null without one.
const char *arm_emulator;

void in_child() {
  renew_own_thread();
  renew_board_lock();
  renew_device_lock();
  leave_seats_of_parent();
  forget_timers();
}

bool is_setting_of(const char *entry, const char *name) {
  const std::size_t length = strlen(name);
  return strncmp(entry, name, length) == 0 && entry[length] == '=';
}

}  // namespace

void keep_settings() {
  for (char **entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    for (std::size_t i = 0; i < std::size(kNames); ++i) {
      if (is_setting_of(*entry, kNames[i]))
        settings[i] = *entry;
    }
  }
  arm_emulator = getenv(kEmulatorVariable);
  pthread_atfork(share_with_child, nullptr, in_child);
}

const char *emulator() {
  return arm_emulator;
}

std::size_t count_environment(char *const given[]) {
  std::size_t count = 0;
  while (given != nullptr && given[count] != nullptr)
    ++count;
  return count + std::size(kNames) + 2;
}

char *const *complete_environment(char *const given[], char **room, char *open) {
  std::size_t count = 0;
  for (; given != nullptr && given[count] != nullptr; ++count)
    room[count] = given[count];
  for (std::size_t i = 0; i < std::size(kNames); ++i) {
    bool found = settings[i] == nullptr;
    for (std::size_t at = 0; at < count && !found; ++at) {
      if (!is_setting_of(room[at], kNames[i]))
        continue;
      // A preload of the program's own must not push the board's out.
      if (i == 0 && strstr(room[at], "vboard") == nullptr)
        room[at] = settings[i];
      found = true;
    }
    if (!found)
      room[count++] = settings[i];
  }
  if (open != nullptr)
    room[count++] = open;
  room[count] = nullptr;
  return room;
}

}  // namespace vboard
