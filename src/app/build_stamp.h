// The day and time at which this executable was built.

#ifndef BENCHRIG_APP_BUILD_STAMP_H
#define BENCHRIG_APP_BUILD_STAMP_H

#include <cstdint>

// As the compiler writes them: "Dec 18 2023" (the day padded with a blank, "Jan  5 2024") and
// "16:59:34".
const char *build_date();
const char *build_time();

// Packs a text of build_date()'s form: year in bits 16 and up, month in bits 8 to 15 (1 to 12, 13
// for a word that begins with no month's name), day in bits 0 to 7.
std::uint32_t pack_build_date(const char *text);

// Packs a text of build_time()'s form: hour in bits 16 to 23, minute in bits 8 to 15, second in
// bits 0 to 7. A field that cannot be read is 0.
std::uint32_t pack_build_time(const char *text);

#endif
