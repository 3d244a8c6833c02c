// The virtual board's physical memory, reserved blocks, memory blocks, overlays and process events.

#include "platform/driver/korcmem.h"
#include "tests/unit/model_harness.h"
#include "vboard/board/device_tree_blob.h"
#include "vboard/board/process_events.h"
#include "vboard/board/attributes.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace vboard;

namespace {

int map(ModelHarness &board, std::size_t size, std::int64_t offset) {
  return board.open_file.model->map(board.open_file, size, offset);
}

// Physical memory.

constexpr char kMemory[] =
    "model = phys_mem\nmedium = phys_mem\n"
    "region0 = ram 0x0000 0x7fff\nregion1 = top 0xffff0000 0xffffffff\n"
    "region2 = more 0x8000 0x8fff\nrefuses = EPERM\n";

TEST(PhysMem, maps_what_regions_hold) {
  ModelHarness board(kMemory);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(map(board, 0x8000, 0), 0);
  EXPECT_EQ(map(board, 1, 0x7000), 0);
  EXPECT_EQ(map(board, 0x1000, 0xfffff000), 0);
  EXPECT_EQ(map(board, 0x9000, 0), 0) << "regions that touch";
}

TEST(PhysMem, refuses_what_no_region_holds) {
  ModelHarness board(kMemory);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(map(board, 1, 0x9000), -EPERM);
  EXPECT_EQ(map(board, 0x2000, 0x8000), -EPERM) << "its second page";
  EXPECT_EQ(map(board, 0x1001, 0x8000), -EPERM);
  EXPECT_EQ(map(board, 0x2000, 0xfffff000), -EPERM) << "beyond the last address";
}

TEST(PhysMem, refuses_with_einval_by_default) {
  ModelHarness board("model = phys_mem\nmedium = m\nregion0 = ram 0 0xfff\n");
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(map(board, 1, 0x1000), -EINVAL);
}

TEST(PhysMem, medium_reaches_the_last_region_s_end) {
  ModelHarness board(kMemory);
  ASSERT_EQ(board.open(), 0);
  struct stat status;
  ASSERT_EQ(stat((board.directory + "/media/phys_mem").c_str(), &status), 0);
  EXPECT_EQ(status.st_size, off_t{1} << 32);
  EXPECT_LT(status.st_blocks, 1000) << "and is sparse";
}

// Reserved blocks.

constexpr char kBlocks[] =
    "model = korcmem\nmedium = phys_mem\n"
    "block10 = video 0x2000 0x2000\nblock12 = high 0x123456000 0x1000\nstate10 = reserved\n";

TEST(Korcmem, tells_of_its_blocks) {
  ModelHarness board(kBlocks);
  ASSERT_EQ(board.open(), 0);
  CmemInfo info = {};
  info.id = 12;
  EXPECT_EQ(board.request(KORCMEM_CMEMINFO, info), 0);
  EXPECT_STREQ(info.name, "high");
  EXPECT_EQ(info.base, 0x123456000u);
  EXPECT_EQ(info.size, 0x1000u);
  for (const int id : {11, -1, 64, 1000}) {
    info.id = id;
    EXPECT_EQ(board.request(KORCMEM_CMEMINFO, info), -EINVAL) << id;
  }
}

TEST(Korcmem, follows_a_block_through_its_use) {
  ModelHarness board(kBlocks);
  ASSERT_EQ(board.open(), 0);
  CmemRange range = {};
  range.base = 0x2000;
  range.size = 0x2000;
  range.id = 10;
  CmemPages pages = {};
  pages.id = 10;
  std::uint32_t word = 0;
  EXPECT_EQ(map(board, 0x2000, 0x2000), 0);
  EXPECT_NE(board.node().find("state10 = mapped"), std::string::npos);
  EXPECT_EQ(board.request(KORCMEM_RELEASE, range), -EBUSY);
  EXPECT_EQ(board.request(KORCMEM_PAGE_FREE, pages), -EBUSY);
  EXPECT_EQ(board.request(KORCMEM_FINISH, word), 0);
  EXPECT_EQ(board.request(KORCMEM_RELEASE, range), 0);
  EXPECT_NE(board.node().find("state10 = released"), std::string::npos);
  EXPECT_EQ(board.request(KORCMEM_PAGE_FREE, pages), 0);
  EXPECT_NE(board.node().find("state10 = freed"), std::string::npos);
}

TEST(Korcmem, refuses_ranges_that_are_no_block_s) {
  ModelHarness board(kBlocks);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(map(board, 0x2001, 0x2000), -EINVAL);
  EXPECT_EQ(map(board, 0x1000, 0x1000), -EINVAL);
  CmemRange range = {};
  range.base = 0x2000;
  range.size = 0x1000;
  range.id = 10;
  EXPECT_EQ(board.request(KORCMEM_RELEASE, range), -EINVAL);
  CmemPages pages = {};
  pages.id = 11;
  EXPECT_EQ(board.request(KORCMEM_PAGE_FREE, pages), -EINVAL);
}

// Memory blocks.

constexpr char kSystemMemory[] = "sys/devices/system/memory/";

std::string memory(const char *name) {
  return std::string(kSystemMemory) + name;
}

ssize_t write(const ModelHarness &board, const std::string &path, std::string_view value) {
  return write_attribute(board.directory.c_str(), ("/" + path).c_str(), value.data(), value.size(),
                         0);
}

void add_system_memory(const ModelHarness &board) {
  board.write_file(memory("block_size_bytes").c_str(), "8000000\n");
  board.write_file(memory("auto_online_blocks").c_str(), "offline\n");
  board.write_file(memory("probe").c_str(), "");
}

TEST(MemoryBlocksModel, probe_makes_a_block) {
  const ModelHarness board("");
  add_system_memory(board);
  const std::string_view text("0x80000000\0", 11);
  EXPECT_EQ(write(board, memory("probe"), text), 11) << "the NUL counts as written";
  EXPECT_EQ(board.file(memory("memory16/state").c_str()), "offline\n");
  EXPECT_EQ(board.file(memory("memory16/phys_index").c_str()), "00000010\n");
  EXPECT_EQ(write(board, memory("probe"), text), -EEXIST);
  for (const char *bad : {"0x80000001", "block", "", "-0x8000000"})
    EXPECT_EQ(write(board, memory("probe"), bad), -EINVAL) << bad;
}

TEST(MemoryBlocksModel, block_may_begin_online) {
  const ModelHarness board("");
  add_system_memory(board);
  board.write_file(memory("auto_online_blocks").c_str(), "online\n");
  EXPECT_EQ(write(board, memory("probe"), "0x8000000\n"), 10);
  EXPECT_EQ(board.file(memory("memory1/state").c_str()), "online\n");
}

TEST(MemoryBlocksModel, state_changes_and_refuses_what_it_is_already) {
  const ModelHarness board("");
  board.write_file(memory("memory1/state").c_str(), "offline\n");
  EXPECT_EQ(write(board, memory("memory1/state"), "offline"), -EINVAL);
  EXPECT_EQ(write(board, memory("memory1/state"), {"online_movable\0", 15}), 15);
  EXPECT_EQ(board.file(memory("memory1/state").c_str()), "online\n");
  EXPECT_EQ(write(board, memory("memory1/state"), "online_kernel"), -EINVAL);
  EXPECT_EQ(write(board, memory("memory1/state"), "sleeping"), -EINVAL);
  EXPECT_EQ(write(board, memory("memory1/state"), "offline\n"), 8);
  EXPECT_EQ(board.file(memory("memory1/state").c_str()), "offline\n");
}

// Overlays.

using Bytes = std::vector<unsigned char>;

void put(Bytes &bytes, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes.push_back(static_cast<unsigned char>(value >> shift));
}

void put(Bytes &bytes, std::string_view text) {
  bytes.insert(bytes.end(), text.begin(), text.end());
  while (bytes.size() % 4 != 0)
    bytes.push_back(0);
}

// A flattened tree from its structure; the strings are "target-path", "p" and "q".
Bytes tree(const Bytes &structure) {
  const std::string_view strings("target-path\0p\0q\0", 16);
  Bytes blob;
  const std::uint32_t at = 40;
  const std::uint32_t size = static_cast<std::uint32_t>(structure.size());
  for (const std::uint32_t word :
       {0xD00DFEEDu, at + size + 16, at, at + size, at, 17u, 16u, 0u, 16u, size})
    put(blob, word);
  blob.insert(blob.end(), structure.begin(), structure.end());
  put(blob, strings);
  return blob;
}

struct Structure {
  Bytes bytes;
  Structure &node(std::string_view name) {
    put(bytes, 1u);
    put(bytes, std::string(name) + '\0');
    return *this;
  }
  Structure &property(std::uint32_t name, std::string_view value) {
    put(bytes, 3u);
    put(bytes, static_cast<std::uint32_t>(value.size()));
    put(bytes, name);
    put(bytes, value);
    return *this;
  }
  Structure &end(int count = 1) {
    for (int i = 0; i < count; ++i)
      put(bytes, 2u);
    return *this;
  }
  Structure &done() {
    put(bytes, 9u);
    return *this;
  }
};

constexpr std::uint32_t kTarget = 0;
constexpr std::uint32_t kP = 12;
constexpr std::uint32_t kQ = 14;

Bytes overlay(std::string_view target, std::string_view value) {
  return tree(Structure()
                  .node("")
                  .node("fragment@0")
                  .property(kTarget, std::string(target) + '\0')
                  .node("__overlay__")
                  .property(kP, value)
                  .end(3)
                  .done()
                  .bytes);
}

std::string properties(const Bytes &blob, int expected = 0) {
  std::string found;
  auto take = [](const OverlayProperty &property, void *context) {
    *static_cast<std::string *>(context) += std::string(property.node) + ":" +
                                            std::string(property.name) + "=" +
                                            std::string(property.value) + " ";
    return 0;
  };
  EXPECT_EQ(read_overlay(blob, take, &found), expected);
  return found;
}

TEST(OverlayBlob, names_each_property_s_node) {
  EXPECT_EQ(properties(overlay("/chosen", "value")), "/chosen:p=value ");
  EXPECT_EQ(properties(tree(Structure()
                                .node("")
                                .property(kQ, "of no overlay")
                                .node("fragment@0")
                                .property(kTarget, {"/\0", 2})
                                .node("__overlay__")
                                .property(kP, "1")
                                .node("new")
                                .property(kQ, "2")
                                .end()
                                .end(2)
                                .node("fragment@1")
                                .property(kTarget, {"/a/b\0", 5})
                                .node("__overlay__")
                                .property(kP, "3")
                                .node("c")
                                .node("d")
                                .property(kQ, "")
                                .end(2)
                                .node("e")
                                .property(kQ, "4")
                                .end()
                                .end(3)
                                .done()
                                .bytes)),
            "/:p=1 /new:q=2 /a/b:p=3 /a/b/c/d:q= /a/b/e:q=4 ");
}

TEST(OverlayBlob, refuses_a_fragment_without_target) {
  properties(tree(Structure()
                      .node("")
                      .node("fragment@0")
                      .node("__overlay__")
                      .property(kP, "1")
                      .end(3)
                      .done()
                      .bytes),
             -EINVAL);
}

TEST(OverlayBlob, refuses_what_is_damaged) {
  const Bytes whole = overlay("/chosen", "value");
  EXPECT_EQ(blob_size(whole), whole.size());
  for (std::size_t size = 0; size < whole.size(); ++size) {
    // An exact allocation, so that the address sanitizer sees a byte too many.
    properties(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)), -EINVAL);
  }
  for (std::size_t at = 0; at < whole.size(); ++at) {
    Bytes damaged = whole;
    damaged[at] = 0xFF;  // whatever comes of it, nothing outside is read
    read_overlay(
        damaged, [](const OverlayProperty &, void *) { return 0; }, nullptr);
  }
}

constexpr char kOverlays[] = "/sys/kernel/config/device-tree/overlays/";

class Overlays : public testing::Test {
 protected:
  void SetUp() override {
    board.write_file("sys/kernel/config/device-tree/overlays/.keep", "");
    board.write_file("proc/device-tree/chosen/old", "before");
  }
  std::string path(const char *name) const {
    return kOverlays + std::string(name);
  }
  int make(const char *name) const {
    return make_sys_directory(board.directory.c_str(), path(name).c_str());
  }
  int remove(const char *name) const {
    return remove_sys_directory(board.directory.c_str(), path(name).c_str());
  }
  ssize_t write_blob(const char *name, const Bytes &blob, std::size_t from = 0,
                     std::size_t size = SIZE_MAX) const {
    size = std::min(size, blob.size() - from);
    return write_attribute(board.directory.c_str(), path(name).c_str(), blob.data() + from, size,
                           static_cast<std::int64_t>(from));
  }
  std::string status(const char *name) const {
    return board.file((path(name).substr(1) + "/status").c_str());
  }
  ModelHarness board{""};
};

TEST_F(Overlays, begin_unapplied) {
  EXPECT_EQ(make("one"), 0);
  EXPECT_EQ(status("one"), "unapplied\n");
  EXPECT_EQ(make("one"), -EEXIST);
}

TEST_F(Overlays, are_the_only_directories_that_can_be_made) {
  EXPECT_EQ(make("one/below"), -EPERM);
  EXPECT_EQ(make_sys_directory(board.directory.c_str(), "/sys/class/new"), -EPERM);
  EXPECT_EQ(remove_sys_directory(board.directory.c_str(), "/sys/kernel"), -EPERM);
  EXPECT_EQ(remove("none"), -ENOENT);
}

TEST_F(Overlays, put_their_properties_into_the_tree) {
  ASSERT_EQ(make("one"), 0);
  const Bytes blob = overlay("/chosen", {"text\0", 5});
  EXPECT_EQ(write_blob("one/dtbo", blob), static_cast<ssize_t>(blob.size()));
  EXPECT_EQ(status("one"), "applied\n");
  EXPECT_EQ(board.file("proc/device-tree/chosen/p"), std::string("text\0", 5));
  EXPECT_EQ(board.file("overlays/one"), "/chosen p 7465787400 -\n");
  EXPECT_EQ(remove("one"), 0);
  struct stat ignored;
  EXPECT_NE(stat((board.directory + "/proc/device-tree/chosen/p").c_str(), &ignored), 0);
  EXPECT_NE(stat((board.directory + path("one")).c_str(), &ignored), 0);
}

TEST_F(Overlays, give_back_what_was_there) {
  board.write_file("proc/device-tree/chosen/p", "before");
  ASSERT_EQ(make("one"), 0);
  write_blob("one/dtbo", overlay("/chosen", "after"));
  EXPECT_EQ(board.file("proc/device-tree/chosen/p"), "after");
  EXPECT_EQ(remove("one"), 0);
  EXPECT_EQ(board.file("proc/device-tree/chosen/p"), "before");
}

TEST_F(Overlays, may_come_in_pieces) {
  ASSERT_EQ(make("one"), 0);
  const Bytes blob = overlay("/chosen", "value");
  EXPECT_EQ(write_blob("one/dtbo", blob, 0, 50), 50);
  EXPECT_EQ(status("one"), "unapplied\n");
  EXPECT_EQ(write_blob("one/dtbo", blob, 50), static_cast<ssize_t>(blob.size()) - 50);
  EXPECT_EQ(status("one"), "applied\n");
}

TEST_F(Overlays, that_make_no_sense_stay_unapplied) {
  ASSERT_EQ(make("one"), 0);
  EXPECT_EQ(write_blob("one/dtbo", overlay("/none", "value")),
            static_cast<ssize_t>(overlay("/none", "value").size()));
  EXPECT_EQ(status("one"), "unapplied\n");
  ASSERT_EQ(make("two"), 0);
  EXPECT_EQ(write_blob("two/dtbo", Bytes(100, 7)), 100);
  EXPECT_EQ(status("two"), "unapplied\n");
}

// Process events.

TEST(ProcessEvents, are_read_from_their_time_line) {
  std::string_view text =
      "# comment\n\n0.5 fork 1 2 3 -4 # more\nnonsense\n1 comm 5 6 two words  \n2 event 0x20 7\n"
      "3 raw 0a0b 0C\n4 raw 0a0b\n";
  ProcessEventLine line = {};
  ASSERT_TRUE(next_process_event(text, line));
  EXPECT_EQ(line.at, 500'000'000);
  ASSERT_EQ(line.size, 76u);
  std::int32_t words[19];
  memcpy(words, line.datagram, sizeof words);
  const std::int32_t expected[19] = {76, 3, 0, 0, 1, 1, 0, 0, 40, 1, 0, 0, 0, 1, 2, 3, -4, 0, 0};
  EXPECT_EQ(memcmp(words, expected, sizeof words), 0);

  ASSERT_TRUE(next_process_event(text, line));
  EXPECT_EQ(line.at, 1'000'000'000);
  EXPECT_STREQ(reinterpret_cast<const char *>(line.datagram + 60), "two words");
  ASSERT_TRUE(next_process_event(text, line));
  memcpy(words, line.datagram, sizeof words);
  EXPECT_EQ(words[9], 0x20);
  EXPECT_EQ(words[13], 7);
  ASSERT_TRUE(next_process_event(text, line)) << "the raw line with a capital is none";
  EXPECT_EQ(line.at, 4'000'000'000);
  EXPECT_EQ(line.size, 2u);
  EXPECT_EQ(line.datagram[1], 0x0b);
  EXPECT_FALSE(next_process_event(text, line));
}

}  // namespace
