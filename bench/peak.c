/* Runs a command and prints the most memory that it had in use, in kilobytes, as its last line of
   standard error. A small program does this, since a process starts as large as its parent was. */

#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char **argv) {
  (void)argc;
  pid_t child = fork();
  if (child == 0) {
    execvp(argv[1], argv + 1);
    _exit(127);
  }
  int status;
  struct rusage usage;
  if (child < 0 || wait4(child, &status, 0, &usage) != child)
    return 1;
  fprintf(stderr, "\n%ld\n", usage.ru_maxrss);
  return 0;
}
