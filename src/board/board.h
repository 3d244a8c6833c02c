// Handlers of the board I/O tests.

#ifndef BENCHRIG_BOARD_BOARD_H
#define BENCHRIG_BOARD_BOARD_H

int rtc_main(int argc, char **argv);
int beep_main(int argc, char **argv);
int alarm_main(int argc, char **argv);
int vgadet_main(int argc, char **argv);
int wdt_main(int argc, char **argv);
int apinet_main(int argc, char **argv);
int iccard_main(int argc, char **argv);
int lcd_main(int argc, char **argv);

#endif
