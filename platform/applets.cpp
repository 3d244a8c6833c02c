// The dispatcher of applet tables, and the listing that answers when there is nothing to run.

#include "platform/applets.h"

#include <stdio.h>
#include <string.h>

namespace {

const AppletEntry *find_row(const AppletEntry *table, const char *word) {
  for (const AppletEntry *row = table; row->name != nullptr; ++row) {
    if (strcmp(row->name, word) == 0)
      return row;
  }
  return nullptr;
}

void print_rows(const char *name, const AppletEntry *table) {
  printf("%s:\n", name);
  for (const AppletEntry *row = table; row->name != nullptr; ++row)
    printf("  %-12s %c %s\n", row->name, row->group != 0 ? '>' : ' ',
           row->description != nullptr ? row->description : "");
}

}  // namespace

int rig_applets_process(const char *name, AppletEntry *table, int argc, char **argv) {
  const AppletEntry *row = argc >= 2 ? find_row(table, argv[1]) : nullptr;
  if (row == nullptr || row->handler == nullptr) {
    print_rows(name, table);
    return 1;
  }
  return row->handler(argc - 1, argv + 1);
}
