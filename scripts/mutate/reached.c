/* Linked into every program of the coverage build, which g++ compiles with -fsanitize-coverage=trace-pc:
 * each basic block calls the function below.
 *
 * It sets the block's byte in a file that is mapped shared, so that nothing is lost when the program
 * ends by a signal, by _exit() or by a reset of its board. The folder is $MUTATE_COVERAGE, the file
 * is named after the program's or library's build ID, and a byte's place is that of the block. System
 * calls are made directly: the virtual board's libc must not notice them. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <link.h>
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#define HIDDEN __attribute__((visibility("hidden")))

extern const ElfW(Ehdr) __ehdr_start HIDDEN;
extern const char etext[] HIDDEN;
extern char **environ;

#define NOT_OPENED ((unsigned char *)0)
#define NOT_WANTED ((unsigned char *)1)

static unsigned char *reached = NOT_OPENED;

static const unsigned char *build_id(unsigned *size) {
  const char *base = (const char *)&__ehdr_start;
  const ElfW(Phdr) *header = (const ElfW(Phdr) *)(base + __ehdr_start.e_phoff);
  for (int i = 0; i < __ehdr_start.e_phnum; i++) {
    if (header[i].p_type != PT_NOTE)
      continue;
    /* An executable at a fixed address has it in p_vaddr; the file's offset serves both. */
    const char *note = base + header[i].p_offset;
    const char *end = note + header[i].p_filesz;
    while (note < end) {
      const ElfW(Nhdr) *head = (const ElfW(Nhdr) *)note;
      const char *name = note + sizeof(*head);
      const char *content = name + ((head->n_namesz + 3) & ~3u);
      if (head->n_type == NT_GNU_BUILD_ID && memcmp(name, "GNU", 4) == 0) {
        *size = head->n_descsz;
        return (const unsigned char *)content;
      }
      note = content + ((head->n_descsz + 3) & ~3u);
    }
  }
  return 0;
}

static unsigned char *open_map(void) {
  static const char name[] = "MUTATE_COVERAGE=";
  const char *folder = 0;
  for (char **one = environ; one && *one; one++)
    if (strncmp(*one, name, sizeof(name) - 1) == 0)
      folder = *one + sizeof(name) - 1;
  unsigned id_size = 0;
  const unsigned char *id = build_id(&id_size);
  if (!folder || !id || strlen(folder) > 1000)
    return NOT_WANTED;

  char path[1100];
  size_t length = strlen(folder);
  memcpy(path, folder, length);
  path[length++] = '/';
  for (unsigned i = 0; i < id_size && i < 20; i++) {
    path[length++] = "0123456789abcdef"[id[i] >> 4];
    path[length++] = "0123456789abcdef"[id[i] & 15];
  }
  path[length] = '\0';

  const size_t size = (size_t)(etext - (const char *)&__ehdr_start);
  long file = syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (file < 0)
    return NOT_WANTED;
  unsigned char *map = NOT_WANTED;
  if (syscall(SYS_ftruncate, file, (long)size) == 0) {
#ifdef SYS_mmap2
    long address = syscall(SYS_mmap2, 0, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
#else
    long address = syscall(SYS_mmap, 0, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
#endif
    if (address != -1)
      map = (unsigned char *)address;
  }
  syscall(SYS_close, file);
  return map;
}

HIDDEN void __sanitizer_cov_trace_pc(void) {
  unsigned char *map = __atomic_load_n(&reached, __ATOMIC_ACQUIRE);
  if (map == NOT_OPENED) {
    int kept = errno;
    map = open_map();
    errno = kept;
    __atomic_store_n(&reached, map, __ATOMIC_RELEASE);
  }
  if (map != NOT_WANTED)
    map[(uintptr_t)__builtin_return_address(0) - (uintptr_t)&__ehdr_start] = 1;
}
