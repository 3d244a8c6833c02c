// Device-tree properties: cells of a command line, and the overlay that carries them.

#include "debug/debug_tools.h"
#include "debug/dtb_cells.h"
#include "platform/device_tree.h"
#include "platform/overlay_blob.h"

#include <dlfcn.h>
#include <errno.h>
#include <string.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// What a handler hands to the library, whose place this program takes while it is looked at.
struct Handed {
  int calls;
  int count;
  std::string node;
  std::string name;
  std::uint32_t type;
  std::vector<unsigned char> value;
  int result;
};

Handed *handed = nullptr;

}  // namespace

int rig_dtb_overlay(DtbOverlayProp *props, int count) {
  if (handed == nullptr) {
    const auto real =
        reinterpret_cast<decltype(&rig_dtb_overlay)>(dlsym(RTLD_NEXT, "rig_dtb_overlay"));
    return real(props, count);
  }
  const auto *value = static_cast<const unsigned char *>(props->value);
  ++handed->calls;
  handed->count = count;
  handed->node = props->node;
  handed->name = props->name;
  handed->type = props->type;
  handed->value.assign(value, value + props->length);
  return handed->result;
}

namespace {

using Words = std::vector<std::uint32_t>;

Words cells_of(std::uint32_t wanted, std::vector<const char *> arguments) {
  const DtbCells cells = parse_cells(wanted, static_cast<int>(arguments.size()),
                                     const_cast<char **>(arguments.data()));
  return {cells.words.begin(), cells.words.begin() + cells.count};
}

TEST(Cells, are_read_in_every_base) {
  EXPECT_EQ(cells_of(4, {"10", "0x10", "010", "word"}), (Words{10, 16, 8, 0}));
}

TEST(Cells, have_32_bits) {
  EXPECT_EQ(cells_of(3, {"0xFFFFFFFF", "0x100000000", "-1"}),
            (Words{0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}));
}

TEST(Cells, that_are_missing_are_0) {
  EXPECT_EQ(cells_of(4, {"1", "2"}), (Words{1, 2, 0, 0}));
  EXPECT_EQ(cells_of(2, {}), (Words{0, 0}));
}

TEST(Cells, that_were_not_asked_for_are_left_out) {
  EXPECT_EQ(cells_of(1, {"1", "2"}), (Words{1}));
  EXPECT_EQ(cells_of(0, {"1", "2"}), (Words{}));
}

TEST(Cells, are_16_at_most) {
  const std::vector<const char *> arguments(20, "7");
  EXPECT_EQ(cells_of(20, arguments), Words(16, 7));
  EXPECT_EQ(cells_of(17, {"1", "2"}).size(), 16u);
  EXPECT_EQ(cells_of(0xFFFFFFFF, {"1"}).size(), 16u);
}

// The handlers that no applet table lists.

class DtbHandlers : public testing::Test {
 protected:
  int run(int (*handler)(int, char **), std::vector<const char *> words) {
    const int argc = static_cast<int>(words.size());
    words.push_back(nullptr);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    handed = &got;
    const int status = handler(argc, const_cast<char **>(words.data()));
    handed = nullptr;
    out = testing::internal::GetCapturedStdout();
    err = testing::internal::GetCapturedStderr();
    return status;
  }
  void expect_handed(const char *node, const char *name, const Words &cells) {
    EXPECT_EQ(got.calls, 1);
    EXPECT_EQ(got.count, 1);
    EXPECT_EQ(got.node, node);
    EXPECT_EQ(got.name, name);
    EXPECT_EQ(got.type, 2u);
    std::vector<unsigned char> native(cells.size() * 4);
    memcpy(native.data(), cells.data(), native.size());
    EXPECT_EQ(got.value, native);
    EXPECT_EQ(out + err, "");
    got = {};
  }
  Handed got = {};
  std::string out;
  std::string err;
};

TEST_F(DtbHandlers, dtbofu32_hands_over_one_cell_and_returns_the_library_s_result) {
  EXPECT_EQ(run(dtbofu32_main, {"dtbofu32", "/chosen", "testu32", "0x12345678"}), 0);
  expect_handed("/chosen", "testu32", {0x12345678});
  got.result = -5;
  EXPECT_EQ(run(dtbofu32_main, {"dtbofu32", "/", "a", "010"}), -5);
  expect_handed("/", "a", {8});
  got.result = 3;
  EXPECT_EQ(run(dtbofu32_main, {"dtbofu32", "/", "a", "-1"}), 3);
  expect_handed("/", "a", {0xFFFFFFFF});
}

TEST_F(DtbHandlers, dtbofu64_hands_over_two_cells_and_returns_the_library_s_result) {
  EXPECT_EQ(run(dtbofu64_main, {"dtbofu64", "/chosen", "testu64", "0x11223344", "0x55667788"}), 0);
  expect_handed("/chosen", "testu64", {0x11223344, 0x55667788});
  got.result = -5;
  EXPECT_EQ(run(dtbofu64_main, {"dtbofu64", "/", "a", "1", "word"}), -5);
  expect_handed("/", "a", {1, 0});
}

TEST_F(DtbHandlers, dtbofu32_of_another_count_prints_the_usage) {
  for (const auto &words : {std::vector<const char *>{"dtbofu32"},
                            {"dtbofu32", "/", "a"},
                            {"dtbofu32", "/", "a", "1", "2"}}) {
    EXPECT_EQ(run(dtbofu32_main, words), -1);
    EXPECT_EQ(out, "");
    EXPECT_EQ(err,
              "\n dtbofu32 v1.0\n\nUsage: dtbofu32 [args]\n\n\n\nexample:\n"
              "  dtbofu32 /chosen testu32 0x12345678\n");
    EXPECT_EQ(got.calls, 0);
  }
}

TEST_F(DtbHandlers, dtbofu64_of_another_count_prints_the_usage) {
  for (const auto &words : {std::vector<const char *>{"dtbofu64"},
                            {"dtbofu64", "/", "a", "1"},
                            {"dtbofu64", "/", "a", "1", "2", "3"}}) {
    EXPECT_EQ(run(dtbofu64_main, words), -1);
    EXPECT_EQ(out, "");
    EXPECT_EQ(err,
              "\n dtbofu64 v1.0\n\nUsage: dtbofu64 [args]\n\n\n\nexample:\n"
              "  dtbofu64 /chosen testu64 0x11223344 0x55667788\n");
    EXPECT_EQ(got.calls, 0);
  }
}

// The overlay.

// Walks a flattened tree by hand, as its standard lays it out (big-endian words, names and values
// padded to four bytes), and gives it as one line of text: values as hexadecimal bytes.
class Tree {
 public:
  explicit Tree(const unsigned char *blob) : blob_(blob) {}
  std::string text() {
    EXPECT_EQ(word(0), 0xD00DFEEDu);
    at_ = word(8);
    const std::uint32_t strings = word(12);
    std::string out;
    for (;;) {
      const std::uint32_t token = next();
      if (token == 1) {
        out += name(at_) + "{";
        skip(name(at_).size() + 1);
      } else if (token == 2) {
        out += "}";
      } else if (token == 3) {
        const std::uint32_t length = next();
        out += name(strings + next()) + "=";
        for (std::uint32_t i = 0; i < length; ++i) {
          char digits[3];
          snprintf(digits, sizeof digits, "%02x", blob_[at_ + i]);
          out += digits;
        }
        out += ";";
        skip(length);
      } else {
        EXPECT_TRUE(token == 9 || token == 4) << token;
        if (token == 9)
          return out;
      }
    }
  }

 private:
  std::uint32_t word(std::size_t at) {
    return static_cast<std::uint32_t>(blob_[at] << 24 | blob_[at + 1] << 16 | blob_[at + 2] << 8 |
                                      blob_[at + 3]);
  }
  std::uint32_t next() {
    at_ += 4;
    return word(at_ - 4);
  }
  std::string name(std::size_t at) {
    return reinterpret_cast<const char *>(blob_ + at);
  }
  void skip(std::size_t length) {
    at_ += (length + 3) / 4 * 4;
  }
  const unsigned char *blob_;
  std::size_t at_ = 0;
};

DtbOverlayProp property(const char *node, const char *name, std::uint32_t type, const void *value,
                        std::size_t length) {
  return {node, name, type, value, static_cast<std::uint32_t>(length)};
}

class Overlay : public testing::Test {
 protected:
  std::string built(const std::vector<DtbOverlayProp> &props) {
    const int size =
        rigcore::build_overlay(props.data(), static_cast<int>(props.size()), blob_, sizeof blob_);
    if (size < 0 && errno == ELIBACC)
      return "no libfdt";
    EXPECT_GT(size, 0);
    return Tree(blob_).text();
  }
  alignas(8) unsigned char blob_[4096];
};

constexpr char kChosen[] = "2f63686f73656e00";  // "/chosen" with its NUL

TEST_F(Overlay, holds_a_text_with_its_nul) {
  EXPECT_EQ(built({property("/chosen", "test", DTB_PROP_STRING, "aaaaXX", 4)}),
            std::string("{fragment@0{target-path=") + kChosen + ";__overlay__{test=6161616100;}}}");
}

TEST_F(Overlay, holds_an_empty_text_as_a_nul) {
  EXPECT_EQ(built({property("/chosen", "test", DTB_PROP_STRING, nullptr, 0)}),
            std::string("{fragment@0{target-path=") + kChosen + ";__overlay__{test=00;}}}");
}

TEST_F(Overlay, holds_cells_big_endian) {
  const std::uint32_t cells[] = {0x11223344, 0x55667788};
  EXPECT_EQ(built({property("/chosen", "testu64", DTB_PROP_CELLS, cells, sizeof cells)}),
            std::string("{fragment@0{target-path=") + kChosen +
                ";__overlay__{testu64=1122334455667788;}}}");
}

TEST_F(Overlay, holds_no_cells_as_an_empty_value) {
  EXPECT_EQ(built({property("/chosen", "flag", DTB_PROP_CELLS, nullptr, 0)}),
            std::string("{fragment@0{target-path=") + kChosen + ";__overlay__{flag=;}}}");
}

TEST_F(Overlay, has_a_fragment_for_each_property) {
  const std::uint32_t cell = 1;
  EXPECT_EQ(built({property("/", "a", DTB_PROP_CELLS, &cell, 4),
                   property("/chosen", "b", DTB_PROP_STRING, "x", 1)}),
            std::string("{fragment@0{target-path=2f00;__overlay__{a=00000001;}}"
                        "fragment@1{target-path=") +
                kChosen + ";__overlay__{b=7800;}}}");
}

TEST_F(Overlay, that_does_not_fit_is_an_error) {
  const DtbOverlayProp one = property("/chosen", "test", DTB_PROP_STRING, "aaaa", 4);
  EXPECT_EQ(rigcore::build_overlay(&one, 1, blob_, 64), -1);
  EXPECT_TRUE(errno == ENOSPC || errno == ELIBACC);
}

TEST(OverlayProperty, must_make_sense) {
  const std::uint32_t cell = 1;
  EXPECT_TRUE(rigcore::is_overlay_property(property("/a", "b", DTB_PROP_CELLS, &cell, 4)));
  EXPECT_TRUE(rigcore::is_overlay_property(property("/", "b", DTB_PROP_STRING, "", 0)));
  EXPECT_FALSE(rigcore::is_overlay_property(property(nullptr, "b", DTB_PROP_CELLS, &cell, 4)));
  EXPECT_FALSE(rigcore::is_overlay_property(property("a", "b", DTB_PROP_CELLS, &cell, 4)));
  EXPECT_FALSE(rigcore::is_overlay_property(property("/a", nullptr, DTB_PROP_CELLS, &cell, 4)));
  EXPECT_FALSE(rigcore::is_overlay_property(property("/a", "", DTB_PROP_CELLS, &cell, 4)));
  EXPECT_FALSE(rigcore::is_overlay_property(property("/a", "b/c", DTB_PROP_CELLS, &cell, 4)));
  EXPECT_FALSE(rigcore::is_overlay_property(property("/a", "b", DTB_PROP_CELLS, &cell, 3)));
  EXPECT_FALSE(rigcore::is_overlay_property(property("/a", "b", DTB_PROP_CELLS, nullptr, 4)));
  EXPECT_FALSE(rigcore::is_overlay_property(property("/a", "b", 0, &cell, 4)));
  EXPECT_FALSE(rigcore::is_overlay_property(property("/a", "b", 3, &cell, 4)));
  EXPECT_FALSE(rigcore::is_overlay_property(property("/a", "b", DTB_PROP_STRING, "", 5000)));
}

TEST(RigDtbOverlay, refuses_what_makes_no_sense_and_says_so) {
  testing::internal::CaptureStderr();
  DtbOverlayProp bad = property("chosen", "test", DTB_PROP_STRING, "aaaa", 4);
  EXPECT_EQ(rig_dtb_overlay(&bad, 1), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(rig_dtb_overlay(&bad, 0), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(rig_dtb_overlay(nullptr, 1), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "rig_dtb_overlay: not a property that a device tree can hold\n"
            "rig_dtb_overlay: no property\n"
            "rig_dtb_overlay: no property\n");
}

}  // namespace
