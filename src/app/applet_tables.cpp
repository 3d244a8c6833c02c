// The applet tables.
//
// Rows of applets that are not built yet carry not_built_main, so that the command line is complete
// and says so itself. Of the net subsystem nothing is built yet, and it has no header: its rows all
// carry it.
//
// The third column marks the rows of the top table that open a group. uenv and mcu open tables too
// and are not marked: they are listed like the tools that they stand among.

#include "app/applet_tables.h"

#include "app/app.h"
#include "app/not_built.h"
#include "board/board.h"
#include "debug/debug_tools.h"
#include "serial/serial.h"
#include "storage/storage.h"
#include "upgrade/upgrade.h"

// clang-format off
AppletEntry top_table[kTopRows + 1] = {
    {"version", version_main,   0, "benchrig version"},
    {"bt1",     bt1_group,      1, "bt1 tools for hardinfo"},
    {"bt2",     bt2_group,      1, "bt2 tools for system"},
    {"btdbg",   btdbg_group,    1, "btdbg tools for debug"},
    {"upgrade", upgrade_group,  1, "upgrade tools"},
    {"md5sum",  not_built_main, 0, "md5sum tools"},
    {"mtd",     not_built_main, 0, "mtd tools"},
    {"ethutil", ethutil_group,  1, "ethutil tools"},
    {"ethchan", ethchan_group,  1, "ethchan tools"},
    {nullptr,   nullptr,        0, nullptr},
};

// wdt stays last: on a healthy board it ends in a reset.
AppletEntry bt1_table[kBt1Rows + 1] = {
    {"autotest",  autotest_main,  0, "AUTOTEST"},
    {"rtc",       rtc_main,       0, "测试RTC功能"},      // test the RTC
    {"beep",      beep_main,      0, "测试蜂鸣器功能"},   // test the buzzer
    {"alarm",     alarm_main,     0, "测试报警功能"},     // test the alarm
    {"lcd",       lcd_main,       0, "测试lcd功能"},      // test the lcd
    {"vgadet",    vgadet_main,    0, "VGA接入检测"},      // VGA connection detection
    {"gsensor",   gsensor_main,   0, "gsensor test"},
    {"iccard",    iccard_main,    0, "iccard test"},
    {"bootparam", bootparam_main, 0, "BOOTPARAM test"},
    {"cpldinfo",  cpldinfo_main,  0, "CPLDINFO test"},
    {"wdt",       wdt_main,       0, "测试开门狗功能"},   // test the watchdog; 开 for 看: sic
    {nullptr,     nullptr,        0, nullptr},
};

AppletEntry bt2_table[kBt2Rows + 1] = {
    {"all",         nullptr,          0, "ALL test"},  // listed only
    {"bsp",         bsp_main,         0, "BSP test"},
    {"power",       not_built_main,   0, "POWER test"},
    {"gpio",        not_built_main,   0, "gpio for korio tools"},
    {"led",         not_built_main,   0, "hat led test"},
    {"pwm",         not_built_main,   0, "hat pwm test"},
    {"stor",        stor_applet,      0, "hat stor test"},
    {"mouse",       not_built_main,   0, "mouse init event test"},
    {"endless",     not_built_main,   0, "endless loop for eth speed test"},
    {"reset",       not_built_main,   0, "RESET test"},
    {"hdstatus",    hdstatus_applet,  0, "get sata status test"},
    {"korcmem",     korcmem_main,     0, "korcmem"},
    {"mem_hotplug", mem_hotplug_main, 0, "memory hotplug"},
    {"blktrace",    blktrace_applet,  0, "blk trace test"},
    {"uenv",        uenv_group,       0, "UBOOT env test"},
    {"uart",        not_built_main,   0, "UART test"},
    {"uartmode",    not_built_main,   0, "UARTMODE set"},
    {"uartauto",    not_built_main,   0, "UART autotest set"},
    {"dtbofs",      dtbofs_main,      0, "DTB tools"},
    {"dtbofcell",   dtbofcell_main,   0, "DTB tools"},
    {"hdsmart",     hdsmart_applet,   0, "SMART Info, IDENTIFY Info"},
    {"rs485en",     not_built_main,   0, "rs485en demo tools"},
    {"loop",        loop_main,        0, "loop demo tools"},
    {"malloc",      malloc_main,      0, "malloc demo tools"},
    {"apinet",      apinet_main,      0, "system net api test"},
    {"gps_tool",    not_built_main,   0, "gps test"},
    {"mcu",         mcu_group,        0, "mcu command"},
    {nullptr,       nullptr,          0, nullptr},
};

AppletEntry btdbg_table[kBtdbgRows + 1] = {
    {"mem",       mem_main,       0, "memory tools"},
    {"pstat",     main_pstat,     0, "stat debug"},
    {"proctrace", proctrace_main, 0, "proc trace tools"},
    {"getconf",   getconf_main,   0, "getconf"},
    {nullptr,     nullptr,        0, nullptr},
};

AppletEntry upgrade_table[kUpgradeRows + 1] = {
    {"upgrade",    not_built_main,     0, "upgrade auto"},  // sic: the text of auto
    {"bootloader", not_built_main,     0, "upgrade bootloader"},
    {"kernel",     not_built_main,     0, "upgrade kernel"},
    {"fwbundle",   not_built_main,     0, "upgrade fwbundle"},
    {"backup",     not_built_main,     0, "upgrade backup"},
    {"maint",      not_built_main,     0, "upgrade maint"},
    {"secboot",    not_built_main,     0, "upgrade maint"},  // sic: the text of maint
    {"syspart",    not_built_main,     0, "upgrade syspart"},
    {"stop",       not_built_main,     0, "upgrade stop"},
    {"auto",       not_built_main,     0, "upgrade auto"},
    {"ssd",        ssd_upgrade_applet, 0, "upgrade ssd"},
    {nullptr,      nullptr,            0, nullptr},
};

AppletEntry ethchan_table[kEthchanRows + 1] = {
    {"info",    not_built_main, 0, "ethchan info tool"},
    {"status",  not_built_main, 0, "ethchan status tool"},
    {"setting", not_built_main, 0, "ethchan setting tool"},
    {"psestat", not_built_main, 0, "ethchan psestat tool"},
    {nullptr,   nullptr,        0, nullptr},
};

AppletEntry ethutil_table[kEthutilRows + 1] = {
    {"ethlist",    not_built_main, 0, "ethutil ethlist tool"},
    {"mdio",       not_built_main, 0, "ethutil mdio tool"},
    {"mii",        not_built_main, 0, "ethutil mii tool"},
    {"miirtl836x", not_built_main, 0, "ethutil miirtl836x tool"},
    {"ifrename",   not_built_main, 0, "ethutil ifrename tool"},
    {nullptr,      nullptr,        0, nullptr},
};

AppletEntry uenv_table[kUenvRows + 1] = {
    {"list",  uenv_list_main, 0, "uenv list"},
    {"get",   uenv_get_main,  0, "uenv get"},
    {"set",   uenv_set_main,  0, "uenv set"},
    {nullptr, nullptr,        0, nullptr},
};

AppletEntry mcu_table[kMcuRows + 1] = {
    {"heart",   not_built_main, 0, "mcu heart"},
    {"version", not_built_main, 0, "mcu version"},
    {nullptr,   nullptr,        0, nullptr},
};
// clang-format on
