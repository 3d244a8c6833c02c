// The packed version and date in the text of /proc/version, and os-release's assignments.

#include "platform/kernel_version.h"

#include "platform/os_release.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using rigcore::parse_kernel_date;
using rigcore::parse_kernel_version;

TEST(KernelVersion, packs_major_minor_patch) {
  EXPECT_EQ(parse_kernel_version("Linux version 6.1.76 (builder@host) (gcc 12.2.0) #1"), 0x06014Cu);
  EXPECT_EQ(parse_kernel_version("Linux version 6.1.0-18-armmp (x) (gcc 12.2.0) #1 SMP"),
            0x060100u);
  EXPECT_EQ(parse_kernel_version("Linux version 4.14.98+ (x)"), 0x040E62u);
}

TEST(KernelVersion, major_and_minor_may_be_0) {
  EXPECT_EQ(parse_kernel_version("Linux version 0.99.1 (x)"), 0x006301u);
  EXPECT_EQ(parse_kernel_version("Linux version 7.0.1 (x)"), 0x070001u);
}

TEST(KernelVersion, minor_fits_its_8_bits) {
  EXPECT_EQ(parse_kernel_version("Linux version 6.255.1"), 0x06FF01u);
  EXPECT_EQ(parse_kernel_version("Linux version 6.256.1"), 0u);
}

TEST(KernelVersion, missing_patch_level_is_0) {
  EXPECT_EQ(parse_kernel_version("Linux version 6.8-rc1 (x)"), 0x060800u);
  EXPECT_EQ(parse_kernel_version("Linux version 6.8"), 0x060800u);
  EXPECT_EQ(parse_kernel_version("Linux version 6.8.rc1"), 0x060800u);
}

TEST(KernelVersion, patch_level_above_255_is_255) {
  EXPECT_EQ(parse_kernel_version("Linux version 4.9.337"), 0x0409FFu);
  EXPECT_EQ(parse_kernel_version("Linux version 4.9.255"), 0x0409FFu);
  EXPECT_EQ(parse_kernel_version("Linux version 4.9.254"), 0x0409FEu);
}

TEST(KernelVersion, other_text_holds_no_version) {
  EXPECT_EQ(parse_kernel_version(""), 0u);
  EXPECT_EQ(parse_kernel_version("Linux version "), 0u);
  EXPECT_EQ(parse_kernel_version("Linux version 6"), 0u);
  EXPECT_EQ(parse_kernel_version("Linux version six.1"), 0u);
  EXPECT_EQ(parse_kernel_version("FreeBSD version 6.1.0"), 0u);
}

TEST(KernelVersion, numbers_have_six_digits_at_most) {
  EXPECT_EQ(parse_kernel_version("Linux version 123456.1.2"), 123456u << 16 | 1u << 8 | 2u);
  EXPECT_EQ(parse_kernel_version("Linux version 1234567.1.2"), 0u);
  EXPECT_EQ(parse_kernel_version("Linux version 0000006.1.2"), 0u);
  EXPECT_EQ(parse_kernel_version("Linux version 6.0000001.2"), 0u);
  EXPECT_EQ(parse_kernel_version("Linux version 6.1.000002"), 0x060102u);
}

TEST(KernelVersion, high_characters_are_no_digits) {
  EXPECT_EQ(parse_kernel_version("Linux version \xB6.1.76"), 0u);
  EXPECT_EQ(parse_kernel_version("Linux version 6.\xB1.76"), 0u);
  EXPECT_EQ(parse_kernel_version("Linux version 6.1\xB2.76"), 0x060100u);
  EXPECT_EQ(parse_kernel_version("Linux version 6.1.7\xFF"), 0x060107u);
}

TEST(KernelDate, high_characters_belong_to_their_words) {
  for (const char *text :
       {"#1 SMP (2024-02-01)\xFF", "#1 SMP \xA0(2024-02-01)", "#1 SMP\x85(2024-02-01)",
        "#1 SMP Thu \x80"
        "Feb 1 12:00:00 UTC 2024",
        "#1 SMP Thu Feb \xA0"
        "1 12:00:00 UTC 2024"})
    EXPECT_EQ(parse_kernel_date(text), 0u) << text;
}

TEST(KernelDate, reads_the_kernels_own_form) {
  EXPECT_EQ(
      parse_kernel_date("Linux version 5.10.92 (b@h) (gcc) #1 SMP Thu Feb  1 12:00:00 UTC 2024"),
      24u << 16 | 2u << 8 | 1u);
  EXPECT_EQ(
      parse_kernel_date("Linux version 5.10.92 (b@h) (gcc) #25~22.04.1-Ubuntu SMP PREEMPT_DYNAMIC "
                        "Tue Dec 31 23:59:59 CET 2030\n"),
      30u << 16 | 12u << 8 | 31u);
}

TEST(KernelDate, only_what_follows_a_month_is_a_day_or_a_year) {
  for (const char *text :
       {"#1 SMP 6 Thu Feb  1 12:00:00 UTC 2024", "#1 6 SMP Thu Feb  1 12:00:00 UTC 2024",
        "#1 2023 Thu Feb  1 12:00:00 UTC 2024", "#1 SMP 2023 Thu Feb  1 12:00:00 UTC 2024",
        "#1 SMP x 2023 Thu Feb  1 12:00:00 UTC 2024", "#1 Mar SMP Thu Feb  1 12:00:00 UTC 2024",
        "#1 SMP (2023-00-17) Thu Feb  1 12:00:00 UTC 2024", "#1 SMP Thu Feb  1 1 UTC 2024",
        "#1 SMP Thu Feb  1 0000 UTC 2024", "#1 SMP Thu Feb  1 12:00:00 20240 2024"})
    EXPECT_EQ(parse_kernel_date(text), 24u << 16 | 2u << 8 | 1u) << text;
}

TEST(KernelDate, year_is_the_third_or_the_fourth_word_after_the_month) {
  EXPECT_EQ(parse_kernel_date("#1 Thu Feb 1 12:00:00 CET DST 2024"), 0u);
}

TEST(KernelDate, time_zone_may_be_missing) {
  EXPECT_EQ(parse_kernel_date("Linux version 5.4 (b@h) #0 SMP Mon Jan 10 01:02:03 2005"),
            5u << 16 | 1u << 8 | 10u);
}

TEST(KernelDate, reads_the_distribution_form) {
  EXPECT_EQ(
      parse_kernel_date("Linux version 6.1.0-18-armmp (d@d) (gcc-12 (Debian 12.2.0-14) 12.2.0) "
                        "#1 SMP Debian 6.1.76-1 (2024-02-01)"),
      24u << 16 | 2u << 8 | 1u);
}

TEST(KernelDate, parentheses_may_be_missing_or_stand_alone) {
  for (const char *text : {"#1 SMP Debian 6.1.76-1 2024-02-01", "#1 SMP 2024-02-01) x",
                           "#1 SMP (2024-02-01", "#1 SMP ( 2024-02-01 )", "#1 () (2024-02-01)"})
    EXPECT_EQ(parse_kernel_date(text), 24u << 16 | 2u << 8 | 1u) << text;
  for (const char *text : {"#1 SMP ((2024-02-01))", "#1 SMP 2024-02-01x", "#1 SMP 2024-02-1)",
                           "#1 SMP 2024+02-01", "#1 SMP 2024-02+01"})
    EXPECT_EQ(parse_kernel_date(text), 0u) << text;
}

TEST(KernelDate, day_and_year_are_whole_words) {
  EXPECT_EQ(parse_kernel_date("#1 SMP Thu Feb 1x 12:00:00 UTC 2024"), 0u);
  EXPECT_EQ(parse_kernel_date("#1 SMP Thu Feb 0 12:00:00 UTC 2024"), 0u);
  EXPECT_EQ(parse_kernel_date("#1 SMP Thu Feb 1 12:00:00 UTC 202x"), 0u);
}

TEST(KernelDate, dates_in_front_of_the_build_number_are_the_compilers) {
  EXPECT_EQ(parse_kernel_date("Linux version 6.1 (b@h) (gcc 20190507 (2019-05-07)) #3 SMP "
                              "Fri Mar 15 08:00:00 UTC 2024"),
            24u << 16 | 3u << 8 | 15u);
}

TEST(KernelDate, text_without_a_date_gives_0) {
  EXPECT_EQ(parse_kernel_date(""), 0u);
  EXPECT_EQ(parse_kernel_date("Linux version 6.18 (b@h) (gcc) #1 SMP PREEMPT_DYNAMIC @0"), 0u);
  EXPECT_EQ(parse_kernel_date("#1 SMP Thu Feb"), 0u);
  EXPECT_EQ(parse_kernel_date("#1 SMP Thu Feb 1 12:00:00 UTC"), 0u);
  EXPECT_EQ(parse_kernel_date("#1 SMP Thu Feb 32 12:00:00 UTC 2024"), 0u);
  EXPECT_EQ(parse_kernel_date("#1 SMP Thu Feb x 12:00:00 UTC 2024"), 0u);
  EXPECT_EQ(parse_kernel_date("#1 SMP (2024-13-01)"), 0u);
  EXPECT_EQ(parse_kernel_date("#1 SMP (2024-02-00)"), 0u);
}

TEST(KernelDate, date_before_2000_cannot_be_packed) {
  EXPECT_EQ(parse_kernel_date("#1 SMP Thu Jan 1 00:00:00 UTC 1970"), 0u);
  EXPECT_EQ(parse_kernel_date("#1 SMP Sat Jan 1 00:00:00 UTC 2000"), 0u << 16 | 1u << 8 | 1u);
}

std::string assignment(const char *text, const char *name, std::size_t size = 64) {
  char value[64] = "untouched";
  return rigcore::find_assignment(text, name, value, size) ? value : "(none)";
}

TEST(OsRelease, value_loses_its_quotes) {
  const char *text =
      "NAME=Plain\nPRETTY_NAME=\"Board OS 2.1 (rig)\"\nVARIANT='one $two'\nSAID=\"a \\\"b\\\"\"\n";
  EXPECT_EQ(assignment(text, "NAME"), "Plain");
  EXPECT_EQ(assignment(text, "PRETTY_NAME"), "Board OS 2.1 (rig)");
  EXPECT_EQ(assignment(text, "VARIANT"), "one $two");
  EXPECT_EQ(assignment(text, "SAID"), "a \"b\"");
}

TEST(OsRelease, only_a_pair_of_quotes_around_the_value_is_taken_off) {
  for (const char *plain :
       {"1.0.1", "abca", "\"", "'", "\"abc", "abc'", "\"abc'", "'abc\"", "a\"b\"", "x"})
    EXPECT_EQ(assignment((std::string("NAME=") + plain + "\n").c_str(), "NAME"), plain);
  EXPECT_EQ(assignment("NAME=\"\"\n", "NAME"), "");
  EXPECT_EQ(assignment("NAME=''\n", "NAME"), "");
  EXPECT_EQ(assignment("NAME=\"'a'\" \t\r\n", "NAME"), "'a'");
}

TEST(OsRelease, a_backslash_quotes_a_character_but_in_single_quotes_and_at_the_end) {
  EXPECT_EQ(assignment("NAME=a\\ b\n", "NAME"), "a b");
  EXPECT_EQ(assignment("NAME=a\\\\b\n", "NAME"), "a\\b");
  EXPECT_EQ(assignment("NAME=\"a\\'b\"\n", "NAME"), "a'b");
  EXPECT_EQ(assignment("NAME='a\\ \\b'\n", "NAME"), "a\\ \\b");
  EXPECT_EQ(assignment("NAME=ab\\\n", "NAME"), "ab\\");
  EXPECT_EQ(assignment("NAME=\"ab\\\"\n", "NAME"), "ab\\");
}

TEST(OsRelease, name_is_compared_exactly_and_the_last_assignment_counts) {
  const char *text = "MY_NAME=a\nNAME_X=b\n#NAME=c\nNAME=d\r\nNAME=e  \n";
  EXPECT_EQ(assignment(text, "NAME"), "e");
  EXPECT_EQ(assignment(text, "VERSION"), "(none)");
  EXPECT_EQ(assignment("", "NAME"), "(none)");
  EXPECT_EQ(assignment("NAME=", "NAME"), "");
}

TEST(OsRelease, long_value_is_cut) {
  EXPECT_EQ(assignment("NAME=abcdef", "NAME", 4), "abc");
}

}  // namespace
