// Diagnostic lines of the form "[routine:line]RETURN:message" and "[routine:line]WARN:message".
//
// Routine names and line numbers are part of the output and are matched by scripts: they are fixed
// constants beside the routine that reports, never __func__ and __LINE__.

#ifndef BENCHRIG_COMMON_DIAGNOSTICS_H
#define BENCHRIG_COMMON_DIAGNOSTICS_H

// A step failed and its routine returns. The message has no line end of its own: one newline is
// added.
[[gnu::format(printf, 3, 4)]] void report_return(const char *routine, int line, const char *format,
                                                 ...);

// A step failed and its routine goes on. The same, with "WARN".
[[gnu::format(printf, 3, 4)]] void report_warning(const char *routine, int line, const char *format,
                                                  ...);

#endif
