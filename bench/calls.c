/* What single calls cost: calls FILE ROUNDS prints nanoseconds for one call of each kind, a line
   each with its name. A device that is not there is left out. */

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

static double now(void) {
  struct timespec time;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return 1e9 * (double)time.tv_sec + (double)time.tv_nsec;
}

/* The best of several stretches: what disturbs one makes it longer. */
#define MEASURE(name, call)                                          \
  do {                                                               \
    double best = 1e18;                                              \
    for (int part = 0; part < 10; ++part) {                          \
      const double started = now();                                  \
      for (long i = 0; i < rounds / 10; ++i)                         \
        call;                                                        \
      const double each = (now() - started) / (double)(rounds / 10); \
      best = each < best ? each : best;                              \
    }                                                                \
    printf("%s %.1f\n", name, best);                                 \
  } while (0)

int main(int argc, char **argv) {
  if (argc != 3)
    return 2;
  const long rounds = atol(argv[2]);
  MEASURE("open+close", close(open(argv[1], O_RDONLY)));

  int ends[2];
  int waiting;
  if (pipe(ends) != 0)
    return 1;
  MEASURE("ioctl", ioctl(ends[0], FIONREAD, &waiting));

  unsigned char byte = 0;
  const int display = open("/dev/lcd", O_RDWR);
  if (display >= 0) {
    MEASURE("display-byte", ioctl(display, 0x40044C81, &byte));
    close(display);
  }
  if (access("/dev/iccard", F_OK) == 0)
    MEASURE("card-open", close(open("/dev/iccard", O_RDWR)));
  const int flash = open("/dev/mtd1", O_RDWR);
  if (flash >= 0)
    MEASURE("flash-read", (lseek(flash, 0, SEEK_SET), read(flash, &byte, 1)));
  return 0;
}
