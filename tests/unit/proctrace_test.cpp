// The process-events connector: the subscription's bytes, and what datagrams print.

#include "debug/process_events.h"

#include <string.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

void put32(Bytes &bytes, std::uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8)
    bytes.push_back(static_cast<unsigned char>(value >> shift));
}

// A message as the kernel sends it, `length` being what its header tells.
Bytes message(std::uint32_t what, const std::vector<std::int32_t> &data, std::uint32_t idx = 1,
              std::uint32_t val = 1, std::uint32_t length = 76) {
  Bytes bytes;
  put32(bytes, length);
  put32(bytes, 3);  // type and flags
  put32(bytes, 0);
  put32(bytes, 0);
  put32(bytes, idx);
  put32(bytes, val);
  put32(bytes, 9);
  put32(bytes, 0);
  put32(bytes, 40);  // length and flags
  put32(bytes, what);
  put32(bytes, 1);           // processor
  put32(bytes, 0x11111111);  // time
  put32(bytes, 0x22222222);
  for (const std::int32_t word : data)
    put32(bytes, static_cast<std::uint32_t>(word));
  bytes.resize(76);
  return bytes;
}

std::string printed(const Bytes &datagram, int expected = 0) {
  testing::internal::CaptureStderr();
  const int result = print_process_events(datagram);
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_EQ(result, expected) << text;
  return text;
}

Bytes together(const Bytes &first, const Bytes &second) {
  Bytes both = first;
  both.insert(both.end(), second.begin(), second.end());
  return both;
}

TEST(Subscription, is_40_bytes_with_the_fields_in_their_places) {
  const ProcessSubscription message = build_subscription(0x01020304, true);
  const unsigned char expected[40] = {
      40, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 4, 3, 2, 1, 1, 0, 0, 0,
      1,  0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 1, 0, 0, 0,
  };
  ASSERT_EQ(sizeof message, sizeof expected);
  EXPECT_EQ(memcmp(&message, expected, sizeof expected), 0);
}

TEST(Subscription, ends_with_operation_2) {
  EXPECT_EQ(build_subscription(7, true).operation, 1u);
  EXPECT_EQ(build_subscription(7, false).operation, 2u);
}

TEST(Event, of_each_kind_has_its_line) {
  EXPECT_EQ(printed(message(0x00000001, {10, 11, 12, 13})),
            "fork pid=10/tgid=11 -> pid=12/tgid=13\n");
  EXPECT_EQ(printed(message(0x00000002, {10, 11})), "exec pid=10/tgid=11\n");
  EXPECT_EQ(printed(message(0x00000004, {10, 11, 1000, 0})),
            "uid pid=10/tgid=11 -> ruid=1000/euid=0\n");
  EXPECT_EQ(printed(message(0x00000040, {10, 11, 100, -1})),
            "gid pid=10/tgid=11 -> rgid=100/egid=-1\n");
  EXPECT_EQ(printed(message(0x00000080, {10, 11})), "session pid=10/tgid=11\n");
  EXPECT_EQ(printed(message(0x40000000, {10, 11})), "coredump pid=10/tgid=11\n");
  EXPECT_EQ(printed(message(0x80000000, {10, 11, 256, 17})), "exit pid=10/tgid=11\n");
}

Bytes rename(const char *name, std::size_t size) {
  Bytes bytes = message(0x00000200, {10, 11});
  memcpy(bytes.data() + 60, name, size);
  return bytes;
}

TEST(Event, of_a_rename_shows_the_name) {
  EXPECT_EQ(printed(rename("kworker/0:1", 11)), "comm pid=10/tgid=11: 'kworker/0:1'\n");
  EXPECT_EQ(printed(rename("", 0)), "comm pid=10/tgid=11: ''\n");
}

TEST(Event, of_a_rename_shows_high_characters_as_they_are) {
  EXPECT_EQ(printed(rename("\x80\xA0\xC3\xFF", 4)), "comm pid=10/tgid=11: '\x80\xA0\xC3\xFF'\n");
}

TEST(Event, of_a_rename_ends_after_16_characters) {
  Bytes bytes = rename("0123456789abcdef", 16);
  bytes.insert(bytes.end(), 4, 'X');
  bytes[0] = 80;
  EXPECT_EQ(printed(bytes), "comm pid=10/tgid=11: '0123456789abcdef'\n");
}

TEST(Event, that_acknowledges_says_nothing) {
  EXPECT_EQ(printed(message(0, {0})), "");
}

TEST(Event, that_is_not_known_ends_the_trace) {
  EXPECT_EQ(printed(message(0x100, {1, 2}), -1), "unhandled event: 0x     100\n");
  EXPECT_EQ(printed(message(0x20000000, {1, 2}), -1), "unhandled event: 0x20000000\n");
  EXPECT_EQ(printed(message(3, {1, 2}), -1), "unhandled event: 0x       3\n");
}

TEST(Event, that_is_not_known_hides_those_behind_it) {
  EXPECT_EQ(printed(together(message(0x100, {}), message(2, {5, 6})), -1),
            "unhandled event: 0x     100\n");
}

TEST(Event, of_another_connector_is_skipped) {
  EXPECT_EQ(printed(message(1, {1, 2, 3, 4}, 2, 1)), "");
  EXPECT_EQ(printed(message(1, {1, 2, 3, 4}, 1, 2)), "");
  EXPECT_EQ(printed(together(message(0x100, {}, 3, 1), message(2, {5, 6}))), "exec pid=5/tgid=6\n");
}

TEST(Datagram, may_hold_several_messages) {
  EXPECT_EQ(printed(together(message(1, {1, 2, 3, 4}), message(0x80000000, {5, 6}))),
            "fork pid=1/tgid=2 -> pid=3/tgid=4\nexit pid=5/tgid=6\n");
}

TEST(Datagram, aligns_its_messages_to_four_bytes) {
  const Bytes first = message(2, {1, 2}, 1, 1, 73);  // 73 bytes, the next one at 76
  EXPECT_EQ(printed(together(first, message(2, {3, 4}))), "exec pid=1/tgid=2\nexec pid=3/tgid=4\n");
}

TEST(Datagram, shorter_than_a_header_says_nothing) {
  EXPECT_EQ(printed({}), "");
  EXPECT_EQ(printed(Bytes(15, 0xFF)), "");
}

TEST(Datagram, with_a_length_that_does_not_fit_says_nothing) {
  EXPECT_EQ(printed(message(2, {1, 2}, 1, 1, 15)), "");
  EXPECT_EQ(printed(message(2, {1, 2}, 1, 1, 77)), "");
  EXPECT_EQ(printed(message(2, {1, 2}, 1, 1, 0xFFFFFFFF)), "");
  EXPECT_EQ(printed(message(2, {1, 2}, 1, 1, 0)), "");
}

TEST(Datagram, ends_at_a_second_length_that_does_not_fit) {
  EXPECT_EQ(printed(together(message(2, {1, 2}), message(2, {3, 4}, 1, 1, 100))),
            "exec pid=1/tgid=2\n");
}

TEST(Datagram, that_ends_within_the_padding_ends_there) {
  Bytes bytes = message(2, {1, 2}, 1, 1, 73);
  bytes.resize(73);
  EXPECT_EQ(printed(bytes), "exec pid=1/tgid=2\n");
}

TEST(Datagram, cut_short_reads_as_zeros) {
  // Exact allocations, so that the address sanitizer sees a byte too many.
  for (std::size_t size = 16; size <= 76; ++size) {
    Bytes bytes = message(1, {1, 2, 3, 4}, 1, 1, static_cast<std::uint32_t>(size));
    bytes.resize(size);
    bytes.shrink_to_fit();
    printed(bytes);
  }
  Bytes bytes = message(1, {1, 2, 3, 4}, 1, 1, 60);
  bytes.resize(60);
  EXPECT_EQ(printed(bytes), "fork pid=1/tgid=2 -> pid=0/tgid=0\n");
}

}  // namespace
