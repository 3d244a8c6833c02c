// autotest: the board check. Runs every other test of the bt1 table, unattended when its own first
// argument is "autotest", and prints a verdict for each.
//
// It calls the handlers itself, past the dispatcher, and overwrites element 0 of its own arguments
// with each test's name: that is what a handler expects there. All that it prints goes to standard
// error, the tests' own reports mostly to standard output. It returns 0 whatever the tests
// returned.
//
// The last test arms the watchdog and waits for the reset: on a healthy board that reset is the
// pass signal, and the report below it is seen only when the watchdog test failed early.

#include "app/autotest.h"

#include "app/app.h"
#include "app/applet_tables.h"

#include <stdio.h>

#include <array>
#include <cstdint>

static_assert(kBt1Rows - 1 <= kMaxTests, "every test after the runner's own row has a result");

void run_tests(const AppletEntry *tests, int argc, char **argv) {
  std::array<std::int32_t, kMaxTests> results = {};

  for (int i = 0; i < kMaxTests && tests[i].name != nullptr; ++i) {
    // The vector is one of char *, and no test writes to its own name.
    argv[0] = const_cast<char *>(tests[i].name);
    fprintf(stderr, "\n\n[AUTOTEST] %s is operating...\n", tests[i].name);
    if (tests[i].handler != nullptr)
      results[static_cast<std::size_t>(i)] = tests[i].handler(argc, argv);
  }

  fputs("\n\n\nRESULT:\n", stderr);
  for (int i = 0; i < kMaxTests && tests[i].name != nullptr; ++i) {
    // Positive results are errors too.
    fprintf(stderr, "[RESULT] %s test is %s!\n", tests[i].name,
            results[static_cast<std::size_t>(i)] == 0 ? "OK" : "ERROR");
  }
}

int autotest_main(int argc, char **argv) {
  run_tests(bt1_table + 1, argc, argv);
  return 0;
}
