// The table of configuration values: its order, its kinds and its requests. And what ends the
// listing early.

#include "debug/debug_tools.h"
#include "debug/getconf_variables.h"

#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>

namespace {

// What confstr() answers instead of the C library's: to the question for the length, and then.
struct Answers {
  std::size_t length;
  std::size_t stored;
};

const Answers *answers = nullptr;

}  // namespace

extern "C" std::size_t confstr(int name, char *buf, std::size_t len) noexcept {
  if (answers == nullptr) {
    const auto real = reinterpret_cast<decltype(&confstr)>(dlsym(RTLD_NEXT, "confstr"));
    return real(name, buf, len);
  }
  errno = ERANGE;
  return buf == nullptr ? answers->length : answers->stored;
}

namespace {

std::span<const GetconfVar> rows() {
  return {getconf_variables, kGetconfRows};
}

const GetconfVar &row(const char *name) {
  for (const GetconfVar &variable : rows()) {
    if (strcmp(variable.name, name) == 0)
      return variable;
  }
  ADD_FAILURE() << name;
  return getconf_variables[0];
}

TEST(GetconfTable, ends_with_a_row_of_zeros) {
  const GetconfVar &last = getconf_variables[kGetconfRows];
  EXPECT_EQ(last.name, nullptr);
  EXPECT_EQ(last.request, 0);
  EXPECT_EQ(static_cast<int>(last.kind), 0);
}

TEST(GetconfTable, has_320_names_each_once) {
  std::set<std::string> names;
  for (const GetconfVar &variable : rows())
    names.insert(variable.name);
  EXPECT_EQ(names.size(), 320u);
}

TEST(GetconfTable, counts_227_limits_66_texts_and_27_path_limits) {
  std::map<GetconfKind, int> count;
  for (const GetconfVar &variable : rows())
    ++count[variable.kind];
  EXPECT_EQ(count[GetconfKind::kSysconf], 227);
  EXPECT_EQ(count[GetconfKind::kConfstr], 66);
  EXPECT_EQ(count[GetconfKind::kPathconf], 27);
}

struct Position {
  int index;
  const char *name;
};

TEST(GetconfTable, keeps_its_order) {
  const Position positions[] = {
      {0, "LINK_MAX"},
      {1, "_POSIX_LINK_MAX"},
      {12, "SOCK_MAXBUF"},
      {18, "_POSIX_VDISABLE"},
      {19, "ARG_MAX"},
      {319, "_POSIX_RAW_SOCKETS"},
      {318, "_POSIX_IPV6"},
      {317, "RAW_SOCKETS"},
      {316, "IPV6"},
      {315, "LEVEL4_CACHE_LINESIZE"},
      {301, "LEVEL1_ICACHE_SIZE"},
      {300, "POSIX2_SYMLINKS"},
      {299, "GNU_LIBPTHREAD_VERSION"},
      {298, "GNU_LIBC_VERSION"},
      {297, "SYMLINK_MAX"},
      {291, "FILESIZEBITS"},
  };
  for (const Position &position : positions)
    EXPECT_STREQ(getconf_variables[position.index].name, position.name) << position.index;
}

TEST(GetconfTable, has_the_path_limits_at_its_ends) {
  std::string found;
  for (const GetconfVar &variable : rows()) {
    if (variable.kind == GetconfKind::kPathconf)
      found += std::string(variable.name) + " ";
  }
  EXPECT_EQ(found,
            "LINK_MAX _POSIX_LINK_MAX MAX_CANON _POSIX_MAX_CANON MAX_INPUT _POSIX_MAX_INPUT "
            "NAME_MAX _POSIX_NAME_MAX PATH_MAX _POSIX_PATH_MAX PIPE_BUF _POSIX_PIPE_BUF "
            "SOCK_MAXBUF _POSIX_ASYNC_IO _POSIX_CHOWN_RESTRICTED _POSIX_NO_TRUNC _POSIX_PRIO_IO "
            "_POSIX_SYNC_IO _POSIX_VDISABLE FILESIZEBITS POSIX_ALLOC_SIZE_MIN "
            "POSIX_REC_INCR_XFER_SIZE POSIX_REC_MAX_XFER_SIZE POSIX_REC_MIN_XFER_SIZE "
            "POSIX_REC_XFER_ALIGN SYMLINK_MAX POSIX2_SYMLINKS ");
}

// The texts of the compilation environments are named alike; the words in between are limits.
TEST(GetconfTable, has_flags_as_texts_and_environments_as_limits) {
  int texts = 0;
  for (const GetconfVar &variable : rows()) {
    const std::string name = variable.name;
    const bool is_text = name.ends_with("_CFLAGS") || name.ends_with("_LDFLAGS") ||
                         name.ends_with("_LIBS") || name.ends_with("_LINTFLAGS") ||
                         name.ends_with("WIDTH_RESTRICTED_ENVS") || name.ends_with("PATH") ||
                         name.starts_with("GNU_");
    EXPECT_EQ(variable.kind == GetconfKind::kConfstr, is_text) << name;
    texts += is_text ? 1 : 0;
  }
  EXPECT_EQ(texts, 66);
}

TEST(GetconfTable, asks_for_what_the_name_says) {
  EXPECT_EQ(row("PAGESIZE").request, _SC_PAGESIZE);
  EXPECT_EQ(row("PAGE_SIZE").request, _SC_PAGESIZE);
  EXPECT_EQ(row("LOGNAME_MAX").request, _SC_LOGIN_NAME_MAX);
  EXPECT_EQ(row("OPEN_MAX").request, _SC_OPEN_MAX);
  EXPECT_EQ(row("_POSIX_OPEN_MAX").request, _SC_OPEN_MAX);
  EXPECT_EQ(row("UINT_MAX").request, _SC_UINT_MAX);
  EXPECT_EQ(row("ULONG_MAX").request, _SC_ULONG_MAX);
  EXPECT_EQ(row("_NPROCESSORS_CONF").request, _SC_NPROCESSORS_CONF);
  EXPECT_EQ(row("PATH").request, _CS_PATH);
  EXPECT_EQ(row("CS_PATH").request, _CS_PATH);
  EXPECT_EQ(row("_POSIX_PRIO_IO").request, _PC_PRIO_IO);
  EXPECT_EQ(row("_POSIX_PRIORITIZED_IO").request, _SC_PRIORITIZED_IO);
  EXPECT_EQ(row("POSIX2_SYMLINKS").request, _PC_2_SYMLINKS);
  EXPECT_EQ(row("POSIX2_LINE_MAX").request, _SC_LINE_MAX);
}

#ifdef __GLIBC__
TEST(GetconfTable, misses_no_request_of_this_library) {
  for (const GetconfVar &variable : rows())
    EXPECT_GE(variable.request, 0) << variable.name;
}
#endif

// Ends of the process.

void list_with(const Answers &wanted) {
  char name[] = "getconf";
  char option[] = "-a";
  char *argv[] = {name, option, nullptr};
  // The rows in front of the first text are not what counts here.
  if (freopen("/dev/null", "w", stdout) == nullptr)
    _exit(90);
  answers = &wanted;
  getconf_main(2, argv);
}

TEST(GetconfDeath, a_text_of_another_length_than_was_said_ends_it_with_3) {
  EXPECT_EXIT(list_with({.length = 5, .stored = 6}), testing::ExitedWithCode(3),
              "confstr: Numerical result out of range");
  EXPECT_EXIT(list_with({.length = 5, .stored = 0}), testing::ExitedWithCode(3), "confstr: ");
}

TEST(GetconfDeath, a_text_that_memory_does_not_hold_ends_it_with_3) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer's allocator ends the process itself";
#endif
  EXPECT_EXIT(list_with({.length = SIZE_MAX / 2, .stored = 0}), testing::ExitedWithCode(3),
              "memory exhausted");
}

}  // namespace
