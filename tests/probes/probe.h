// The probe: a program whose command line is a list of calls. It makes them one after the other and
// prints a line for each: the call, then its result or the errno's name.
//
//     probe open /dev/lcd rdwr  write 'ff*1024'  close
//     open 3
//     write 0
//     close 0

#ifndef TESTS_PROBES_PROBE_H
#define TESTS_PROBES_PROBE_H

#include <cstddef>

struct Step {
  const char *name;
  int words;  // how many words it takes from the command line
  void (*run)(char **words);
};

extern const Step kFileSteps[];
extern const Step kSystemSteps[];
extern const Step kTimeSteps[];
extern const Step kThreadSteps[];
extern const Step kTimedSteps[];

// The descriptor that the calls work on: the last one opened, or the one chosen with "fd N".
extern int current;

// Prints "NAME RESULT", or "NAME ERRNO" for -1. The second one adds the bytes as hexadecimal.
void report(const char *name, long result);
void report_bytes(const char *name, long result, const unsigned char *bytes, std::size_t count);

// Bytes written as "ff*1024" or "0102.00*14"; how many there are.
std::size_t read_bytes(const char *text, unsigned char *out, std::size_t room);

#endif
