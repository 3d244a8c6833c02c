// korcmem: the reserved memory blocks of the driver behind /dev/korcmem. Shows one, frees its
// pages, or maps it and hands it back.
//
// Every option takes the block from the second word of the command line and not from its own
// argument: "-i 3 -g 12" frees the pages of block 3. Failures are printed; the status is 0 whenever
// the device opened.

#include "debug/debug_tools.h"

#include "common/numbers.h"
#include "platform/driver/korcmem.h"

#include <sys/ioctl.h>
#include <sys/mman.h>

#include <fcntl.h>
#include <getopt.h>
#include <stdio.h>
#include <unistd.h>

namespace {

constexpr char kUsage[] =
    "\nUsage: korcmem [option]\n"
    "\noption:\n\n"
    "    -i     get cmemblock info\n"
    "    -d     init cmemblock\n"
    "    -a     alloc cmemblock\n"
    "    -f     free memory\n"
    "    -g     free memory pages"  // the lines of -c and -n go on here, sic
    "    -c     dcache memory flush"
    "    -n     dcache memory invalidate\t"
    " -h     print this uage\n"  // sic
    "example:\n\n"
    "\t korcmem  -g  [cmemid] ---The korcmemblock free pages \n";

constexpr const char *kRoutine = "korcmem_main";

void korcmem_usage() {
  fwrite(kUsage, 1, sizeof kUsage - 1, stderr);
}

bool is_valid_block(int id) {
  return id >= KORCMEM_ID_MIN && id <= KORCMEM_ID_MAX;
}

bool get_info(int device, int id, CmemInfo &out_info) {
  out_info = {};
  out_info.id = id;
  return ioctl(device, KORCMEM_CMEMINFO, &out_info) >= 0;
}

void free_pages(int device, int id) {
  CmemPages pages = {};
  pages.id = id;
  if (ioctl(device, KORCMEM_PAGE_FREE, &pages) < 0)
    printf("[%s]page free error\n", kRoutine);
}

void show_block(int device, int id) {
  CmemInfo info;
  if (!get_info(device, id, info)) {
    printf("[%s]KORCMEM_CMEMINFO error\n", kRoutine);
    return;
  }
  printf("cmem id %d\n", info.id);
  printf("cmem name %.*s\n", static_cast<int>(sizeof info.name), info.name);
  printf("cmem base %llx\n", static_cast<unsigned long long>(info.base));
  printf("cmem size %llx\n", static_cast<unsigned long long>(info.size));
}

void free_block_pages(int device, int id) {
  if (is_valid_block(id))
    free_pages(device, id);
  else
    printf("cmemid is %d this is error cmemid!\n", id);
}

// False when the block could not be mapped or the driver did not end the use of the mapping.
bool map_and_finish(int device, const CmemInfo &info) {
  // The board's addresses and sizes have 32 bits.
  const std::size_t size = static_cast<std::uint32_t>(info.size);
  const off_t base = static_cast<off_t>(static_cast<std::uint32_t>(info.base));
  void *mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, device, base);
  if (mapping == MAP_FAILED) {
    printf("[%s]mmap error\n", kRoutine);
    return false;
  }
  std::uint32_t finished = 0;  // which the driver does not look at
  const bool done = ioctl(device, KORCMEM_FINISH, &finished) >= 0;
  if (!done)
    printf("[%s]KORCMEM_FINISH error\n", kRoutine);
  munmap(mapping, size);
  return done;
}

void map_and_release(int device, int id) {
  if (!is_valid_block(id)) {
    printf("[%s]cmemid is %d this is error cmemid!\n", kRoutine, id);
    return;
  }
  CmemInfo info;
  if (!get_info(device, id, info)) {
    printf("[%s]KORCMEM_CMEMINFO error\n", kRoutine);
    return;
  }
  printf("cmemblock base:0x%llx size:0x%llx\n", static_cast<unsigned long long>(info.base),
         static_cast<unsigned long long>(info.size));
  if (!map_and_finish(device, info))
    return;

  CmemRange range = {};
  range.base = info.base;
  range.size = info.size;
  range.id = id;
  if (ioctl(device, KORCMEM_RELEASE, &range) < 0)
    printf("[%s]KORCMEM_CMEMINFO error\n", kRoutine);  // the info request's text, sic
  free_pages(device, id);
}

void run_option(int device, int option, const char *block) {
  // An option that came with its block in one word ("-i3") may leave no second word.
  if (block == nullptr) {
    korcmem_usage();
    return;
  }
  const int id = parse_decimal(block);
  switch (option) {
    case 'i':
      show_block(device, id);
      break;
    case 'g':
      free_block_pages(device, id);
      break;
    case 'w':
      map_and_release(device, id);
      break;
    default:  // listed in the usage, and doing nothing else than to print it
      korcmem_usage();
      break;
  }
}

}  // namespace

int korcmem_main(int argc, char **argv) {
  const int device = open(KORCMEM_DEVICE, O_RDWR | O_NONBLOCK);
  if (device < 0) {
    puts("open /dev/korcmem error!");
    return -1;
  }
  int option;
  optind = 0;
  while ((option = getopt(argc, argv, "hi:d:a:f:g:c:n:w:")) != -1)
    run_option(device, option, argc > 2 ? argv[2] : nullptr);
  close(device);
  return 0;
}
