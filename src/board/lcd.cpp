// lcd: the monochrome display behind /dev/lcd. Frames through write(), single bytes through the
// controller's commands, the backlight, and an unattended black and white cycle ("autotest").
//
// The status is the last result as it stands, so that `lcd -p` hands 1024 back. For the same reason
// the autotest asks for exactly 0 from its last write: a driver that returns the byte count fails
// it. Both are deliberate.

#include "board/board.h"

#include "app/build_stamp.h"
#include "board/lcd_panel.h"
#include "common/diagnostics.h"
#include "common/numbers.h"
#include "platform/driver/lcd.h"

#include <sys/ioctl.h>

#include <fcntl.h>
#include <getopt.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

namespace {

constexpr std::uint8_t kWhite = 0x00;
constexpr std::uint8_t kBlack = 0xFF;
constexpr std::size_t kHalfFrame = LCD_FRAME_SIZE / 2;
constexpr int kAutotestCycles = 3;
constexpr unsigned int kAutotestPauseSeconds = 3;

constexpr const char *kMainRoutine = "lcd_main";
constexpr int kAutotestLine = 320;
constexpr int kOptionLine = 451;

// The numbers jump from 2 to 6; the labels are UTF-8: initialise, white screen, black screen,
// switch black/white screen automatically, black screen by ioctl, white screen by ioctl, switch
// black/white by ioctl, backlight.
int lcd_usage(const char *name) {
  puts("");
  puts("------KORVEXIUM TEST DEMO --LCD : ------");
  printf("------BUILD: %s-%s  ------\n", build_date(), build_time());
  puts("");
  printf("1. %s -h                   : print this info.\n", name);
  printf("2. %s -i                   : 初始化\n", name);
  printf("6. %s -p                   : 白屏\n", name);
  printf("7. %s -q                   : 黑屏\n", name);
  printf("8. %s -r                   : 自动切换黑白屏\n", name);
  printf("9. %s -u                   : ioctl黑屏\n", name);
  printf("10. %s -v                  : ioctl白屏\n", name);
  printf("11. %s -w                  : ioctl黑白屏切换\n", name);
  printf("12. %s -s 0:1        \t   : 背光 0=ON 1=OFF\n", name);
  return -1;
}

// Writes the first `size` bytes of a frame of one colour; the driver's result.
int write_screen(std::uint8_t colour, std::size_t size, const char *failure) {
  std::uint8_t frame[LCD_FRAME_SIZE];
  memset(frame, colour, sizeof frame);
  const int result = static_cast<int>(write(lcd_device, frame, size));
  if (result < 0)
    puts(failure);
  return result;
}

// A data byte goes ahead of every frame; a frame is written whether it arrived or not.
int show_screen(std::uint8_t colour, std::size_t size, const char *failure) {
  if (lcd_write_data(0) < 0)
    puts("ioctl set data write fail! ");
  return write_screen(colour, size, failure);
}

int show_white() {
  return show_screen(kWhite, LCD_FRAME_SIZE, "write white screen buf fail! ");
}

int show_black() {
  return show_screen(kBlack, LCD_FRAME_SIZE, "write black screen buf fail! ");
}

int set_backlight(std::uint8_t value) {
  const int result = ioctl(lcd_device, LCD_SET_BACKLIGHT, &value);
  if (result != 0)
    puts("can't set device background light");
  return result;
}

int run_autotest() {
  int result = -1;
  for (int cycle = 0; cycle < kAutotestCycles; ++cycle) {
    show_black();
    sleep(kAutotestPauseSeconds);
    result = show_white();
    sleep(kAutotestPauseSeconds);
  }
  if (result != 0)
    report_warning(kMainRoutine, kAutotestLine, "lcd_auto fail[%d]", result);
  return result;
}

int run_options(int argc, char **argv) {
  int result = -1;
  int option;
  optind = 0;
  while ((option = getopt(argc, argv, "HhIiPpQqRrS:s:UuVvWwy")) != -1) {
    switch (option) {
      case 'H':
      case 'h':
        return lcd_usage(argv[0]);
      case 'I':
      case 'i':
        result = lcd_init();
        if (result < 0)
          puts("can't init device");
        break;
      case 'P':
      case 'p':
        result = show_white();
        break;
      case 'Q':
      case 'q':
        result = show_black();
        break;
      case 'R':
      case 'r':
        result = show_screen(kBlack, kHalfFrame, "write white-black screen buf fail! ");
        break;
      case 'S':
      case 's': {
        const std::uint8_t value = static_cast<std::uint8_t>(parse_decimal(optarg));
        if (value > LCD_BACKLIGHT_OFF)
          return lcd_usage(argv[0]);
        result = set_backlight(value);
        break;
      }
      case 'U':
      case 'u':
        lcd_fill(kBlack);
        break;
      case 'V':
      case 'v':
        lcd_fill(kWhite);
        break;
      case 'W':
      case 'w':
        lcd_toggle_test();
        break;
      default:  // the option string's "y" as well
        printf("[vrq]%s:%d lcd_write_cmd err, ret=%d\n", kMainRoutine, kOptionLine, result);
        break;
    }
  }
  return result;
}

}  // namespace

int lcd_main(int argc, char **argv) {
  const int device = open(LCD_DEVICE, O_RDWR);
  if (device < 0) {
    printf("can't open device %s\n", LCD_DEVICE);
    return -1;
  }
  lcd_device = device;
  const bool autotest = argc == 2 && strcmp(argv[1], "autotest") == 0;
  const int status = autotest ? run_autotest() : run_options(argc, argv);
  lcd_device = -1;
  close(device);
  return status;
}
