// Every configuration value that the C library can report, in the order of the report.

#ifndef BENCHRIG_DEBUG_GETCONF_VARIABLES_H
#define BENCHRIG_DEBUG_GETCONF_VARIABLES_H

#include <cstdint>

enum class GetconfKind : std::int32_t {
  kSysconf = 0,
  kConfstr = 1,
  kPathconf = 2,
};

struct GetconfVar {
  const char *name;
  std::int32_t request;  // of the function that the kind says
  GetconfKind kind;
};

constexpr int kGetconfRows = 320;

extern const GetconfVar getconf_variables[kGetconfRows + 1];  // ends with a row of zeros

#endif
