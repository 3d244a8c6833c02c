// mem: reads, writes, fills, loads and saves physical memory through /dev/mem, and sets or clears a
// bit of a word.
//
// Every operation maps the pages that hold its region, works on them and unmaps them. What goes
// wrong is printed and ends with status 0, but for a fill file that fails and a dump of no bytes:
// those return -1 with the device still open. Both are deliberate, as is the second 0x that "0x%p"
// prints.

#include "debug/debug_tools.h"

#include "common/numbers.h"
#include "debug/memory_dump.h"
#include "debug/physical_memory.h"

#include <sys/stat.h>

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <cstdint>

namespace {

constexpr const char *kVersion = "1.00.01";
constexpr std::uint32_t kDefaultLength = 0x100;
constexpr std::size_t kNameSize = 256;

void mem_help() {
  puts("Help:\r");
  printf("mem version:%s\r\n", kVersion);
  puts("  w        [addr] [data]                  Write a word into memory\r");
  puts("  r        [addr] (length)                Read a region of memory\r");
  puts("  fill     [addr] [length] (data)         Fill a region of memory with date value\r");
  puts("  fillfile [addr] [length] (filename)     Read file data and fill them into memory\r");
  puts("  dump     [addr] (length) (filename)     Dump a region of memory to a file\r");
  puts(
      "  bit      [addr] (bit Num)(val)          "
      "To do the specific address bit operation with value 0(clear) or 1(set)\r");
  puts("\r");
  puts("e.g.\r");
  puts("  mem r 0x2000 0x200\r");
  puts("  mem w 0x2000 0x2c00\r");
  puts(
      "  mem fillfile 0x17000000 0 image.bin  --- "
      "Read image.bin into memory address 0x17000000\r");
  puts("  mem bit 0x17000000 20 1              --- To set(1)/clear(0) bit20\r");
}

// Addresses and lengths are printed with %p in several texts.
const void *as_pointer(std::uint64_t value) {
  return reinterpret_cast<const void *>(static_cast<std::uintptr_t>(value));
}

// Failures.

void print_map_failure(const char *operation, std::uint32_t address) {
  printf("\033[31m%s(): \033[0mmmap error for addr %p\r\n", operation, as_pointer(address));
}

// The file operations' form, which doubles the 0x.
void print_file_map_failure(const char *operation, std::uint32_t address) {
  printf("\033[31m%s(): \033[0mmmap error for addr 0x%p\r\n", operation, as_pointer(address));
}

// "create" for a file that is only read as well.
void print_file_failure(const char *operation, const char *name) {
  printf("\033[31m%s(): \033[0mcreate file %s fail errno=%d\r\n", operation, name, errno);
}

// Words.

// A mapping starts with a page, and addresses in it are multiples of 4.
volatile std::uint32_t *as_words(unsigned char *region) {
  return static_cast<volatile std::uint32_t *>(static_cast<void *>(region));
}

bool is_word_address(std::uint32_t address) {
  if (address % 4 == 0)
    return true;
  printf("Address must be 4 bytes align:%p\n", as_pointer(address));
  return false;
}

// Whole rows: the last one shows what follows the region. Of a row that leaves the mapping (at the
// last address of all) the words outside are shown as 0 and not touched.
void mem_dump_console(unsigned char *region, std::uint32_t address, std::uint32_t length,
                      std::size_t readable) {
  static DumpLine line;
  printf("dump phy_addr=%lx , vir_addr=%p, length=%08x to console:\r\n",
         static_cast<unsigned long>(address), static_cast<void *>(region), length);
  for (std::uint64_t row = 0; row < length; row += kDumpRow) {
    DumpWords words = {};
    std::uint64_t at = row;
    for (std::uint32_t &word : words) {
      if (at + sizeof word <= readable)
        word = *as_words(region + at);
      at += sizeof word;
    }
    compose_dump_line(line, address + static_cast<std::uint32_t>(row), words);
    printf("%s", line.data());
    puts("\r");
  }
  puts("\r\n\r");
}

void cmd_mem_r(int device, std::uint32_t address, std::uint32_t length) {
  if (!is_word_address(address))
    return;
  Mapping mapping;
  if (!map_rows(device, address, length, mapping)) {
    print_map_failure("cmd_mem_r", address);
    return;
  }
  printf("addr:0x%08lx map_addr:%p, map_size = 0x%p\r\n", static_cast<unsigned long>(address),
         static_cast<void *>(mapping.start), as_pointer(mapping.asked));
  mem_dump_console(mapping.region, address, length, mapping.readable);
  mem_unmap(mapping);
}

// Not read back: registers need not hold what was written to them.
void cmd_mem_w(int device, std::uint32_t address, std::uint32_t data) {
  if (!is_word_address(address))
    return;
  Mapping mapping;
  if (!map_word(device, address, mapping)) {
    print_map_failure("cmd_mem_w", address);
    return;
  }
  *as_words(mapping.region) = data;
  printf("addr = %p, data = 0x%08X\r\n", as_pointer(address), data);
  mem_unmap(mapping);
}

void cmd_bit_w(int device, std::uint32_t address, std::uint32_t bit, std::uint32_t value) {
  if (!is_word_address(address))
    return;
  Mapping mapping;
  if (!map_word(device, address, mapping)) {
    print_map_failure("cmd_bit_w", address);
    return;
  }
  volatile std::uint32_t *word = as_words(mapping.region);
  printf("\r\taddr = %p, data = 0x%08X\r\n", as_pointer(address), *word);
  *word = with_bit(*word, bit, value);
  if (value == 1)
    printf("\rAfter set Bit#%u:\n", bit);
  else
    printf("\rAfter clear Bit#%u:\n", bit);
  printf("\r\taddr = %p, data = 0x%08X\r\n", as_pointer(address), *word);
  mem_unmap(mapping);
}

// Regions.

// A fill with bytes, although the data is read as a word.
void cmd_mem_fill(int device, std::uint32_t address, std::uint32_t length, std::uint32_t data) {
  if (address % 16 != 0) {
    printf("Address must be 16 bytes align:%p\n", as_pointer(address));
    return;
  }
  if (length % 16 != 0) {
    printf("length must be divided by 16 len:0x%x\n", length);
    return;
  }
  Mapping mapping;
  if (!map_region(device, address, length, mapping)) {
    print_map_failure("cmd_mem_fill", address);
    return;
  }
  printf("addr = %lx mapping_addr:%p, length = 0x%08X, data = 0x%02X size:%d\r\n",
         static_cast<unsigned long>(address), static_cast<void *>(mapping.region), length, data,
         static_cast<int>(length));
  memset(mapping.region, static_cast<int>(data & 0xFF), length);
  mem_unmap(mapping);
}

// Reads the open file into memory, which stays mapped; a length of 0 is the whole file.
int load_file(int device, std::uint32_t address, std::uint32_t length, const char *name, FILE *file,
              Mapping &out_mapping) {
  struct stat status;
  // More than 32 bits of file would be more than there is memory.
  if (stat(name, &status) != 0 || status.st_size > off_t{UINT32_MAX})
    return -1;
  if (length == 0)
    length = static_cast<std::uint32_t>(status.st_size);
  if (!map_region(device, address, length, out_mapping)) {
    print_file_map_failure("cmd_mem_fillfile", address);
    return -1;
  }
  const std::size_t count = fread(out_mapping.region, 1, length, file);
  if (count < length)
    printf("\033[31m%s(): \033[0merror read with size %lu\n", "cmd_mem_fillfile",
           static_cast<unsigned long>(count));
  return 0;
}

int cmd_mem_fillfile(int device, std::uint32_t address, std::uint32_t length, const char *name) {
  if (address % 8 != 0) {
    printf("Address must be divided by 8 addr:0x%lx\n", static_cast<unsigned long>(address));
    return -1;
  }
  FILE *file = fopen(name, "rb");
  if (file == nullptr) {
    print_file_failure("cmd_mem_fillfile", name);
    return -1;
  }
  Mapping mapping;
  const int result = load_file(device, address, length, name, file, mapping);
  fclose(file);
  if (result == 0)
    mem_unmap(mapping);
  return result;
}

void debug_dumpmem2file(const unsigned char *buffer, std::uint32_t length, const char *path) {
  const int file = open(path, O_RDWR | O_CREAT | O_TRUNC, 0777);
  if (file < 0) {
    print_file_failure("debug_dumpmem2file", path);
    return;
  }
  if (length != 0 && write(file, buffer, length) < 0)  // a short write is not noticed
    printf("\033[31m%s(): \033[0mfail to write %d bytes\r\n", "debug_dumpmem2file",
           static_cast<int>(length));
  close(file);
}

void cmd_mem_dump(int device, std::uint32_t address, std::uint32_t length, const char *name) {
  if (address % 4 != 0) {
    printf("Address must be 4 bytes align:0x%lx\n", static_cast<unsigned long>(address));
    return;
  }
  printf("dump addr = 0x%08lx, length = 0x%08X, filename = %s\r\n",
         static_cast<unsigned long>(address), length, name);
  Mapping mapping;
  if (!map_region(device, address, length, mapping)) {
    print_file_map_failure("cmd_mem_dump", address);
    return;
  }
  debug_dumpmem2file(mapping.region, length, name);
  mem_unmap(mapping);
}

// Command line.
//
// An argument that is not a number leaves the default. So does the null pointer after the last one.

std::uint32_t hex_argument(const char *word, std::uint32_t otherwise) {
  scan_u32(word, 16, otherwise);
  return otherwise;
}

// The first word of the argument: a name ends at a blank.
void name_argument(int argc, char **argv, int index, const char *otherwise,
                   char (&out_name)[kNameSize]) {
  snprintf(out_name, sizeof out_name, "%s", otherwise);
  if (index < argc)
    sscanf(argv[index], "%255s", out_name);
}

int run_r(int device, int argc, char **argv) {
  if (argc < 3) {
    puts("syntex: mem r [addr] (length)\r");  // sic, as in all of these
    return 0;
  }
  cmd_mem_r(device, hex_argument(argv[2], 0), hex_argument(argv[3], kDefaultLength));
  return 0;
}

int run_w(int device, int argc, char **argv) {
  if (argc != 4) {
    puts("syntex: mem w [addr] [data]\r");
    return 0;
  }
  cmd_mem_w(device, hex_argument(argv[2], 0), hex_argument(argv[3], 0));
  return 0;
}

int run_fill(int device, int argc, char **argv) {
  if (argc < 4) {
    puts("syntex: mem fill [addr] [length] (data)\r");
    return 0;
  }
  cmd_mem_fill(device, hex_argument(argv[2], 0), hex_argument(argv[3], 0),
               hex_argument(argv[4], 0));
  return 0;
}

int run_fillfile(int device, int argc, char **argv) {
  if (argc < 3) {
    puts("syntex: mem fillfile [addr] [length] (filename)\r");
    return 0;
  }
  char name[kNameSize];
  name_argument(argc, argv, 4, "/mnt/sd/fill.bin", name);
  return cmd_mem_fillfile(device, hex_argument(argv[2], 0), hex_argument(argv[3], 0), name);
}

int run_dump(int device, int argc, char **argv) {
  if (argc < 3) {
    puts("syntex: mem dump [addr] (length) (filename)\r");
    return 0;
  }
  const std::uint32_t length = hex_argument(argv[3], kDefaultLength);
  if (length == 0)
    return -1;
  char name[kNameSize];
  name_argument(argc, argv, 4, "/mnt/sd/dump.bin", name);
  cmd_mem_dump(device, hex_argument(argv[2], 0), length, name);
  return 0;
}

int run_bit(int device, int argc, char **argv) {
  std::uint32_t bit = 0;
  std::uint32_t value = 0;
  if (argc == 5) {
    scan_u32(argv[3], 10, bit);
    scan_u32(argv[4], 10, value);
  }
  if (argc != 5 || value > 1) {
    puts("syntex: mem bit [addr] [bit#num] [1/0] \r");
    return 0;
  }
  cmd_bit_w(device, hex_argument(argv[2], 0), bit, value);
  return 0;
}

struct Command {
  const char *name;
  int (*run)(int device, int argc, char **argv);
};

// clang-format off
constexpr Command kCommands[] = {
    {.name = "r",        .run = run_r},
    {.name = "w",        .run = run_w},
    {.name = "fill",     .run = run_fill},
    {.name = "fillfile", .run = run_fillfile},
    {.name = "dump",     .run = run_dump},
    {.name = "bit",      .run = run_bit},
};
// clang-format on

int run_command(int device, int argc, char **argv) {
  for (const Command &command : kCommands) {
    if (argc >= 2 && strcmp(argv[1], command.name) == 0)
      return command.run(device, argc, argv);
  }
  mem_help();  // "?" and every unknown word as well
  return 0;
}

}  // namespace

int mem_main(int argc, char **argv) {
  const int device = open("/dev/mem", O_RDWR | O_SYNC);  // registers are not to be cached
  if (device < 0) {
    printf("\033[31m%s(): \033[0mOpen /dev/mem device failed\n", "mem_main");
    return -1;
  }
  const int status = run_command(device, argc, argv);
  if (status != 0)
    return status;  // the device stays open: see the head of this file
  close(device);
  return 0;
}
