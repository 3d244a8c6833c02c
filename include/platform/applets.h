/* Applet tables and their dispatch. */

#ifndef PLATFORM_APPLETS_H
#define PLATFORM_APPLETS_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Runs one applet. argv[0] is the applet's own name, argv[argc] is null. The status becomes the
 * process's exit status, of which the system keeps the low eight bits. */
typedef int (*AppletHandler)(int argc, char **argv);

/* One row of an applet table. A table ends with a row whose four fields are all zero. */
typedef struct AppletEntry {
  const char *name;        /* the word that selects the row, compared exactly */
  AppletHandler handler;   /* may be null: the row is listed but cannot be run */
  int32_t group;           /* 1 when the row opens a further table, else 0 */
  const char *description; /* one line for the listing */
} AppletEntry;

static_assert(sizeof(void *) != 4 || sizeof(AppletEntry) == 16, "four words on the board");

/* Runs the row of `table` whose name equals argv[1], the first one when several do: calls its
 * handler with argc - 1 and argv + 1 and returns the handler's status unchanged.
 *
 * `name` is the name of this level, the program's or the group's. Without an applet word (argc
 * below 2), with a word that no row has and for a row without a handler it lists the level's name
 * and every row's name and description on standard output, in table order, and returns 1.
 *
 * Needs nothing of the kernel. */
RIG_API int rig_applets_process(const char *name, AppletEntry *table, int argc, char **argv);

#ifdef __cplusplus
}
#endif

#endif
