// How many processors the kernel lists.

#ifndef BENCHRIG_DEBUG_PROCESSOR_COUNT_H
#define BENCHRIG_DEBUG_PROCESSOR_COUNT_H

#include <stdio.h>

// The lines of /proc/cpuinfo that begin with "processor".
int count_processors(FILE *cpuinfo);

#endif
