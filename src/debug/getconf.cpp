// getconf: prints every configuration value of the system in one fixed order, to compare boards:
// the limits of sysconf(), the texts of confstr() and the limits of pathconf() for one path.
//
// Only -a does that, and it ends the whole process. The form for one value, which the usage names,
// does not exist: every other first argument prints nothing and succeeds.

#include "debug/debug_tools.h"

#include "debug/getconf_missing.h"
#include "debug/getconf_variables.h"

#include <errno.h>
#include <error.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace {

constexpr int kUsageStatus = 2;
constexpr int kFailureStatus = 3;

[[noreturn]] void refuse_usage() {
  fprintf(stderr, "Usage: %s [-v specification] variable_name [pathname]\n", "getconf");
  fprintf(stderr, "       %s -a [pathname]\n", "getconf");
  exit(kUsageStatus);
}

// The limits that may not fit a signed long: -1 is their value then. A request of -1 is one that
// this C library lacks.
bool is_unsigned_limit(int request) {
  return request != -1 && (request == _SC_UINT_MAX || request == _SC_ULONG_MAX);
}

void print_sysconf(int request) {
  const long value = sysconf(request);
  if (value != -1)
    printf("%ld", value);
  else if (is_unsigned_limit(request))
    printf("%lu", static_cast<unsigned long>(value));
  putchar('\n');
}

void print_confstr(int request) {
  const std::size_t length = confstr(request, nullptr, 0);
  char *text = static_cast<char *>(malloc(length + 1));  // a value that is not there has none
  if (text == nullptr)
    error(kFailureStatus, 0, "memory exhausted");
  if (confstr(request, text, length) != length)
    error(kFailureStatus, errno, "confstr");
  printf("%.*s\n", static_cast<int>(length), text);
  free(text);
}

void print_pathconf(const char *path, int request) {
  const long value = pathconf(path, request);
  if (value != -1)
    printf("%ld", value);
  putchar('\n');
}

void print_variable(const GetconfVar &variable, const char *path) {
  printf("%-35s", variable.name);  // a longer name runs into its value
  switch (variable.kind) {
    case GetconfKind::kSysconf:
      print_sysconf(variable.request);
      break;
    case GetconfKind::kConfstr:
      print_confstr(variable.request);
      break;
    case GetconfKind::kPathconf:
      print_pathconf(path, variable.request);
      break;
  }
}

}  // namespace

int getconf_main(int argc, char **argv) {
  if (argc < 2 || strcmp(argv[1], "-a") != 0)
    return 0;
  if (argc > 3)
    refuse_usage();
  const char *path = argc == 3 ? argv[2] : "/";
  for (const GetconfVar *variable = getconf_variables; variable->name != nullptr; ++variable)
    print_variable(*variable, path);
  exit(0);
}
