// Writes to both standard streams by turns, in each of libc's ways.

#include <errno.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>

namespace {

__attribute__((format(printf, 2, 3))) void print_to(FILE *stream, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vfprintf(stream, format, arguments);
  va_end(arguments);
}

}  // namespace

int main() {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  const char *text = "c\n";
  puts("a");
  fputs("b\n", stderr);
  printf("%s", text);
  fprintf(stderr, "%c\n", 'd');
  putchar('e');
  putchar('\n');
  fputc('f', stderr);
  putc('\n', stderr);
  fwrite("g\n", 1, 2, stdout);
  fwrite("h\n", 1, 2, stderr);
  print_to(stdout, "%c\n", 'i');
  print_to(stderr, "%c\n", 'j');
  fputs_unlocked("k\n", stdout);
  fputs_unlocked("l\n", stderr);
  fwrite_unlocked("m\n", 1, 2, stdout);
  fwrite_unlocked("n\n", 1, 2, stderr);
  fputc_unlocked('o', stdout);
  putc_unlocked('\n', stdout);
  fputc_unlocked('p', stderr);
  putc_unlocked('\n', stderr);
  puts("q");
  errno = ENOENT;
  perror("r");
  puts("s");
  psignal(SIGINT, "t");
  return 0;
}
