#include "vboard/board/faults.h"

#include "vboard/base/text.h"

#include <errno.h>

#include <gtest/gtest.h>

#include <string>

namespace vboard {
namespace {

constexpr std::int64_t kMillisecond = 1'000'000;

Fault parsed(const char *line) {
  Fault fault = {};
  char reason[160] = "";
  EXPECT_EQ(parse_fault(line, fault, reason), FaultLine::kFault) << line << ": " << reason;
  return fault;
}

std::string reason_for(const char *line) {
  Fault fault = {};
  char reason[160] = "";
  EXPECT_EQ(parse_fault(line, fault, reason), FaultLine::kWrong) << line;
  return reason;
}

TEST(FaultLines, ErrnoOfARequestOnTheNthTime) {
  Fault fault = parsed("/dev/watchdog    ioctl:WDIOC_KEEPALIVE    errno=EIO     nth=3");
  EXPECT_STREQ(fault.node, "/dev/watchdog");
  EXPECT_STREQ(fault.call, "ioctl");
  EXPECT_STREQ(fault.request, "WDIOC_KEEPALIVE");
  EXPECT_EQ(fault.effect, FaultEffect::kErrno);
  EXPECT_EQ(fault.value, EIO);
  EXPECT_EQ(fault.count, FaultCount::kNth);
  EXPECT_EQ(fault.n, 3u);
}

TEST(FaultLines, ShortReadsFromACertainOneOn) {
  const Fault fault = parsed("/dev/gyro read short=10 from=2");
  EXPECT_EQ(fault.effect, FaultEffect::kShort);
  EXPECT_EQ(fault.value, 10);
  EXPECT_EQ(fault.count, FaultCount::kFrom);
  EXPECT_EQ(fault.n, 2u);
}

TEST(FaultLines, ChosenResults) {
  EXPECT_EQ(parsed("/dev/lcd write result=0").effect, FaultEffect::kResult);
  EXPECT_EQ(parsed("/dev/lcd write result=-1").value, -1);
}

TEST(FaultLines, PowerFailsInACall) {
  const Fault fault = parsed("/dev/mtd1 ioctl:MEMERASE power-cut nth=3 time=1..");
  EXPECT_EQ(fault.effect, FaultEffect::kPowerCut);
  EXPECT_EQ(fault.n, 3u);
  EXPECT_EQ(fault.window_count, 1u);
  EXPECT_EQ(reason_for("/dev/mtd1 write power-cut=1"), "wrong effect 'power-cut=1'");
  EXPECT_EQ(reason_for("/dev/mtd1 power-cut"), "unknown call 'power-cut'");
}

TEST(FaultLines, AbsenceInSeveralWindows) {
  const Fault fault = parsed("/dev/iccard absent time=1.0..2.5 time=6.0..");
  EXPECT_EQ(fault.effect, FaultEffect::kAbsent);
  ASSERT_EQ(fault.window_count, 2u);
  EXPECT_EQ(fault.windows[0].from, 1000 * kMillisecond);
  EXPECT_EQ(fault.windows[0].to, 2500 * kMillisecond);
  EXPECT_EQ(fault.windows[1].from, 6000 * kMillisecond);
}

TEST(FaultLines, ErrnoMayBeANumber) {
  EXPECT_EQ(parsed("/dev/lcd open errno=19").value, ENODEV);
}

TEST(FaultLines, RequestMayBeANumber) {
  const Fault fault = parsed("/dev/lcd ioctl:0x40044C80 errno=EIO");
  EXPECT_TRUE(fault_names_call(fault, "ioctl", "LCD_SET_CMD_WRITE", 0x40044C80));
  EXPECT_TRUE(fault_names_call(fault, "ioctl", nullptr, 0x40044C80));
  EXPECT_FALSE(fault_names_call(fault, "ioctl", "LCD_SET_CMD_WRITE", 0x40044C81));
}

TEST(FaultLines, CommentsAndBlankLinesAreNothing) {
  Fault fault = {};
  char reason[160];
  for (const char *line : {"", "   ", "\t", "# /dev/lcd absent", "  # note", "\r"})
    EXPECT_EQ(parse_fault(line, fault, reason), FaultLine::kNothing) << line;
  EXPECT_EQ(parse_fault("/dev/lcd absent # the whole day", fault, reason), FaultLine::kFault);
}

TEST(FaultLines, WrongLinesTellTheirWrongWord) {
  EXPECT_NE(reason_for("lcd absent").find("'lcd'"), std::string::npos);
  EXPECT_NE(reason_for("/dev/lcd pread errno=EIO").find("'pread'"), std::string::npos);
  EXPECT_NE(reason_for("/dev/lcd read errno=EWHAT").find("'errno=EWHAT'"), std::string::npos);
  EXPECT_NE(reason_for("/dev/lcd read errno=EIO nth=x").find("'nth=x'"), std::string::npos);
}

TEST(FaultLines, WrongLines) {
  for (const char *line :
       {"/dev/lcd", "/dev/lcd read", "/dev/lcd read:X errno=EIO", "/dev/lcd ioctl: errno=EIO",
        "/dev/lcd open short=1", "/dev/lcd ioctl short=1", "/dev/lcd read short=-1",
        "/dev/lcd read errno=0", "/dev/lcd read result=many", "/dev/lcd read errno=EIO nth=0",
        "/dev/lcd read errno=EIO nth=1 from=2", "/dev/lcd absent nth=1",
        "/dev/lcd absent errno=EIO", "/dev/lcd absent time=2..1", "/dev/lcd absent time=1",
        "/dev/lcd absent time=a..b"})
    EXPECT_FALSE(reason_for(line).empty()) << line;
}

TEST(FaultLines, ReasonFitsItsRoom) {
  Fault fault = {};
  char reason[8] = "";
  EXPECT_EQ(parse_fault("/dev/lcd nonsense", fault, reason), FaultLine::kWrong);
  EXPECT_EQ(std::string(reason), "unknown");
}

TEST(FaultNodes, NameIsTheWholeName) {
  const Fault fault = parsed("/dev/lcd read errno=EIO");
  EXPECT_TRUE(fault_names_node(fault, "/dev/lcd"));
  EXPECT_FALSE(fault_names_node(fault, "/dev/lcd2"));
  EXPECT_FALSE(fault_names_node(fault, "/dev/lc"));
  EXPECT_FALSE(fault_names_node(fault, "/dev/lcd/x"));
}

TEST(FaultNodes, StarStandsForAnyRest) {
  const Fault fault = parsed("/dev/ttyS* open errno=EIO");
  EXPECT_TRUE(fault_names_node(fault, "/dev/ttyS0"));
  EXPECT_TRUE(fault_names_node(fault, "/dev/ttyS"));
  EXPECT_FALSE(fault_names_node(fault, "/dev/tty"));
}

TEST(FaultNodes, AbsentDirectoryTakesItsContentWithIt) {
  const Fault fault = parsed("/sys/class/leds absent");
  EXPECT_TRUE(fault_names_node(fault, "/sys/class/leds/buzzer/brightness"));
  EXPECT_FALSE(fault_names_node(fault, "/sys/class/leds2"));
}

TEST(FaultNodes, SocketsHaveNamesOfTheirOwn) {
  EXPECT_TRUE(fault_names_node(parsed("net:ppp0 ioctl:SIOCGIFADDR errno=ENODEV"), "net:ppp0"));
  EXPECT_TRUE(fault_names_node(parsed("socket socket errno=EAFNOSUPPORT"), "socket"));
}

TEST(FaultCalls, CallMustBeTheSame) {
  const Fault fault = parsed("/dev/lcd ioctl errno=EIO");
  EXPECT_TRUE(fault_names_call(fault, "ioctl", "ANY", 1));
  EXPECT_TRUE(fault_names_call(fault, "ioctl", nullptr, 1));
  EXPECT_FALSE(fault_names_call(fault, "read", nullptr, 0));
  EXPECT_FALSE(fault_names_call(parsed("/dev/lcd absent"), "open", nullptr, 0));
}

TEST(FaultCalls, NamedRequestIsThatOneOnly) {
  const Fault fault = parsed("/dev/lcd ioctl:A errno=EIO");
  EXPECT_TRUE(fault_names_call(fault, "ioctl", "A", 1));
  EXPECT_FALSE(fault_names_call(fault, "ioctl", "AB", 1));
  EXPECT_FALSE(fault_names_call(fault, "ioctl", nullptr, 1));
}

TEST(FaultTimes, NthIsThatOneOnly) {
  const Fault fault = parsed("/dev/lcd read errno=EIO nth=3");
  EXPECT_FALSE(fault_is_due(fault, 2, 0));
  EXPECT_TRUE(fault_is_due(fault, 3, 0));
  EXPECT_FALSE(fault_is_due(fault, 4, 0));
}

TEST(FaultTimes, FromIsThatOneAndAllAfter) {
  const Fault fault = parsed("/dev/lcd read errno=EIO from=2");
  EXPECT_FALSE(fault_is_due(fault, 1, 0));
  EXPECT_TRUE(fault_is_due(fault, 2, 0));
  EXPECT_TRUE(fault_is_due(fault, 200, 0));
}

TEST(FaultTimes, WindowEndsBeforeItsEnd) {
  const Fault fault = parsed("/dev/iccard absent time=1.0..2.5 time=6.0..");
  EXPECT_FALSE(fault_is_due(fault, 1, 999 * kMillisecond));
  EXPECT_TRUE(fault_is_due(fault, 1, 1000 * kMillisecond));
  EXPECT_TRUE(fault_is_due(fault, 1, 2499 * kMillisecond));
  EXPECT_FALSE(fault_is_due(fault, 1, 2500 * kMillisecond));
  EXPECT_TRUE(fault_is_due(fault, 1, 3'600'000 * kMillisecond));
}

TEST(FaultTimes, WindowMayLackItsBeginning) {
  const Fault fault = parsed("/dev/iccard read errno=EIO time=..2");
  EXPECT_TRUE(fault_is_due(fault, 1, 0));
  EXPECT_FALSE(fault_is_due(fault, 1, 2000 * kMillisecond));
}

TEST(FaultTimes, CountAndWindowMustBothHold) {
  const Fault fault = parsed("/dev/lcd read errno=EIO from=2 time=1..2");
  EXPECT_FALSE(fault_is_due(fault, 1, 1500 * kMillisecond));
  EXPECT_FALSE(fault_is_due(fault, 2, 500 * kMillisecond));
  EXPECT_TRUE(fault_is_due(fault, 2, 1500 * kMillisecond));
}

TEST(FaultTimes, NothingSaidIsAlways) {
  EXPECT_TRUE(fault_is_due(parsed("/dev/lcd absent"), 1, 0));
}

TEST(BoardTexts, SecondsHaveFractions) {
  std::int64_t out = -1;
  EXPECT_TRUE(parse_seconds("1.5", out));
  EXPECT_EQ(out, 1500 * kMillisecond);
  EXPECT_TRUE(parse_seconds(".25", out));
  EXPECT_EQ(out, 250 * kMillisecond);
  EXPECT_TRUE(parse_seconds("3.", out));
  EXPECT_EQ(out, 3000 * kMillisecond);
  EXPECT_TRUE(parse_seconds("0.0000000019", out));
  EXPECT_EQ(out, 1);
  for (const char *word : {"", ".", "-1", "1s", "1.5.2", "99999999999"})
    EXPECT_FALSE(parse_seconds(word, out)) << word;
}

TEST(BoardTexts, SignalsHaveNamesAndNumbers) {
  EXPECT_EQ(parse_signal("TERM"), 15);
  EXPECT_EQ(parse_signal("SIGINT"), 2);
  EXPECT_EQ(parse_signal("9"), 9);
  for (const char *word : {"", "SIG", "TERMX", "0", "-1", "99"})
    EXPECT_EQ(parse_signal(word), 0) << word;
}

TEST(BoardTexts, SecondsAreWrittenWithSixDecimals) {
  char text[32];
  TextBuffer buffer = {text, sizeof text, 0, false};
  append_seconds(buffer, 3'000'004'999);
  EXPECT_EQ(std::string_view(text, buffer.length), "3.000004");
}

}  // namespace
}  // namespace vboard
