// A plug-in of the toolbox, loaded into the running executable with LD_PRELOAD.
//
// Its constructor runs before main, looks the exported functions up in the program by name and
// calls them. What it does is a word of the environment variable BENCHRIG_PLUGIN: "all", a command
// code, a disk's node, or a node with "ram:", "send:" or "update:" in front ("update:" takes
// several nodes, with a comma between them).

#include "benchrig/sata.h"
#include "benchrig/ssd_update.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <cstddef>

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

// What an image's buffer and a buffer for the drive's memory hold before anything is read into
// them.
constexpr unsigned char kFill = 0xA5;

void print_ram(const char *label, int result, const unsigned char *ram) {
  printf("%s %d", label, result);
  for (int i = 0; i < SSD_TAG_BLOCK_SIZE; i += SATA_SECTOR_SIZE)
    print_sector(ram + i);
  puts("");
}

// The controller's RAM through both ways, into a buffer that is not empty.
void read_ram(const char *path) {
  FIND(korsata_read_ram);
  FIND(sata_command_execute_esata);
  static unsigned char ram[SSD_TAG_BLOCK_SIZE];
  memset(ram, kFill, sizeof ram);
  int result = korsata_read_ram_(path, 0, ram, sizeof ram);
  print_ram("korsata_read_ram", result, ram);

  static unsigned char request[SATA_SECTOR_SIZE] = {0xFF, 0xE5, 0x86, 0x03};
  unsigned char count = 1;
  const int fd = open(path, O_RDWR | O_NONBLOCK);
  sata_command_execute_esata_(fd, 136, &count, 0xFFu, static_cast<void *>(request));
  memset(ram, kFill, sizeof ram);
  count = 8;
  result = sata_command_execute_esata_(fd, 134, &count, 0x86u, static_cast<void *>(ram));
  print_ram("sata_command_execute_esata", result, ram);
  close(fd);
}

// The file "image.bin" as the image of an update: its length. The buffer is larger than the file.
unsigned int load_image(unsigned char *image, std::size_t size) {
  memset(image, kFill, size);
  const int file = open("image.bin", O_RDONLY);
  const ssize_t length = read(file, image, size);
  close(file);
  return static_cast<unsigned int>(length);
}

unsigned char image_buffer[1 << 17];

void send_image(const char *path) {
  FIND(korsata_download_microcode_cmd);
  const unsigned int length = load_image(image_buffer, sizeof image_buffer);
  printf("send %d\n", korsata_download_microcode_cmd_(path, image_buffer, length));
}

void swap_pairs(unsigned char *text, int size) {
  for (int i = 0; i < size; i += 2) {
    const unsigned char first = text[i];
    text[i] = text[i + 1];
    text[i + 1] = first;
  }
}

void update_drive(const char *path) {
  FIND(sata_command_execute);
  FIND(korsata_download_microcode);
  unsigned char identify[SATA_SECTOR_SIZE] = {};
  const int fd = open(path, O_RDWR | O_NONBLOCK);
  sata_command_execute_(fd, 236, identify);
  close(fd);
  swap_pairs(identify + 20, 20);
  swap_pairs(identify + 46, 48);
  const unsigned int length = load_image(image_buffer, sizeof image_buffer);
  printf("update %d\n",
         korsata_download_microcode_(path, image_buffer, length, "QXFW01A3", identify));
}

const char *after(const char *word, const char *prefix) {
  return strncmp(word, prefix, strlen(prefix)) == 0 ? word + strlen(prefix) : nullptr;
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
  else if (const char *ram = after(word, "ram:"))
    read_ram(ram);
  else if (const char *sent = after(word, "send:"))
    send_image(sent);
  else if (const char *updated = after(word, "update:"))
    update_drive(updated);
  else
    call_with_null(atoi(word));
  fflush(stdout);
  _exit(0);
}

}  // namespace
