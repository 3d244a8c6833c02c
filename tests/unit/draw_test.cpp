// What "vboard show" draws.

#include "model_harness.h"
#include "uboot_image.h"
#include "vboard/base/kernel.h"
#include "vboard/launcher/draw.h"
#include "vboard/launcher/draw_lcd.h"
#include "vboard/launcher/png.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

using namespace vboard;

namespace {

template <typename Draw>
std::string drawn(Draw draw) {
  char *text = nullptr;
  std::size_t size = 0;
  FILE *out = open_memstream(&text, &size);
  draw(out);
  fclose(out);
  std::string result(text, size);
  free(text);
  return result;
}

std::string board_page(const ModelHarness &board) {
  return drawn(
      [&board](FILE *out) { EXPECT_EQ(draw_board(board.directory.c_str(), nullptr, out), 0); });
}

std::string node_page(const ModelHarness &board, const char *node) {
  return drawn(
      [&](FILE *out) { EXPECT_EQ(draw_node(board.directory.c_str(), nullptr, node, out), 0); });
}

bool has(const std::string &text, const char *part) {
  return text.find(part) != std::string::npos;
}

}  // namespace

TEST(DrawLcd, dots_of_a_braille_cell) {
  LcdView view = {};
  view.registers.display_on = 1;
  view.registers.rows_reversed = 1;
  char line[kBrailleSize];
  struct Row {
    int column, row;
    const char *first_cell;
  };
  for (const Row &row : {Row{0, 0, "⠁"}, Row{0, 1, "⠂"}, Row{0, 2, "⠄"}, Row{1, 0, "⠈"},
                         Row{1, 1, "⠐"}, Row{1, 2, "⠠"}, Row{0, 3, "⡀"}, Row{1, 3, "⢀"}}) {
    memset(view.frame, 0, sizeof view.frame);
    view.frame[row.column] = static_cast<unsigned char>(1 << row.row);
    braille_line(view, 0, line);
    EXPECT_EQ(std::string(line).substr(0, 6), std::string(row.first_cell) + "⠀");
  }
  EXPECT_EQ(strlen(line), 64u * 3);
}

TEST(DrawLcd, black_and_white_halves) {
  LcdView view = {};
  view.registers.display_on = 1;
  view.registers.rows_reversed = 1;
  memset(view.frame, 0xFF, 512);
  char line[kBrailleSize];
  std::string black, white;
  for (int i = 0; i < 64; ++i) {
    black += "⣿";
    white += "⠀";
  }
  braille_line(view, 7, line);
  EXPECT_EQ(line, black);
  braille_line(view, 8, line);
  EXPECT_EQ(line, white);
}

TEST(DrawBoard, page_names_what_a_person_looks_for) {
  const ModelHarness board("model = rtc\nstopped = 1\n");
  board.write_file("board", "vboard board, format 1\n");
  board.write_file("media/mtd1.bin",
                   uboot_image({"a=1", "b=2"}, 16384) + std::string(49152, '\xff'));
  board.write_file("dev/mtd1", "model = mtd\nmedium = mtd1.bin\n");
  board.write_file("dev/iccard", "model = iccard\nmedium = iccard.bin\n");
  board.write_file("dev/other", "model = unheard-of\n");
  board.write_file("sys/class/leds/buzzer/brightness", "1\n");
  board.write_file("net/ppp0", "ipv4 = 10.64.0.2\n");
  board.write_file("faults", "# none of these\n/dev/rtc0 absent\n");
  board.write_file("media/iccard.bin", std::string(256, '\0'));
  board.write_file("sys/bus/nvmem/devices/bootparam0/nvmem", std::string(256, '\0'));
  const std::string page = board_page(board);
  EXPECT_TRUE(has(page, "vboard board, format 1\n"));
  EXPECT_TRUE(has(page, "follows the board's calendar, stopped\n")) << page;
  EXPECT_TRUE(has(page, "environment of 2 variables, 8 of 16380 bytes\n")) << page;
  EXPECT_TRUE(has(
      page,
      "/dev/iccard        00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ...  ................\n"))
      << page;
  EXPECT_TRUE(has(page, "/dev/other         no such model: unheard-of\n")) << page;
  EXPECT_TRUE(has(page, "buzzer             1\n")) << page;
  EXPECT_FALSE(has(page, "vga ")) << page;
  EXPECT_FALSE(has(page, "alarm ")) << page;
  EXPECT_TRUE(has(page, "boot counter (byte 250) 0\n")) << page;
  EXPECT_TRUE(has(page, "ppp0 10.64.0.2\n")) << page;
  EXPECT_TRUE(has(page, "faults             /dev/rtc0 absent\n")) << page;
}

TEST(DrawBoard, watchdog_is_stopped_armed_or_has_run_out) {
  const ModelHarness board("model = watchdog\ntimeout_s = 15\nidentity = Dog\n");
  board.write_file("board", "vboard board, format 1\n");
  EXPECT_TRUE(has(board_page(board), "stopped, limit 15 s, Dog\n"));
  const std::int64_t now = pc_calendar();
  board.write_file(
      "clock", "ahead_ns = 50000000000\nreset_at = " + std::to_string(now + 60'500'000'000) + "\n");
  EXPECT_TRUE(has(board_page(board), "armed, resets the board in 10 s, limit"))
      << board_page(board);
  board.write_file(
      "clock", "ahead_ns = 50000000000\nreset_at = " + std::to_string(now + 40'000'000'000) + "\n");
  EXPECT_TRUE(has(board_page(board), "has run out, the board is reset, limit"));
  // Times that no sum holds.
  board.write_file("clock", "ahead_ns = -9223372036854775808\nreset_at = 9000000000000000000\n");
  EXPECT_TRUE(has(board_page(board), "armed, resets the board in 9000000000 s, limit"));
  board.write_file("clock", "ahead_ns = 9223372036854775807\nreset_at = -9223372036854775808\n");
  EXPECT_TRUE(has(board_page(board), "has run out, the board is reset, limit"));
  board.write_file("clock", "reset_at =\n");
  EXPECT_TRUE(has(board_page(board), "stopped, limit"));
}

TEST(DrawBoard, physical_memory_is_its_regions) {
  const ModelHarness board(
      "model = phys_mem\nregion0 = ram 0x00000000 0x1fffffff\n"
      "region1 = registers 0xf0000000 0xf000ffff\nregion3 = behind-a-gap 0 1\n");
  board.write_file("board", "vboard board, format 1\n");
  EXPECT_TRUE(has(board_page(board),
                  "/dev/node          ram 00000000-1fffffff, registers f0000000-f000ffff\n"))
      << board_page(board);
  board.write_file("dev/node", "model = phys_mem\n");
  EXPECT_TRUE(has(board_page(board), "/dev/node          no regions\n"));
}

TEST(DrawBoard, reserved_memory_is_its_blocks_and_what_was_done_with_them) {
  const ModelHarness board(
      "model = korcmem\nblock3 = isp 0x17800000 0x400000\nblock10 = decoder 0x18000000 0x800000\n"
      "block11 = encoder 0x18800000 0x800000\nstate3 = reserved\nstate10 = mapped\n");
  board.write_file("board", "vboard board, format 1\n");
  EXPECT_TRUE(has(board_page(board), "/dev/node          3 isp, 10 decoder mapped, 11 encoder\n"))
      << board_page(board);
  board.write_file("dev/node", "model = korcmem\n");
  EXPECT_TRUE(has(board_page(board), "/dev/node          no blocks\n"));
}

TEST(DrawBoard, disk_is_its_model_firmware_and_verdict) {
  const ModelHarness board("model = sata_disk\nidentify = id\n");
  board.write_file("board", "vboard board, format 1\n");
  std::string identify(512, '\0');
  // The two bytes of every word are swapped: "FW01A3" and "A DISK 128".
  identify.replace(46, 8, "WF103A  ");
  identify.replace(54, 40, " AIDKS1 82" + std::string(30, ' '));
  board.write_file("media/id", identify);
  struct Row {
    const char *settings;
    const char *verdict;
  };
  for (const Row &row :
       {Row{"", "SMART passed\n"}, Row{"smart_exceeded = 1\n", "SMART threshold exceeded\n"},
        Row{"smart_exceeded = 1\nsmart_status = 0xc24f\n", "SMART passed\n"},
        Row{"smart_status = 0x2cf4\n", "SMART threshold exceeded\n"},
        Row{"smart_status = 0x1234\n", "SMART answers 0x1234\n"},
        Row{"smart_exceeded = 1\nsmart_enabled = 0\n", "SMART off\n"},
        Row{"standby = 1\n", "SMART passed, standby\n"}}) {
    board.write_file("dev/node", std::string("model = sata_disk\nidentify = id\n") + row.settings);
    EXPECT_TRUE(has(
        board_page(board),
        (std::string("/dev/node          A DISK 128, firmware FW01A3, ") + row.verdict).c_str()))
        << row.settings << board_page(board);
  }
  board.write_file("media/id", std::string(512, ' '));
  EXPECT_TRUE(has(board_page(board), "/dev/node          , firmware , SMART passed, standby\n"));
  board.write_file("media/id", "short");
  EXPECT_TRUE(has(board_page(board), "/dev/node          no identity, SMART passed, standby\n"));
}

TEST(DrawBoard, storage_driver_is_its_ports_and_what_a_trace_sees) {
  const ModelHarness board(
      "model = korstorage\nports = 2\ndevices = sda mmcblk0\nmedium = events\n");
  board.write_file("board", "vboard board, format 1\n");
  board.write_file("media/events",
                   "# seconds and more\n0.1 1 2048 4096 1 0 write\n\n0.2 8 2048 4096 1 0 write\n");
  EXPECT_TRUE(has(board_page(board), "/dev/node          2 ports, traces sda mmcblk0, 2 events\n"))
      << board_page(board);
  board.write_file("dev/node", "model = korstorage\nscan_failed = 1\n");
  EXPECT_TRUE(has(board_page(board),
                  "/dev/node          1 port, bus scan not done, traces nothing, 0 events\n"))
      << board_page(board);
}

TEST(DrawBoard, memory_blocks_stand_in_the_order_of_their_numbers) {
  const ModelHarness board("");
  board.write_file("board", "vboard board, format 1\n");
  EXPECT_FALSE(has(board_page(board), "memory blocks"));
  board.write_file("sys/devices/system/memory/block_size_bytes", "8000000\n");
  EXPECT_TRUE(has(board_page(board), "memory blocks      none\n"));
  for (const char *file : {"memory2/state", "memory10/state"})
    board.write_file((std::string("sys/devices/system/memory/") + file).c_str(),
                     file[6] == '2' ? "online\n" : "offline\n");
  board.write_file("sys/devices/system/memory/memory3/removable", "1\n");
  board.write_file("sys/devices/system/memory/block_size_bytes", "8000000\n");
  EXPECT_TRUE(has(board_page(board), "memory blocks      2 online, 10 offline\n"))
      << board_page(board);
}

TEST(DrawBoard, overlays_are_named_with_their_status) {
  const ModelHarness board("");
  board.write_file("board", "vboard board, format 1\n");
  EXPECT_FALSE(has(board_page(board), "overlays"));
  constexpr char kOverlays[] = "sys/kernel/config/device-tree/overlays/";
  board.write_file((std::string(kOverlays) + ".keep").c_str(), "");
  EXPECT_TRUE(has(board_page(board), "overlays           none\n"));
  board.write_file((std::string(kOverlays) + "a/status").c_str(), "applied\n");
  board.write_file((std::string(kOverlays) + "b/status").c_str(), "unapplied\n");
  EXPECT_TRUE(has(board_page(board), "overlays           a applied, b unapplied\n"))
      << board_page(board);
  board.write_file((std::string(kOverlays) + "b/status").c_str(), "\n");
  EXPECT_TRUE(has(board_page(board), "overlays           a applied, b \n"));
}

TEST(DrawBoard, process_events_are_counted_with_the_time_of_the_last) {
  const ModelHarness board("");
  board.write_file("board", "vboard board, format 1\n");
  EXPECT_FALSE(has(board_page(board), "process events"));
  board.write_file("netlink/connector", "events = e\n");
  EXPECT_TRUE(has(board_page(board), "process events     0 events\n"));
  board.write_file("media/e", "# comment\n0.5 fork 1 1 2 2\n1.25 exit 2 2\nno event\n");
  EXPECT_TRUE(has(board_page(board), "process events     2 events in 1.250 s\n"))
      << board_page(board);
  board.write_file("netlink/connector", "events = e\ndenied = 1\n");
  EXPECT_TRUE(has(board_page(board), "2 events in 1.250 s, listening is not allowed\n"));
}

TEST(DrawBoard, a_folder_that_is_no_board) {
  ModelHarness board("");
  drawn([&board](FILE *out) {
    EXPECT_EQ(draw_board(board.directory.c_str(), nullptr, out), -ENOENT);
  });
}

TEST(DrawNode, shows_settings_and_what_the_medium_holds) {
  const ModelHarness board("model = iccard\nmedium = card\n");
  board.write_file("media/card", "0123456789abcdef" + std::string(240, '\0'));
  const std::string page = node_page(board, "/dev/node");
  EXPECT_TRUE(has(page,
                  "* medium           card                 -            its file in media/ "
                  "(- by default)\n"))
      << page;
  EXPECT_TRUE(
      has(page, "0000  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  0123456789abcdef\n"))
      << page;
  EXPECT_TRUE(has(page, "\n00f0  00 ")) << page;
}

TEST(DrawNode, blocks_are_dumped_and_interfaces_shown) {
  const ModelHarness board("");
  board.write_file("sys/x/nvmem", std::string(250, '\0') + "\x07" + std::string(5, '\0'));
  EXPECT_TRUE(has(node_page(board, "/sys/x/nvmem"),
                  "00f0  00 00 00 00 00 00 00 00 00 00 07 00 00 00 00 00"));
  board.write_file("net/ppp0", "ipv4 = 10.64.0.2\n");
  constexpr char kPage[] =
      "  setting          value                default      meaning\n"
      "* ipv4             10.64.0.2            -            its address; without one it has none "
      "(- by default)\n"
      "  index            -                    -            its number; by the order of names when "
      "it is missing\n";
  EXPECT_EQ(node_page(board, "net:ppp0"), kPage);
  EXPECT_EQ(node_page(board, "net/ppp0"), kPage);
}

TEST(DrawNode, what_the_board_lacks) {
  ModelHarness board("");
  drawn([&board](FILE *out) {
    EXPECT_EQ(draw_node(board.directory.c_str(), nullptr, "/dev/none", out), -ENOENT);
    EXPECT_EQ(draw_node(board.directory.c_str(), nullptr, "../../etc/passwd", out), -ENOENT);
    EXPECT_EQ(draw_node(board.directory.c_str(), nullptr, "/", out), -ENOENT);
  });
}

TEST(DrawPng, is_a_picture_of_displays_only) {
  const ModelHarness board("model = lcd\nmedium = frame\ndisplay_on = 1\nbacklight = 1\n");
  board.write_file("dev/rtc0", "model = rtc\n");
  const std::string file = board.directory + "/out.png";
  ASSERT_EQ(write_png(board.directory.c_str(), "/dev/node", file.c_str()), 0);
  const std::string png = board.file("out.png");
  ASSERT_GT(png.size(), 24u);
  EXPECT_EQ(png.substr(0, 8), "\x89PNG\r\n\x1a\n");
  // Width and height of the header: four times 128 by 64, and a border.
  EXPECT_EQ(png.substr(16, 8), std::string("\0\0\x02\x20\0\0\x01\x20", 8));
  EXPECT_EQ(write_png(board.directory.c_str(), "/dev/rtc0", file.c_str()), -ENOTSUP);
  EXPECT_EQ(write_png(board.directory.c_str(), "/dev/none", file.c_str()), -ENOENT);
  EXPECT_LT(write_png(board.directory.c_str(), "/dev/node", "/nowhere/x.png"), 0);
}

TEST(DrawSettings, marks_what_differs_and_what_makes_no_sense) {
  const ModelHarness fresh("model = rtc\nrate = 1.0\nstopped = 1\n");
  const ModelHarness board(
      "# Mine.\nmodel = rtc\nrate = 1\nstopped = 0\ntime_valid = no\nstoped = 1\nset_to =\n");
  const std::string page = drawn([&](FILE *out) {
    EXPECT_EQ(draw_node(board.directory.c_str(), fresh.directory.c_str(), "/dev/node", out), 0);
  });
  const char whole[] =
      "# Mine.\n"
      "  setting          value                default      meaning\n"
      "  set_to           -                    -            what the clock was set to\n"
      "  set_at           -                    -            "
      "the board's calendar time of that moment\n"
      "  rate             1                    1.0          seconds it counts in a second\n"
      "* stopped          0                    0            "
      "1: it stands still (1 on a new board)\n"
      "! time_valid       no                   1            0: it lost its supply; reading is "
      "EINVAL "
      "until it is set (may be 0 or 1)\n"
      "  model            rtc                  -            which model answers\n"
      "  medium           -                    -            its file in media/\n"
      "  medium_size      0                    0            bytes of a medium that is made because "
      "it is missing\n"
      "  number           0:0                  0:0          the device number that stat shows, "
      "MAJOR:MINOR\n"
      "  type             character            character    what stat shows it as\n"
      "  byte_us          0                    0            board microseconds that each byte of a "
      "read or a write takes\n"
      "! stoped           1                    -            the device has no such setting\n"
      "\nfollows the board's calendar\n";
  EXPECT_EQ(page, whole);
}

TEST(DrawSettings, numbered_ones_are_those_that_either_board_has) {
  const ModelHarness fresh("model = korcmem\nblock3 = isp 0 1\nalias3 = 7\n");
  const ModelHarness board("model = korcmem\nblock3 = isp 0 1\nblock12 = more 1 1\nalias3 = 0x7\n");
  const std::string page = drawn([&](FILE *out) {
    EXPECT_EQ(draw_node(board.directory.c_str(), fresh.directory.c_str(), "/dev/node", out), 0);
  });
  EXPECT_TRUE(has(page, "\n  block3           isp 0 1              -            NAME BASE SIZE"))
      << page;
  EXPECT_TRUE(has(page, "\n* block12          more 1 1             -            NAME BASE SIZE"));
  EXPECT_TRUE(has(page, "\n  alias3           0x7                  -            "));
  EXPECT_TRUE(has(page, "\n  state#           -                    -            what was done"));
  const std::string other = drawn([&](FILE *out) {
    EXPECT_EQ(draw_node(fresh.directory.c_str(), board.directory.c_str(), "/dev/node", out), 0);
  });
  EXPECT_TRUE(has(other, "\n* block12          -                    -            ")) << other;
  EXPECT_TRUE(has(other, "(more 1 1 on a new board)\n"));
}

TEST(DrawBoard, names_what_differs_from_a_new_board) {
  const ModelHarness fresh("model = rtc\n");
  fresh.write_file("net/ppp0", "ipv4 = 10.64.0.2\n");
  fresh.write_file("dev/sda", "model = sata_disk\nstandby = 1\n");
  const ModelHarness board("model = rtc\n");
  board.write_file("board", "vboard board, format 1\n");
  board.write_file("net/ppp0", "ipv4 = 10.64.0.2\n");
  auto changes = [&] {
    const std::string page = drawn([&](FILE *out) {
      EXPECT_EQ(draw_board(board.directory.c_str(), fresh.directory.c_str(), out), 0);
    });
    return page.substr(page.find("changed"));
  };
  EXPECT_EQ(changes(), "changed            nothing\nfaults             none\n");
  board.write_file("net/ppp0", "ipv4 = 10.64.0.3\n");
  board.write_file("dev/node", "model = rtc\nstopped = maybe\nspeed = 1\n");
  board.write_file("unpowered/dev/sda", "model = sata_disk\nstandby = 1\nautosave = 1\n");
  board.write_file("dev/card", "model = iccard\ninverted = 1\n");
  EXPECT_EQ(changes(),
            "changed            /dev/card inverted = 1 (0 by default)\n"
            "                   /dev/card model = iccard (- by default)\n"
            "                   /dev/node stopped = maybe (counts as 0)\n"
            "                   /dev/node speed = 1 (the device has no such setting)\n"
            "                   /dev/sda autosave = 1 (0 on a new board)\n"
            "                   net/ppp0 ipv4 = 10.64.0.3 (10.64.0.2 on a new board)\n"
            "faults             none\n");
}

TEST(DrawBoard, a_bare_board_has_nothing_to_draw) {
  const ModelHarness board("");
  board.write_file("board", "vboard board, format 1\n");
  board.write_file("net/.keep", "");
  EXPECT_EQ(unlink((board.directory + "/dev/node").c_str()), 0);
  EXPECT_EQ(board_page(board), board.directory +
                                   ": vboard board, format 1\n"
                                   "network            no interface\n"
                                   "changed            nothing\n"
                                   "faults             none\n");
}

TEST(DrawBoard, devices_that_are_switched_off_and_displays_by_any_name) {
  const ModelHarness board("model = iccard\n");
  board.write_file("board", "vboard board, format 1\n");
  board.write_file("unpowered/dev/sda", "model = sata_disk\n");
  board.write_file("dev/panel", "model = lcd\n");
  const std::string page = board_page(board);
  EXPECT_TRUE(has(page, "/dev/sda           switched off, no identity, SMART passed\n")) << page;
  EXPECT_TRUE(has(page, "display off, backlight off, contrast 32")) << page;
  EXPECT_TRUE(has(node_page(board, "/dev/sda"), "  standby          0 ")) << page;
}
