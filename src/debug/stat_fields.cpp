// Fields of /proc/PID/stat.

#include "debug/stat_fields.h"

#include "common/numbers.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <iterator>

namespace {

constexpr const char *kJiffies = "(Unit:jiffies)";
constexpr const char *kUnused = "(Not use)";

// The same field of every kernel since 3.5; older ones end earlier.
// clang-format off
constexpr StatField kStatFields[] = {
    {.label = "pid",              .format = StatFormat::kUnsigned,   .suffix = nullptr},
    {.label = "comm",             .format = StatFormat::kText,       .suffix = nullptr},
    {.label = "task_state",       .format = StatFormat::kText,
     .suffix = "(R:runnign, S:sleeping, D:disk sleep, T:stopped, t:tracing stop, Z:zombie, X:dead)"},  // sic
    {.label = "ppid",             .format = StatFormat::kUnsigned,   .suffix = nullptr},
    {.label = "pgid",             .format = StatFormat::kUnsigned,   .suffix = nullptr},
    {.label = "sid",              .format = StatFormat::kUnsigned,   .suffix = nullptr},
    {.label = "tty_nr",           .format = StatFormat::kSigned,     .suffix = nullptr},
    {.label = "tty_pgrp",         .format = StatFormat::kSigned,     .suffix = nullptr},
    {.label = "task_flags",       .format = StatFormat::kUnsigned,   .suffix = nullptr},
    {.label = "min_flt",          .format = StatFormat::kLong,       .suffix = nullptr},
    {.label = "cmin_flt",         .format = StatFormat::kLong,       .suffix = nullptr},
    {.label = "maj_flt",          .format = StatFormat::kLong,       .suffix = nullptr},
    {.label = "cmaj_flt",         .format = StatFormat::kLong,       .suffix = nullptr},
    {.label = "utime",            .format = StatFormat::kLong,       .suffix = kJiffies},
    {.label = "stime",            .format = StatFormat::kLong,       .suffix = kJiffies},
    {.label = "cutime",           .format = StatFormat::kLong,       .suffix = kJiffies},
    {.label = "cstime",           .format = StatFormat::kLong,       .suffix = kJiffies},
    {.label = "priority",         .format = StatFormat::kSigned,     .suffix = nullptr},
    {.label = "nice",             .format = StatFormat::kSigned,     .suffix = nullptr},
    {.label = "num_threads",      .format = StatFormat::kSigned,     .suffix = nullptr},
    {.label = "it_real_value",    .format = StatFormat::kSigned,     .suffix = kJiffies},
    {.label = "start_time",       .format = StatFormat::kUnsigned64, .suffix = kJiffies},
    {.label = "vsize",            .format = StatFormat::kLong,       .suffix = nullptr},
    {.label = "rss",              .format = StatFormat::kLong,       .suffix = nullptr},
    {.label = "rsslim",           .format = StatFormat::kLong,       .suffix = nullptr},
    {.label = "start_code",       .format = StatFormat::kLongHex,    .suffix = nullptr},
    {.label = "end_code",         .format = StatFormat::kLongHex,    .suffix = nullptr},
    {.label = "start_stack",      .format = StatFormat::kLongHex,    .suffix = nullptr},
    {.label = "kstkesp",          .format = StatFormat::kLongHex,    .suffix = nullptr},
    {.label = "kstkeip",          .format = StatFormat::kLongHex,    .suffix = nullptr},
    {.label = "pendingsig",       .format = StatFormat::kUnsigned,   .suffix = nullptr},
    {.label = "block_sig",        .format = StatFormat::kUnsigned,   .suffix = nullptr},
    {.label = "sigign",           .format = StatFormat::kUnsigned,   .suffix = nullptr},
    {.label = "sigcatch",         .format = StatFormat::kUnsigned,   .suffix = nullptr},
    {.label = "wchan",            .format = StatFormat::kLong,       .suffix = nullptr},
    {.label = "nswap",            .format = StatFormat::kSigned,     .suffix = kUnused},
    {.label = "cnswap",           .format = StatFormat::kSigned,     .suffix = kUnused},
    {.label = "exit_signal",      .format = StatFormat::kUnsigned,   .suffix = nullptr},
    {.label = "task_cpu",         .format = StatFormat::kUnsigned,   .suffix = nullptr},
    {.label = "task_rt_priority", .format = StatFormat::kUnsigned,   .suffix = nullptr},
    {.label = "task_policy",      .format = StatFormat::kUnsigned,   .suffix = "(0=No real, 1=FIFO, 2=RR)"},
    {.label = "task",             .format = StatFormat::kUnsigned,   .suffix = nullptr},  // sic
    {.label = "gtime",            .format = StatFormat::kLong,       .suffix = nullptr},
    {.label = "cgtime",           .format = StatFormat::kLong,       .suffix = nullptr},
    {.label = "start_data",       .format = StatFormat::kHex,        .suffix = nullptr},
    {.label = "end_data",         .format = StatFormat::kHex,        .suffix = nullptr},
    {.label = "start_brk",        .format = StatFormat::kHex,        .suffix = nullptr},
    {.label = "arg_start",        .format = StatFormat::kHex,        .suffix = nullptr},
    {.label = "arg_end",          .format = StatFormat::kHex,        .suffix = nullptr},
    {.label = "env_start",        .format = StatFormat::kHex,        .suffix = nullptr},
    {.label = "env_end",          .format = StatFormat::kHex,        .suffix = nullptr},
    {.label = "exit_code",        .format = StatFormat::kHex,        .suffix = nullptr},
};
// clang-format on
static_assert(std::size(kStatFields) == 52);

}  // namespace

void print_stat_field(const StatField &field, const char *token) {
  printf("%-17s = ", field.label);
  switch (field.format) {
    case StatFormat::kText:
      printf("%s", token != nullptr ? token : "");
      break;
    case StatFormat::kSigned:
      printf("%d", parse_decimal(token));
      break;
    case StatFormat::kUnsigned:
      printf("%d", static_cast<int>(parse_u32(token, 10)));
      break;
    case StatFormat::kLong:
      printf("%lu", static_cast<unsigned long>(parse_u32(token, 10)));
      break;
    case StatFormat::kLongHex:
      printf("0x%lx", static_cast<unsigned long>(parse_u32(token, 10)));
      break;
    case StatFormat::kHex:
      printf("0x%x", parse_u32(token, 10));
      break;
    case StatFormat::kUnsigned64:
      printf("%llu", token != nullptr ? strtoull(token, nullptr, 10) : 0);
      break;
  }
  if (field.suffix != nullptr)
    printf(" %s", field.suffix);
  putchar('\n');
}

void print_stat_text(char *text) {
  char *rest = nullptr;
  char *next = text;
  for (const StatField &field : kStatFields) {
    print_stat_field(field, strtok_r(next, " ", &rest));
    next = nullptr;
  }
}
