#!/usr/bin/env python3
"""Tests of dialect.py: what it mends, what it only reports and what it leaves alone."""

import sys

from dialect import findings_in, mended

MENDED = [
    ("if (a) { f(); }", "if (a) f();"),
    ("if (a) { f(); } else { g(); }", "if (a) f(); else g();"),
    ("if (a) { f(); g(); } else h();", "if (a) { f(); g(); } else { h(); }"),
    ("if (a) { if (b) f(); } else h();", "if (a) { if (b) f(); } else { h(); }"),
    ("if (a) { f(); g(); } else if (b) h();", "if (a) { f(); g(); } else if (b) { h(); }"),
    ("if (a) { f(); } else if (b) { h(); }", "if (a) f(); else if (b) h();"),
    ("if (a) {\n  f();  // why\n}\ng();", "if (a)\n  f();  // why\ng();"),
    ("for (;;)\n  if (a)\n    f();  // why\n", "for (;;)\n  { if (a)\n    f();  // why\n}\n"),
    ("for (;;) for (;;) if (a) f();", "for (;;) { for (;;) { if (a) f(); } }"),
    ("while (a) { for (;;) { f(); } }", "while (a) { for (;;) f(); }"),
    ("if constexpr (a) { return {1, 2}; }", "if constexpr (a) return {1, 2};"),
    ("f([] { if (a) { g(); } });", "f([] { if (a) g(); });"),
    ("void f() { i++; a[i].b--; c->d(e)++; }", "void f() { ++i; --a[i].b; ++c->d(e); }"),
    ("for (i = 0, j = 1;; i++, j--) f(i++);", "for (i = 0, j = 1;; ++i, --j) f(i++);"),
    ("for (i++; a; j++) {}", "for (++i; a; ++j) {}"),
    ("if (a) i++;", "if (a) ++i;"),
    ("#define NEXT do { i++; } while (0)", "#define NEXT do { ++i; } while (0)"),
    ("#include <cerrno>", "#include <errno.h>"),
    ("#include <stdint.h>", "#include <cstdint>"),
    ("uint32_t f(std::size_t n);", "std::uint32_t f(std::size_t n);"),
    ('std::printf("%zu", std::size(a));', 'printf("%zu", std::size(a));'),
    ("std::FILE *f; std::string s;", "FILE *f; std::string s;"),
    ("unsigned a; unsigned long b;", "unsigned int a; unsigned long b;"),
    ("char *a = NULL;", "char *a = nullptr;"),
    ("char a[4]; f(sizeof(a), sizeof(stat));", "char a[4]; f(sizeof a, sizeof(stat));"),
    (
        "f(sizeof(a.b[1]), sizeof(kWords), sizeof(Row));",
        "f(sizeof a.b[1], sizeof kWords, sizeof(Row));",
    ),
]

REPORTED = [
    ("static int f();", "an unnamed namespace, not static"),
    ("namespace a { static int f(); }", "an unnamed namespace, not static"),
    ("// --- Parts ---", "no banners"),
    ('#include <a.h>\n#include "b.h"', 'order of headers: "ours.h", <system.h>, <cpp>'),
    ("#include <array>\n#include <a.h>", 'order of headers: "ours.h", <system.h>, <cpp>'),
]

ACCEPTED = [
    "do { f(); } while (a);",
    "if (a) {}",
    "if (a) {\n  // Why.\n  f();\n}",
    "if (a) {\n#if B\n  f();\n#endif\n}",
    "if (a) { if (b) f(); }",
    "if (a) { EXPECT_TRUE(b); }",
    "for (;;) EXPECT_TRUE(b);",
    'x = "if (a) { f(); } NULL";  // if (a) { f(); } NULL',
    'x = R"(if (a) { f(); })";',
    "void f() { x = i++; *p++ = 1; g(i++, (i++)); }",
    "for (; *p++;) f();",
    "#include <cmath>",
    "void f(unsigned long int a, ::size_t b) { c.size_t(); }",
    "f(sizeof(long), sizeof(struct a), sizeof(a + b), sizeof(Row::name));",
    "struct A { static int f(); }; int g() { static int calls; }",
    '#include "b.h"\n#include <a.h>\n#include <array>',
]

IN_C_HEADERS = ["#include <stdint.h>", "uint32_t f(size_t n);"]


def squeezed(text):
    return "".join(text.split())


def main():
    failures = []
    for given, wanted in MENDED:
        if squeezed(mended(given)) != squeezed(wanted):
            failures.append((given, mended(given)))
        if findings_in(mended(given))[1]:
            failures.append((given, "is reported after it was mended"))
    for given, wanted in REPORTED:
        if [finding.message for finding in findings_in(given)[1]] != [wanted]:
            failures.append((given, findings_in(given)[1]))
    for is_c, texts in ((False, ACCEPTED), (True, IN_C_HEADERS)):
        for given in texts:
            if findings_in(given, is_c)[1]:
                failures.append((given, findings_in(given, is_c)[1]))
    for given, found in failures:
        print(f"dialect_test.py: {given!r}: {found!r}")
    print(f"dialect_test.py: {len(MENDED + REPORTED + ACCEPTED + IN_C_HEADERS)} texts")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
