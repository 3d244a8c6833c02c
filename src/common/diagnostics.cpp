// Diagnostic lines on standard output.

#include "common/diagnostics.h"

#include <stdarg.h>
#include <stdio.h>

void report_return(const char *routine, int line, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  printf("[%s:%d]RETURN:", routine, line);
  vprintf(format, arguments);
  putchar('\n');
  va_end(arguments);
}

void report_warning(const char *routine, int line, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  printf("[%s:%d]WARN:", routine, line);
  vprintf(format, arguments);
  putchar('\n');
  va_end(arguments);
}
