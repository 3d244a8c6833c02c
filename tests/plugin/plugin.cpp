// A plug-in of the toolbox, loaded into the running executable with LD_PRELOAD.
//
// Its constructor runs before main, looks the exported functions up in the program by name and
// calls them. What it does is a word of the environment variable BENCHRIG_PLUGIN: "all", a command
// code, or a disk's node.

#include "benchrig/sata.h"
#include "benchrig/ssd_update.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace {

void *find(const char *name) {
  void *const program = dlopen(nullptr, RTLD_NOW);
  void *const address = dlsym(program, name);
  if (address == nullptr) {
    printf("missing %s\n", name);
    exit(90);
  }
  // The program's own and not a library's.
  Dl_info info;
  Dl_info own;
  if (dladdr(address, &info) == 0 || dladdr(dlsym(program, "sata_command_execute"), &own) == 0 ||
      info.dli_fbase != own.dli_fbase) {
    printf("foreign %s\n", name);
    exit(91);
  }
  return address;
}

#define FIND(name) const auto name##_ = reinterpret_cast<decltype(&name)>(find(#name))

void call_all() {
  FIND(sata_command_execute);
  FIND(sata_command_execute_esata);
  FIND(ctoi);
  FIND(hex_to_ascii);
  FIND(korsata_read_ram);
  FIND(korsata_modify_fw_identify);
  FIND(korsata_download_microcode_cmd);
  FIND(korsata_get_bin_fwver);
  FIND(korsata_download_microcode);
  FIND(korstore_analyse_identify_ssdwwn);
  FIND(korstore_get_fw_tag);
  FIND(korstore_compare_binfile);

  static unsigned char image[8192];
  static unsigned char ram[SSD_TAG_BLOCK_SIZE];
  unsigned char sector[SATA_SECTOR_SIZE] = {};
  unsigned char count = 1;
  const int fd = open("/dev/null", O_RDWR);

  printf("ctoi %d %d\n", ctoi_('f'), ctoi_('g'));
  printf("hex_to_ascii %c\n", hex_to_ascii_(15));
  printf("sata_command_execute %d\n", sata_command_execute_(fd, 215, sector));
  printf("sata_command_execute %d\n", sata_command_execute_(fd, 236, sector));
  printf("sata_command_execute_esata %d\n", sata_command_execute_esata_(fd, 213, sector));
  printf("sata_command_execute_esata %d\n",
         sata_command_execute_esata_(fd, 134, &count, 0x86u, static_cast<void *>(sector)));
  printf("korsata_modify_fw_identify %d\n",
         korsata_modify_fw_identify_(image, "S", "5001B448A1B2C3D4", "ABCDEFG2", "QX-SSD"));
  char revision[9];
  const char *model = korsata_get_bin_fwver_(image, revision);
  printf("korsata_get_bin_fwver %s %td\n", revision, model - reinterpret_cast<char *>(image));
  char wwn[17] = "";
  const int named = korstore_analyse_identify_ssdwwn_(image + 4192, wwn);
  printf("korstore_analyse_identify_ssdwwn %d %s\n", named, wwn);
  memcpy(ram + 720, "TQSSD", 5);
  memcpy(ram + 766, "RB7730", 6);
  ram[1076] = 42;
  FirmwareTag tag = {};
  const int found = korstore_get_fw_tag_(ram, 1, &tag);
  printf("korstore_get_fw_tag %d %u %u\n", found, tag.kind, tag.variant);
  printf("korstore_compare_binfile %d\n", korstore_compare_binfile_(image, ram));
  printf("korsata_download_microcode_cmd %d\n", korsata_download_microcode_cmd_(nullptr, image, 1));
  printf("korsata_download_microcode %d\n",
         korsata_download_microcode_("/none", image, sizeof image, "ABCDEFG2", sector));
  printf("korsata_read_ram %d\n", korsata_read_ram_("/none", 0, ram, sizeof ram));
  close(fd);
}

// A null argument of the six codes that assert it; never returns from one that does.
void call_with_null(int code) {
  FIND(sata_command_execute_esata);
  static unsigned char data[SATA_SECTOR_SIZE];
  const int fd = open("/dev/null", O_RDWR);
  const int result = sata_command_execute_esata_(fd, code, nullptr, 0u, static_cast<void *>(data));
  printf("%d returned %d\n", code, result);
}

void print_sector(const unsigned char *sector) {
  unsigned int sum = 0;
  for (int i = 0; i < SATA_SECTOR_SIZE; ++i)
    sum = (sum * 31 + sector[i]) & 0xFFFF;
  printf(" %04x", sum);
}

// Every code on a disk, through both transports: results, and what came back of a sector.
void call_on_disk(const char *path) {
  FIND(sata_command_execute);
  FIND(sata_command_execute_esata);
  const int fd = open(path, O_RDWR | O_NONBLOCK);
  constexpr int kHdio[] = {0, 208, 209, 210, 212, 213, 214, 216, 217, 216, 218, 219, 224, 231, 236};
  for (const int code : kHdio) {
    unsigned char sector[SATA_SECTOR_SIZE] = {};
    printf("hdio %d %d", code, sata_command_execute_(fd, code, sector));
    print_sector(sector);
    puts("");
  }
  constexpr int kSgIo[] = {208, 209, 210, 212, 216, 217, 216, 218, 224, 231, 236, 239};
  for (const int code : kSgIo) {
    unsigned char sector[SATA_SECTOR_SIZE] = {};
    printf("sg %d %d", code, sata_command_execute_esata_(fd, code, sector));
    print_sector(sector);
    puts("");
  }
  close(fd);
}

// Other processes of a run inherit the preload too.
bool is_the_program() {
  char path[256];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
  path[length > 0 ? length : 0] = '\0';
  const char *slash = strrchr(path, '/');
  return slash != nullptr && strcmp(slash + 1, "benchrig") == 0;
}

[[gnu::constructor]] void run() {
  const char *word = getenv("BENCHRIG_PLUGIN");
  if (word == nullptr || !is_the_program())
    return;
  if (strcmp(word, "all") == 0)
    call_all();
  else if (word[0] == '/')
    call_on_disk(word);
  else
    call_with_null(atoi(word));
  fflush(stdout);
  _exit(0);
}

}  // namespace
