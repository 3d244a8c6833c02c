// Handlers of the firmware and flash maintenance tools.

#ifndef BENCHRIG_UPGRADE_UPGRADE_H
#define BENCHRIG_UPGRADE_UPGRADE_H

int bootparam_main(int argc, char **argv);
int cpldinfo_main(int argc, char **argv);
int bsp_main(int argc, char **argv);
int uenv_list_main(int argc, char **argv);
int uenv_get_main(int argc, char **argv);
int uenv_set_main(int argc, char **argv);

#endif
