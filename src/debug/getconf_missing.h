// Requests of sysconf(), confstr() and pathconf() that the standards do not name. A C library
// without one of them gets -1 in its place, which no library knows: its row is printed with an
// empty value.

#ifndef BENCHRIG_DEBUG_GETCONF_MISSING_H
#define BENCHRIG_DEBUG_GETCONF_MISSING_H

#include <unistd.h>

#ifndef _CS_GNU_LIBC_VERSION
#define _CS_GNU_LIBC_VERSION -1
#endif
#ifndef _CS_GNU_LIBPTHREAD_VERSION
#define _CS_GNU_LIBPTHREAD_VERSION -1
#endif
#ifndef _CS_LFS64_CFLAGS
#define _CS_LFS64_CFLAGS -1
#endif
#ifndef _CS_LFS64_LDFLAGS
#define _CS_LFS64_LDFLAGS -1
#endif
#ifndef _CS_LFS64_LIBS
#define _CS_LFS64_LIBS -1
#endif
#ifndef _CS_LFS64_LINTFLAGS
#define _CS_LFS64_LINTFLAGS -1
#endif
#ifndef _CS_LFS_CFLAGS
#define _CS_LFS_CFLAGS -1
#endif
#ifndef _CS_LFS_LDFLAGS
#define _CS_LFS_LDFLAGS -1
#endif
#ifndef _CS_LFS_LIBS
#define _CS_LFS_LIBS -1
#endif
#ifndef _CS_LFS_LINTFLAGS
#define _CS_LFS_LINTFLAGS -1
#endif
#ifndef _CS_POSIX_V6_ILP32_OFF32_LINTFLAGS
#define _CS_POSIX_V6_ILP32_OFF32_LINTFLAGS -1
#endif
#ifndef _CS_POSIX_V6_ILP32_OFFBIG_LINTFLAGS
#define _CS_POSIX_V6_ILP32_OFFBIG_LINTFLAGS -1
#endif
#ifndef _CS_POSIX_V6_LP64_OFF64_LINTFLAGS
#define _CS_POSIX_V6_LP64_OFF64_LINTFLAGS -1
#endif
#ifndef _CS_POSIX_V6_LPBIG_OFFBIG_LINTFLAGS
#define _CS_POSIX_V6_LPBIG_OFFBIG_LINTFLAGS -1
#endif
#ifndef _CS_POSIX_V7_ILP32_OFF32_LINTFLAGS
#define _CS_POSIX_V7_ILP32_OFF32_LINTFLAGS -1
#endif
#ifndef _CS_POSIX_V7_ILP32_OFFBIG_LINTFLAGS
#define _CS_POSIX_V7_ILP32_OFFBIG_LINTFLAGS -1
#endif
#ifndef _CS_POSIX_V7_LP64_OFF64_LINTFLAGS
#define _CS_POSIX_V7_LP64_OFF64_LINTFLAGS -1
#endif
#ifndef _CS_POSIX_V7_LPBIG_OFFBIG_LINTFLAGS
#define _CS_POSIX_V7_LPBIG_OFFBIG_LINTFLAGS -1
#endif
#ifndef _CS_V5_WIDTH_RESTRICTED_ENVS
#define _CS_V5_WIDTH_RESTRICTED_ENVS -1
#endif
#ifndef _CS_XBS5_ILP32_OFF32_CFLAGS
#define _CS_XBS5_ILP32_OFF32_CFLAGS -1
#endif
#ifndef _CS_XBS5_ILP32_OFF32_LDFLAGS
#define _CS_XBS5_ILP32_OFF32_LDFLAGS -1
#endif
#ifndef _CS_XBS5_ILP32_OFF32_LIBS
#define _CS_XBS5_ILP32_OFF32_LIBS -1
#endif
#ifndef _CS_XBS5_ILP32_OFF32_LINTFLAGS
#define _CS_XBS5_ILP32_OFF32_LINTFLAGS -1
#endif
#ifndef _CS_XBS5_ILP32_OFFBIG_CFLAGS
#define _CS_XBS5_ILP32_OFFBIG_CFLAGS -1
#endif
#ifndef _CS_XBS5_ILP32_OFFBIG_LDFLAGS
#define _CS_XBS5_ILP32_OFFBIG_LDFLAGS -1
#endif
#ifndef _CS_XBS5_ILP32_OFFBIG_LIBS
#define _CS_XBS5_ILP32_OFFBIG_LIBS -1
#endif
#ifndef _CS_XBS5_ILP32_OFFBIG_LINTFLAGS
#define _CS_XBS5_ILP32_OFFBIG_LINTFLAGS -1
#endif
#ifndef _CS_XBS5_LP64_OFF64_CFLAGS
#define _CS_XBS5_LP64_OFF64_CFLAGS -1
#endif
#ifndef _CS_XBS5_LP64_OFF64_LDFLAGS
#define _CS_XBS5_LP64_OFF64_LDFLAGS -1
#endif
#ifndef _CS_XBS5_LP64_OFF64_LIBS
#define _CS_XBS5_LP64_OFF64_LIBS -1
#endif
#ifndef _CS_XBS5_LP64_OFF64_LINTFLAGS
#define _CS_XBS5_LP64_OFF64_LINTFLAGS -1
#endif
#ifndef _CS_XBS5_LPBIG_OFFBIG_CFLAGS
#define _CS_XBS5_LPBIG_OFFBIG_CFLAGS -1
#endif
#ifndef _CS_XBS5_LPBIG_OFFBIG_LDFLAGS
#define _CS_XBS5_LPBIG_OFFBIG_LDFLAGS -1
#endif
#ifndef _CS_XBS5_LPBIG_OFFBIG_LIBS
#define _CS_XBS5_LPBIG_OFFBIG_LIBS -1
#endif
#ifndef _CS_XBS5_LPBIG_OFFBIG_LINTFLAGS
#define _CS_XBS5_LPBIG_OFFBIG_LINTFLAGS -1
#endif
#ifndef _PC_SOCK_MAXBUF
#define _PC_SOCK_MAXBUF -1
#endif
#ifndef _SC_2_C_VERSION
#define _SC_2_C_VERSION -1
#endif
#ifndef _SC_AVPHYS_PAGES
#define _SC_AVPHYS_PAGES -1
#endif
#ifndef _SC_BASE
#define _SC_BASE -1
#endif
#ifndef _SC_CHARCLASS_NAME_MAX
#define _SC_CHARCLASS_NAME_MAX -1
#endif
#ifndef _SC_CHAR_BIT
#define _SC_CHAR_BIT -1
#endif
#ifndef _SC_CHAR_MAX
#define _SC_CHAR_MAX -1
#endif
#ifndef _SC_CHAR_MIN
#define _SC_CHAR_MIN -1
#endif
#ifndef _SC_C_LANG_SUPPORT
#define _SC_C_LANG_SUPPORT -1
#endif
#ifndef _SC_C_LANG_SUPPORT_R
#define _SC_C_LANG_SUPPORT_R -1
#endif
#ifndef _SC_DEVICE_IO
#define _SC_DEVICE_IO -1
#endif
#ifndef _SC_DEVICE_SPECIFIC
#define _SC_DEVICE_SPECIFIC -1
#endif
#ifndef _SC_DEVICE_SPECIFIC_R
#define _SC_DEVICE_SPECIFIC_R -1
#endif
#ifndef _SC_EQUIV_CLASS_MAX
#define _SC_EQUIV_CLASS_MAX -1
#endif
#ifndef _SC_FD_MGMT
#define _SC_FD_MGMT -1
#endif
#ifndef _SC_FIFO
#define _SC_FIFO -1
#endif
#ifndef _SC_FILE_ATTRIBUTES
#define _SC_FILE_ATTRIBUTES -1
#endif
#ifndef _SC_FILE_LOCKING
#define _SC_FILE_LOCKING -1
#endif
#ifndef _SC_FILE_SYSTEM
#define _SC_FILE_SYSTEM -1
#endif
#ifndef _SC_INT_MAX
#define _SC_INT_MAX -1
#endif
#ifndef _SC_INT_MIN
#define _SC_INT_MIN -1
#endif
#ifndef _SC_LEVEL1_DCACHE_ASSOC
#define _SC_LEVEL1_DCACHE_ASSOC -1
#endif
#ifndef _SC_LEVEL1_DCACHE_LINESIZE
#define _SC_LEVEL1_DCACHE_LINESIZE -1
#endif
#ifndef _SC_LEVEL1_DCACHE_SIZE
#define _SC_LEVEL1_DCACHE_SIZE -1
#endif
#ifndef _SC_LEVEL1_ICACHE_ASSOC
#define _SC_LEVEL1_ICACHE_ASSOC -1
#endif
#ifndef _SC_LEVEL1_ICACHE_LINESIZE
#define _SC_LEVEL1_ICACHE_LINESIZE -1
#endif
#ifndef _SC_LEVEL1_ICACHE_SIZE
#define _SC_LEVEL1_ICACHE_SIZE -1
#endif
#ifndef _SC_LEVEL2_CACHE_ASSOC
#define _SC_LEVEL2_CACHE_ASSOC -1
#endif
#ifndef _SC_LEVEL2_CACHE_LINESIZE
#define _SC_LEVEL2_CACHE_LINESIZE -1
#endif
#ifndef _SC_LEVEL2_CACHE_SIZE
#define _SC_LEVEL2_CACHE_SIZE -1
#endif
#ifndef _SC_LEVEL3_CACHE_ASSOC
#define _SC_LEVEL3_CACHE_ASSOC -1
#endif
#ifndef _SC_LEVEL3_CACHE_LINESIZE
#define _SC_LEVEL3_CACHE_LINESIZE -1
#endif
#ifndef _SC_LEVEL3_CACHE_SIZE
#define _SC_LEVEL3_CACHE_SIZE -1
#endif
#ifndef _SC_LEVEL4_CACHE_ASSOC
#define _SC_LEVEL4_CACHE_ASSOC -1
#endif
#ifndef _SC_LEVEL4_CACHE_LINESIZE
#define _SC_LEVEL4_CACHE_LINESIZE -1
#endif
#ifndef _SC_LEVEL4_CACHE_SIZE
#define _SC_LEVEL4_CACHE_SIZE -1
#endif
#ifndef _SC_LONG_BIT
#define _SC_LONG_BIT -1
#endif
#ifndef _SC_MB_LEN_MAX
#define _SC_MB_LEN_MAX -1
#endif
#ifndef _SC_MULTI_PROCESS
#define _SC_MULTI_PROCESS -1
#endif
#ifndef _SC_NETWORKING
#define _SC_NETWORKING -1
#endif
#ifndef _SC_NL_ARGMAX
#define _SC_NL_ARGMAX -1
#endif
#ifndef _SC_NL_LANGMAX
#define _SC_NL_LANGMAX -1
#endif
#ifndef _SC_NL_MSGMAX
#define _SC_NL_MSGMAX -1
#endif
#ifndef _SC_NL_NMAX
#define _SC_NL_NMAX -1
#endif
#ifndef _SC_NL_SETMAX
#define _SC_NL_SETMAX -1
#endif
#ifndef _SC_NL_TEXTMAX
#define _SC_NL_TEXTMAX -1
#endif
#ifndef _SC_NPROCESSORS_CONF
#define _SC_NPROCESSORS_CONF -1
#endif
#ifndef _SC_NPROCESSORS_ONLN
#define _SC_NPROCESSORS_ONLN -1
#endif
#ifndef _SC_NZERO
#define _SC_NZERO -1
#endif
#ifndef _SC_PASS_MAX
#define _SC_PASS_MAX -1
#endif
#ifndef _SC_PHYS_PAGES
#define _SC_PHYS_PAGES -1
#endif
#ifndef _SC_PII
#define _SC_PII -1
#endif
#ifndef _SC_PII_INTERNET
#define _SC_PII_INTERNET -1
#endif
#ifndef _SC_PII_INTERNET_DGRAM
#define _SC_PII_INTERNET_DGRAM -1
#endif
#ifndef _SC_PII_INTERNET_STREAM
#define _SC_PII_INTERNET_STREAM -1
#endif
#ifndef _SC_PII_OSI
#define _SC_PII_OSI -1
#endif
#ifndef _SC_PII_OSI_CLTS
#define _SC_PII_OSI_CLTS -1
#endif
#ifndef _SC_PII_OSI_COTS
#define _SC_PII_OSI_COTS -1
#endif
#ifndef _SC_PII_OSI_M
#define _SC_PII_OSI_M -1
#endif
#ifndef _SC_PII_SOCKET
#define _SC_PII_SOCKET -1
#endif
#ifndef _SC_PII_XTI
#define _SC_PII_XTI -1
#endif
#ifndef _SC_PIPE
#define _SC_PIPE -1
#endif
#ifndef _SC_POLL
#define _SC_POLL -1
#endif
#ifndef _SC_REGEX_VERSION
#define _SC_REGEX_VERSION -1
#endif
#ifndef _SC_SCHAR_MAX
#define _SC_SCHAR_MAX -1
#endif
#ifndef _SC_SCHAR_MIN
#define _SC_SCHAR_MIN -1
#endif
#ifndef _SC_SELECT
#define _SC_SELECT -1
#endif
#ifndef _SC_SHRT_MAX
#define _SC_SHRT_MAX -1
#endif
#ifndef _SC_SHRT_MIN
#define _SC_SHRT_MIN -1
#endif
#ifndef _SC_SIGNALS
#define _SC_SIGNALS -1
#endif
#ifndef _SC_SINGLE_PROCESS
#define _SC_SINGLE_PROCESS -1
#endif
#ifndef _SC_SSIZE_MAX
#define _SC_SSIZE_MAX -1
#endif
#ifndef _SC_SYSTEM_DATABASE
#define _SC_SYSTEM_DATABASE -1
#endif
#ifndef _SC_SYSTEM_DATABASE_R
#define _SC_SYSTEM_DATABASE_R -1
#endif
#ifndef _SC_T_IOV_MAX
#define _SC_T_IOV_MAX -1
#endif
#ifndef _SC_UCHAR_MAX
#define _SC_UCHAR_MAX -1
#endif
#ifndef _SC_UINT_MAX
#define _SC_UINT_MAX -1
#endif
#ifndef _SC_UIO_MAXIOV
#define _SC_UIO_MAXIOV -1
#endif
#ifndef _SC_ULONG_MAX
#define _SC_ULONG_MAX -1
#endif
#ifndef _SC_USER_GROUPS
#define _SC_USER_GROUPS -1
#endif
#ifndef _SC_USER_GROUPS_R
#define _SC_USER_GROUPS_R -1
#endif
#ifndef _SC_USHRT_MAX
#define _SC_USHRT_MAX -1
#endif
#ifndef _SC_WORD_BIT
#define _SC_WORD_BIT -1
#endif
#ifndef _SC_XBS5_ILP32_OFF32
#define _SC_XBS5_ILP32_OFF32 -1
#endif
#ifndef _SC_XBS5_ILP32_OFFBIG
#define _SC_XBS5_ILP32_OFFBIG -1
#endif
#ifndef _SC_XBS5_LP64_OFF64
#define _SC_XBS5_LP64_OFF64 -1
#endif
#ifndef _SC_XBS5_LPBIG_OFFBIG
#define _SC_XBS5_LPBIG_OFFBIG -1
#endif
#ifndef _SC_XOPEN_LEGACY
#define _SC_XOPEN_LEGACY -1
#endif
#ifndef _SC_XOPEN_XCU_VERSION
#define _SC_XOPEN_XCU_VERSION -1
#endif
#ifndef _SC_XOPEN_XPG2
#define _SC_XOPEN_XPG2 -1
#endif
#ifndef _SC_XOPEN_XPG3
#define _SC_XOPEN_XPG3 -1
#endif
#ifndef _SC_XOPEN_XPG4
#define _SC_XOPEN_XPG4 -1
#endif

#endif
