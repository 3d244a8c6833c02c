// The board check: runs the tests of a table one after the other and reports on each.

#ifndef BENCHRIG_APP_AUTOTEST_H
#define BENCHRIG_APP_AUTOTEST_H

#include "platform/applets.h"

// The most tests that the check keeps a result of.
inline constexpr int kMaxTests = 12;

// Runs `tests`, which ends with an all-zero row, in order. Every test gets `argc` and `argv`, with
// its own name in place of argv[0]. Tests beyond kMaxTests are neither run nor reported.
void run_tests(const AppletEntry *tests, int argc, char **argv);

#endif
