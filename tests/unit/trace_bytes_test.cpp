#include "vboard/board/trace_bytes.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace vboard {
namespace {

std::string bytes_text(const std::vector<unsigned char> &bytes) {
  std::string text(trace_bytes_limit(bytes.size()), '?');
  TextBuffer buffer = {text.data(), text.size(), 0, false};
  append_bytes(buffer, bytes);
  EXPECT_FALSE(buffer.overflow);
  text.resize(buffer.length);
  return text;
}

std::vector<unsigned char> repeated(unsigned char byte, std::size_t count) {
  return std::vector<unsigned char>(count, byte);
}

TEST(TraceBytes, NoBytesAreNoText) {
  EXPECT_EQ(bytes_text({}), "");
}

TEST(TraceBytes, BytesAreTwoLowerCaseDigits) {
  EXPECT_EQ(bytes_text({0xE2}), "e2");
  EXPECT_EQ(bytes_text({0x00, 0x0F, 0xA5}), "000fa5");
}

TEST(TraceBytes, ThreeEqualBytesAreNoRun) {
  EXPECT_EQ(bytes_text({7, 7, 7}), "070707");
}

TEST(TraceBytes, FourEqualBytesAreARun) {
  EXPECT_EQ(bytes_text({7, 7, 7, 7}), "07*4");
  EXPECT_EQ(bytes_text(repeated(0xFF, 1024)), "ff*1024");
}

TEST(TraceBytes, PointsSetRunsOff) {
  std::vector<unsigned char> block = repeated(0, 256);
  block[250] = 7;
  EXPECT_EQ(bytes_text(block), "00*250.07.00*5");
}

TEST(TraceBytes, NeighbouringRunsHaveOnePointBetweenThem) {
  std::vector<unsigned char> block = repeated(0xFF, 4);
  block.insert(block.end(), 5, 0);
  EXPECT_EQ(bytes_text(block), "ff*4.00*5");
}

TEST(TraceBytes, ClockRecordHasOneRunAtItsEnd) {
  // Seconds 0x27, minutes 0x39, hours 8, day 1, month 3, year 0x73, then three words of zero.
  std::vector<unsigned char> record = repeated(0, 36);
  record[0] = 0x27;
  record[4] = 0x39;
  record[8] = 8;
  record[12] = 1;
  record[16] = 3;
  record[20] = 0x73;
  EXPECT_EQ(bytes_text(record), "270000003900000008000000010000000300000073.00*15");
}

TEST(TraceBytes, LimitHoldsForTheWorstMixtures) {
  // A single byte between runs of the shortest length costs the most points.
  std::vector<unsigned char> mixture;
  for (int i = 0; i < 100; ++i) {
    mixture.push_back(static_cast<unsigned char>(i + 1));
    mixture.insert(mixture.end(), kShortestRun, 0);
  }
  bytes_text(mixture);
  std::vector<unsigned char> runs;
  for (int i = 0; i < 100; ++i)
    runs.insert(runs.end(), kShortestRun, static_cast<unsigned char>(i));
  bytes_text(runs);
}

TEST(TraceBytes, TellsOfTooLittleRoom) {
  std::array<char, 3> room;
  TextBuffer buffer = {room.data(), room.size(), 0, false};
  append_bytes(buffer, std::array<unsigned char, 2>{1, 2});
  EXPECT_TRUE(buffer.overflow);
  EXPECT_EQ(buffer.length, 3u);
}

}  // namespace
}  // namespace vboard
