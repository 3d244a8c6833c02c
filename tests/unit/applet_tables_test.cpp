// The applet tables: every word, in order, with its group flag and its description byte for byte.

#include "app/applet_tables.h"

#include <string.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <span>
#include <string>

namespace {

struct Row {
  const char *name;
  std::int32_t group;
  const char *description;
};

const Row kTop[] = {
    {"version", 0, "benchrig version"},
    {"bt1", 1, "bt1 tools for hardinfo"},
    {"bt2", 1, "bt2 tools for system"},
    {"btdbg", 1, "btdbg tools for debug"},
    {"upgrade", 1, "upgrade tools"},
    {"md5sum", 0, "md5sum tools"},
    {"mtd", 0, "mtd tools"},
    {"ethutil", 1, "ethutil tools"},
    {"ethchan", 1, "ethchan tools"},
};

// UTF-8 descriptions as bytes, so that an editor that changes one file does not change both.
const Row kBt1[] = {
    {"autotest", 0, "AUTOTEST"},
    {"rtc", 0, "\xE6\xB5\x8B\xE8\xAF\x95RTC\xE5\x8A\x9F\xE8\x83\xBD"},
    {"beep", 0,
     "\xE6\xB5\x8B\xE8\xAF\x95\xE8\x9C\x82\xE9\xB8\xA3\xE5\x99\xA8\xE5\x8A\x9F\xE8\x83\xBD"},
    {"alarm", 0, "\xE6\xB5\x8B\xE8\xAF\x95\xE6\x8A\xA5\xE8\xAD\xA6\xE5\x8A\x9F\xE8\x83\xBD"},
    {"lcd", 0, "\xE6\xB5\x8B\xE8\xAF\x95lcd\xE5\x8A\x9F\xE8\x83\xBD"},
    {"vgadet", 0, "VGA\xE6\x8E\xA5\xE5\x85\xA5\xE6\xA3\x80\xE6\xB5\x8B"},
    {"gsensor", 0, "gsensor test"},
    {"iccard", 0, "iccard test"},
    {"bootparam", 0, "BOOTPARAM test"},
    {"cpldinfo", 0, "CPLDINFO test"},
    // The third character is that of "open".
    {"wdt", 0,
     "\xE6\xB5\x8B\xE8\xAF\x95\xE5\xBC\x80\xE9\x97\xA8\xE7\x8B\x97\xE5\x8A\x9F\xE8\x83\xBD"},
};

const Row kBt2[] = {
    {"all", 0, "ALL test"},
    {"bsp", 0, "BSP test"},
    {"power", 0, "POWER test"},
    {"gpio", 0, "gpio for korio tools"},
    {"led", 0, "hat led test"},
    {"pwm", 0, "hat pwm test"},
    {"stor", 0, "hat stor test"},
    {"mouse", 0, "mouse init event test"},
    {"endless", 0, "endless loop for eth speed test"},
    {"reset", 0, "RESET test"},
    {"hdstatus", 0, "get sata status test"},
    {"korcmem", 0, "korcmem"},
    {"mem_hotplug", 0, "memory hotplug"},
    {"blktrace", 0, "blk trace test"},
    {"uenv", 0, "UBOOT env test"},  // opens a table and is not marked
    {"uart", 0, "UART test"},
    {"uartmode", 0, "UARTMODE set"},
    {"uartauto", 0, "UART autotest set"},
    {"dtbofs", 0, "DTB tools"},
    {"dtbofcell", 0, "DTB tools"},
    {"hdsmart", 0, "SMART Info, IDENTIFY Info"},
    {"rs485en", 0, "rs485en demo tools"},
    {"loop", 0, "loop demo tools"},
    {"malloc", 0, "malloc demo tools"},
    {"apinet", 0, "system net api test"},
    {"gps_tool", 0, "gps test"},
    {"mcu", 0, "mcu command"},  // opens a table and is not marked
};

const Row kBtdbg[] = {
    {"mem", 0, "memory tools"},
    {"pstat", 0, "stat debug"},
    {"proctrace", 0, "proc trace tools"},
    {"getconf", 0, "getconf"},
};

const Row kUpgrade[] = {
    {"upgrade", 0, "upgrade auto"},  {"bootloader", 0, "upgrade bootloader"},
    {"kernel", 0, "upgrade kernel"}, {"fwbundle", 0, "upgrade fwbundle"},
    {"backup", 0, "upgrade backup"}, {"maint", 0, "upgrade maint"},
    {"secboot", 0, "upgrade maint"}, {"syspart", 0, "upgrade syspart"},
    {"stop", 0, "upgrade stop"},     {"auto", 0, "upgrade auto"},
    {"ssd", 0, "upgrade ssd"},
};

const Row kEthchan[] = {
    {"info", 0, "ethchan info tool"},
    {"status", 0, "ethchan status tool"},
    {"setting", 0, "ethchan setting tool"},
    {"psestat", 0, "ethchan psestat tool"},
};

const Row kEthutil[] = {
    {"ethlist", 0, "ethutil ethlist tool"},   {"mdio", 0, "ethutil mdio tool"},
    {"mii", 0, "ethutil mii tool"},           {"miirtl836x", 0, "ethutil miirtl836x tool"},
    {"ifrename", 0, "ethutil ifrename tool"},
};

const Row kUenv[] = {
    {"list", 0, "uenv list"},
    {"get", 0, "uenv get"},
    {"set", 0, "uenv set"},
};

const Row kMcu[] = {
    {"heart", 0, "mcu heart"},
    {"version", 0, "mcu version"},
};

struct Table {
  const char *label;
  std::span<const AppletEntry> actual;  // with its end row
  std::span<const Row> expected;
};

const Table kTables[] = {
    {"top", top_table, kTop},
    {"bt1", bt1_table, kBt1},
    {"bt2", bt2_table, kBt2},
    {"btdbg", btdbg_table, kBtdbg},
    {"upgrade", upgrade_table, kUpgrade},
    {"ethchan", ethchan_table, kEthchan},
    {"ethutil", ethutil_table, kEthutil},
    {"uenv", uenv_table, kUenv},
    {"mcu", mcu_table, kMcu},
};

TEST(AppletTables, hold_every_row_in_order) {
  for (const Table &table : kTables) {
    SCOPED_TRACE(table.label);
    ASSERT_EQ(table.actual.size(), table.expected.size() + 1);
    for (std::size_t i = 0; i < table.expected.size(); ++i) {
      SCOPED_TRACE(i);
      ASSERT_NE(table.actual[i].name, nullptr);
      ASSERT_NE(table.actual[i].description, nullptr);
      EXPECT_STREQ(table.actual[i].name, table.expected[i].name);
      EXPECT_EQ(table.actual[i].group, table.expected[i].group);
      EXPECT_STREQ(table.actual[i].description, table.expected[i].description);
    }
  }
}

TEST(AppletTables, end_with_an_all_zero_row) {
  for (const Table &table : kTables) {
    SCOPED_TRACE(table.label);
    const AppletEntry &end = table.actual.back();
    EXPECT_EQ(end.name, nullptr);
    EXPECT_EQ(end.handler, nullptr);
    EXPECT_EQ(end.group, 0);
    EXPECT_EQ(end.description, nullptr);
  }
}

TEST(AppletTables, hold_no_word_twice) {
  for (const Table &table : kTables) {
    std::set<std::string> names;
    for (const AppletEntry &row : table.actual.first(table.actual.size() - 1))
      EXPECT_TRUE(names.insert(row.name).second) << row.name << " in " << table.label;
  }
}

TEST(AppletTables, lack_a_handler_in_the_row_all_alone) {
  for (const Table &table : kTables) {
    for (const AppletEntry &row : table.actual.first(table.actual.size() - 1)) {
      const bool all = strcmp(table.label, "bt2") == 0 && strcmp(row.name, "all") == 0;
      EXPECT_EQ(row.handler == nullptr, all) << row.name << " in " << table.label;
    }
  }
}

TEST(AppletTables, give_the_two_rows_named_version_different_handlers) {
  EXPECT_STREQ(top_table[0].name, mcu_table[1].name);
  EXPECT_NE(top_table[0].handler, mcu_table[1].handler);
}

}  // namespace
