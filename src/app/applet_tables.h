// The words of the command line: nine tables, each ended by an all-zero row.
//
// A table's order is the order of its listing; the bt1 table's order is also the order in which the
// board check runs its tests. The arrays are plain writable data and are never changed.

#ifndef BENCHRIG_APP_APPLET_TABLES_H
#define BENCHRIG_APP_APPLET_TABLES_H

#include "platform/applets.h"

// Rows of each table, without the end row.
inline constexpr int kTopRows = 9;
inline constexpr int kBt1Rows = 11;
inline constexpr int kBt2Rows = 27;
inline constexpr int kBtdbgRows = 4;
inline constexpr int kUpgradeRows = 11;
inline constexpr int kEthchanRows = 4;
inline constexpr int kEthutilRows = 5;
inline constexpr int kUenvRows = 3;
inline constexpr int kMcuRows = 2;

extern AppletEntry top_table[kTopRows + 1];
extern AppletEntry bt1_table[kBt1Rows + 1];
extern AppletEntry bt2_table[kBt2Rows + 1];
extern AppletEntry btdbg_table[kBtdbgRows + 1];
extern AppletEntry upgrade_table[kUpgradeRows + 1];
extern AppletEntry ethchan_table[kEthchanRows + 1];
extern AppletEntry ethutil_table[kEthutilRows + 1];
extern AppletEntry uenv_table[kUenvRows + 1];
extern AppletEntry mcu_table[kMcuRows + 1];

#endif
