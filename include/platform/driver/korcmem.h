/* The contiguous-memory driver, /dev/korcmem: numbered memory blocks that are reserved for the
 * media hardware. A block is mapped with mmap() at its physical base as the offset. */

#ifndef PLATFORM_DRIVER_KORCMEM_H
#define PLATFORM_DRIVER_KORCMEM_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#define KORCMEM_DEVICE "/dev/korcmem"

#define KORCMEM_CMEMINFO 0xC0806D01u  /* CmemInfo with its id set; fills the rest */
#define KORCMEM_RELEASE 0xC0406D0Cu   /* CmemRange: hands the range back after KORCMEM_FINISH */
#define KORCMEM_PAGE_FREE 0xC0206D14u /* CmemPages: frees the block's pages */
#define KORCMEM_FINISH 0xC0046D1Eu    /* a 32-bit word, 0: ends the use of the mapping */

/* Blocks whose pages may be freed or mapped. */
#define KORCMEM_ID_MIN 10
#define KORCMEM_ID_MAX 15

typedef struct CmemInfo {
  int32_t id;           /*   0: block */
  char name[64];        /*   4: NUL-terminated */
  uint8_t padding[4];   /*  68 */
  uint64_t base;        /*  72: physical address */
  uint64_t size;        /*  80: bytes */
  uint8_t reserved[40]; /*  88 */
} CmemInfo;

static_assert(sizeof(CmemInfo) == 128, "record size");
static_assert(offsetof(CmemInfo, name) == 4, "record offset");
static_assert(offsetof(CmemInfo, base) == 72, "record offset");
static_assert(offsetof(CmemInfo, size) == 80, "record offset");
static_assert(offsetof(CmemInfo, reserved) == 88, "record offset");

typedef struct CmemRange {
  uint64_t base;        /*  0: physical address */
  uint64_t size;        /*  8: bytes */
  int32_t id;           /* 16: block */
  uint8_t reserved[44]; /* 20 */
} CmemRange;

static_assert(sizeof(CmemRange) == 64, "record size");
static_assert(offsetof(CmemRange, size) == 8, "record offset");
static_assert(offsetof(CmemRange, id) == 16, "record offset");
static_assert(offsetof(CmemRange, reserved) == 20, "record offset");

typedef struct CmemPages {
  int32_t id;           /* 0: block */
  uint8_t reserved[28]; /* 4 */
} CmemPages;

static_assert(sizeof(CmemPages) == 32, "record size");
static_assert(offsetof(CmemPages, reserved) == 4, "record offset");

#endif
