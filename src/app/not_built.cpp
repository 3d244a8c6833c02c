// What the rows run whose applet is not built yet: it fails, and says why.

#include "app/not_built.h"

#include <stdio.h>

int not_built_main([[maybe_unused]] int argc, char **argv) {
  fprintf(stderr, "%s: not built yet\n", argv[0]);
  return -1;
}
