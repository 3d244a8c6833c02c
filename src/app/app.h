// Handlers of the applet framework itself.

#ifndef BENCHRIG_APP_APP_H
#define BENCHRIG_APP_APP_H

int version_main(int argc, char **argv);
int autotest_main(int argc, char **argv);

// Group handlers: each opens the table of its group.
int bt1_group(int argc, char **argv);
int bt2_group(int argc, char **argv);
int btdbg_group(int argc, char **argv);
int upgrade_group(int argc, char **argv);
int ethutil_group(int argc, char **argv);
int ethchan_group(int argc, char **argv);
int uenv_group(int argc, char **argv);
int mcu_group(int argc, char **argv);

#endif
