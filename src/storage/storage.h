// Handlers of the storage and disk tools.

#ifndef BENCHRIG_STORAGE_STORAGE_H
#define BENCHRIG_STORAGE_STORAGE_H

int hdsmart_applet(int argc, char **argv);
int ssd_upgrade_applet(int argc, char **argv);  // "ssd" of the upgrade group
int hdstatus_applet(int argc, char **argv);
int blktrace_applet(int argc, char **argv);
int stor_applet(int argc, char **argv);

#endif
