// Handlers of the debug and memory tools.
//
// Not debug/debug.h: the C++ library has a header of that name, which this one would stand before.

#ifndef BENCHRIG_DEBUG_DEBUG_TOOLS_H
#define BENCHRIG_DEBUG_DEBUG_TOOLS_H

int mem_main(int argc, char **argv);
int main_pstat(int argc, char **argv);
int proctrace_main(int argc, char **argv);
int getconf_main(int argc, char **argv);

int korcmem_main(int argc, char **argv);
int mem_hotplug_main(int argc, char **argv);
int loop_main(int argc, char **argv);
int malloc_main(int argc, char **argv);
int dtbofs_main(int argc, char **argv);
int dtbofcell_main(int argc, char **argv);

// In no applet table: for programs that bring a table of their own.
int dtbofu32_main(int argc, char **argv);
int dtbofu64_main(int argc, char **argv);

#endif
