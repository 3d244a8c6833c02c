// Group handlers: each hands its command line back to the dispatcher with its own table.
//
// Tests of bt1, btdbg, ethutil and ethchan are not to be stopped by a stray Ctrl-C: their groups
// ignore SIGINT before they dispatch, and nothing undoes it. The other groups leave it as it is.

#include "app/app.h"
#include "app/applet_tables.h"
#include "platform/applets.h"

#include <signal.h>

int bt1_group(int argc, char **argv) {
  signal(SIGINT, SIG_IGN);
  return rig_applets_process("bt1", bt1_table, argc, argv);
}

int bt2_group(int argc, char **argv) {
  return rig_applets_process("bt2", bt2_table, argc, argv);
}

int btdbg_group(int argc, char **argv) {
  signal(SIGINT, SIG_IGN);
  return rig_applets_process("btdbg", btdbg_table, argc, argv);
}

int upgrade_group(int argc, char **argv) {
  return rig_applets_process("upgrade", upgrade_table, argc, argv);
}

int ethutil_group(int argc, char **argv) {
  signal(SIGINT, SIG_IGN);
  return rig_applets_process("ethutil", ethutil_table, argc, argv);
}

int ethchan_group(int argc, char **argv) {
  signal(SIGINT, SIG_IGN);
  return rig_applets_process("ethchan", ethchan_table, argc, argv);
}

int uenv_group(int argc, char **argv) {
  return rig_applets_process("uenv", uenv_table, argc, argv);
}

int mcu_group(int argc, char **argv) {
  return rig_applets_process("mcu", mcu_table, argc, argv);
}
