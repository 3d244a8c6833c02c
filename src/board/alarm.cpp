// alarm: reads the alarm inputs, sets the alarm output, or tests both over a loop-back plug.
//
// The output operation tells success by a non-zero result and the input operation by zero; both are
// taken as they are. With three words, an unknown command prints the usage and returns 0.

#include "board/board.h"
#include "common/numbers.h"
#include "platform/board_io.h"

#include <stdio.h>
#include <string.h>

#include <cstdint>

namespace {

constexpr char kUsage[] =
    "\nUsage: alarm [input\\output] [num]\n\n"
    // Reads the levels of `num` alarm inputs.
    "         alarm input [num] 获取 num 路报警输入电平\n"
    // Sets the alarm output to 0 or 1; "outout" sic.
    "         alarm outout [0/1] 控制报警输出为[0/1]\n"
    "example:\n"
    "  alarm input 8\n"
    "  alarm output 1\n";

constexpr const char *kMainRoutine = "alarm_main";
constexpr const char *kAutotestRoutine = "alarm_autotest";

// The inputs are active-low: 1 for a low level. Inputs beyond the word read as low.
constexpr int input_active(std::uint32_t levels, std::int32_t input) {
  return input < 32 && (levels >> input & 1) != 0 ? 0 : 1;
}

bool read_inputs(const char *routine, int line, std::uint32_t *out_levels) {
  if (rig_alarm_input(out_levels) == 0)
    return true;
  printf("%s:%d get alarm input failed \n", routine, line);
  return false;
}

// With the plug, inputs follow the output: all low after it went low. The results of the output
// operation and the levels while it is high are not looked at.
int test_loop_back() {
  std::uint32_t output = 1;
  std::uint32_t levels_high = 0;
  rig_alarm_output(&output);
  if (!read_inputs(kAutotestRoutine, 41, &levels_high))
    return -1;

  output = 0;
  std::uint32_t levels_low = 0;
  rig_alarm_output(&output);
  if (!read_inputs(kAutotestRoutine, 49, &levels_low))
    return -1;

  if (levels_low != 0) {
    printf("%s:%d alarm auto test failed\n", kAutotestRoutine, 54);
    return -1;
  }
  return 0;
}

int print_inputs(std::int32_t count) {
  std::uint32_t levels = 0;
  if (!read_inputs(kMainRoutine, 84, &levels))
    return -1;
  puts("input : ");
  for (std::int32_t i = 0; i < count; ++i)
    printf("       ALARM IN[%d] : %d \n", i, input_active(levels, i));
  return 0;
}

int set_output(std::uint32_t level) {
  if (rig_alarm_output(&level) == 0) {
    printf("%s:%d output set failed\n", kMainRoutine, 104);
    return -1;
  }
  puts("output set OK");
  return 0;
}

}  // namespace

int alarm_main(int argc, char **argv) {
  if (argc == 2 && strcmp(argv[1], "autotest") == 0)
    return test_loop_back();
  if (argc == 3 && strcmp(argv[1], "input") == 0)
    return print_inputs(parse_decimal(argv[2]));
  if (argc == 3 && strcmp(argv[1], "output") == 0)
    return set_output(static_cast<std::uint32_t>(parse_decimal(argv[2])));

  fputs(kUsage, stderr);
  return argc == 3 ? 0 : -1;
}
