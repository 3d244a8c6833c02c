// The build stamp. This file is compiled anew for every link of the executable, so it is kept tiny.
// A reproducible build names the texts itself, since not every compiler takes them from
// SOURCE_DATE_EPOCH.

#include "app/build_stamp.h"

#include <stdio.h>
#include <string.h>

#ifndef BENCHRIG_BUILD_DATE
#define BENCHRIG_BUILD_DATE __DATE__
#endif
#ifndef BENCHRIG_BUILD_TIME
#define BENCHRIG_BUILD_TIME __TIME__
#endif

namespace {

constexpr char kMonths[][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

}  // namespace

const char *build_date() {
  return BENCHRIG_BUILD_DATE;
}

const char *build_time() {
  return BENCHRIG_BUILD_TIME;
}

std::uint32_t pack_build_date(const char *text) {
  char word[16] = "";
  int day = 0;
  int year = 0;
  sscanf(text, "%15s%d%d", word, &day, &year);

  std::uint32_t month = 1;
  for (const char *name : kMonths) {
    if (strncmp(word, name, strlen(name)) == 0)
      break;
    ++month;
  }
  return static_cast<std::uint32_t>(year) << 16 | month << 8 |
         (static_cast<std::uint32_t>(day) & 0xFF);
}

std::uint32_t pack_build_time(const char *text) {
  int hour = 0;
  int minute = 0;
  int second = 0;
  sscanf(text, "%d:%d:%d", &hour, &minute, &second);
  return (static_cast<std::uint32_t>(hour) & 0xFF) << 16 |
         (static_cast<std::uint32_t>(minute) & 0xFF) << 8 |
         (static_cast<std::uint32_t>(second) & 0xFF);
}
