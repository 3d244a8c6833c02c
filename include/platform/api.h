/* RIG_API marks an operation or a variable of librigcore: it stays visible in a library that hides
 * everything else (-fvisibility=hidden).
 *
 * Conventions of every header here, where an operation says nothing else:
 *   - C linkage; usable from C11 and C++;
 *   - a signed 32-bit result, 0 for success and -1 with errno for failure;
 *   - ENODEV when the board's map (/etc/benchrig/board.conf) names nothing for what was asked and
 * the library has no default for it, EINVAL for an argument out of range, else the errno of the
 *     kernel's call that failed;
 *   - no operation keeps a pointer that it was given;
 *   - not safe to call from two threads at once, except rig_upgrade_stop_all(). */

#ifndef PLATFORM_API_H
#define PLATFORM_API_H

#if defined(__GNUC__)
#define RIG_API __attribute__((visibility("default")))
#else
#define RIG_API
#endif

#endif
