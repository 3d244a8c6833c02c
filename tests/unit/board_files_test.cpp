// A board over its template: what is read from where, and when a file becomes the board's own.

#include "vboard/board/board_files.h"
#include "vboard/board/file_updates.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>

using namespace vboard;

namespace {

struct BoardFiles : testing::Test {
  BoardFiles() {
    char name[] = "/tmp/board_files.XXXXXX";
    folder = mkdtemp(name);
    board = folder + "/board";
    below = folder + "/template";
    std::filesystem::create_directories(board);
    write(below + "/etc/deep/file", "given");
    write(below + "/etc/other", "other");
    set_template(board.c_str(), below.c_str(), &whole);
  }
  ~BoardFiles() override {
    set_template("", "", &whole);
    std::filesystem::remove_all(folder);
  }

  static void write(const std::string &file, const std::string &text) {
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    std::ofstream(file) << text;
  }
  static std::string text_of(const std::string &file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  std::string read(const std::string &name) const {
    int fd = board_open((board + name).c_str(), O_RDONLY);
    if (fd < 0)
      return std::to_string(fd);
    char bytes[64];
    ssize_t size = sys_read(fd, bytes, sizeof bytes);
    sys_close(fd);
    return {bytes, static_cast<std::size_t>(size)};
  }
  int open(const std::string &name, int flags) const {
    int fd = board_open((board + name).c_str(), flags, 0666);
    if (fd >= 0)
      sys_close(fd);
    return fd < 0 ? fd : 0;
  }
  bool owns(const std::string &name) const {
    return std::filesystem::exists(board + name);
  }
  std::multiset<std::string> names(const std::string &name) const {
    std::multiset<std::string> all;
    each_board_entry((board + name).c_str(),
                     [](const char *entry, void *context) {
                       static_cast<std::multiset<std::string> *>(context)->insert(entry);
                       return true;
                     },
                     &all);
    return all;
  }

  std::string folder, board, below;
  std::atomic<std::uint32_t> whole = 0;
};

using Names = std::multiset<std::string>;

}  // namespace

TEST_F(BoardFiles, reading_leaves_them_where_they_are) {
  EXPECT_EQ(read("/etc/deep/file"), "given");
  EXPECT_EQ(read("/etc/missing"), std::to_string(-ENOENT));
  FileStatus status;
  EXPECT_EQ(board_stat((board + "/etc/deep").c_str(), status), 0);
  EXPECT_TRUE(S_ISDIR(status.mode));
  EXPECT_FALSE(owns("/etc"));
}

TEST_F(BoardFiles, an_own_file_hides_the_template) {
  write(board + "/etc/other", "mine");
  EXPECT_EQ(read("/etc/other"), "mine");
  EXPECT_EQ(own_board_file((board + "/etc/other").c_str()), 0);
  EXPECT_EQ(text_of(board + "/etc/other"), "mine");
}

TEST_F(BoardFiles, each_way_of_writing_copies_first) {
  for (int flags : {O_WRONLY, O_RDWR, O_RDONLY | O_CREAT, O_WRONLY | O_APPEND}) {
    EXPECT_EQ(open("/etc/deep/file", flags), 0);
    EXPECT_EQ(text_of(board + "/etc/deep/file"), "given") << flags;
    std::filesystem::remove_all(board + "/etc");
  }
  EXPECT_EQ(open("/etc/deep/file", O_WRONLY | O_TRUNC), 0);
  EXPECT_EQ(text_of(board + "/etc/deep/file"), "");
  EXPECT_FALSE(owns("/etc/other"));
  EXPECT_FALSE(owns("/.copy"));
  EXPECT_EQ(text_of(below + "/etc/deep/file"), "given");
}

TEST_F(BoardFiles, a_new_file_gets_the_directories_of_the_template_and_no_others) {
  EXPECT_EQ(open("/etc/deep/new", O_WRONLY | O_CREAT), 0);
  EXPECT_TRUE(owns("/etc/deep/new"));
  EXPECT_EQ(open("/none/new", O_WRONLY | O_CREAT), -ENOENT);
  EXPECT_FALSE(owns("/none"));
  EXPECT_EQ(open("/etc/missing", O_WRONLY), -ENOENT);
}

TEST_F(BoardFiles, a_read_only_template_gives_files_that_can_be_changed) {
  std::string file = below + "/etc/deep/file";
  ASSERT_EQ(chmod(file.c_str(), 0444), 0);
  ASSERT_EQ(chmod((below + "/etc/deep").c_str(), 0555), 0);
  EXPECT_EQ(own_board_file((board + "/etc/deep/file").c_str()), 0);
  FileStatus status;
  ASSERT_EQ(board_stat((board + "/etc/deep/file").c_str(), status), 0);
  EXPECT_EQ(status.mode & 0777, 0644u);
  ASSERT_EQ(board_stat((board + "/etc/deep").c_str(), status), 0);
  EXPECT_EQ(status.mode & 0700, 0700u);
  chmod((below + "/etc/deep").c_str(), 0755);
}

TEST_F(BoardFiles, a_listing_has_each_name_once) {
  EXPECT_EQ(names("/etc"), (Names{"deep", "other"}));
  write(board + "/etc/other", "mine");
  write(board + "/etc/own", "mine");
  EXPECT_EQ(names("/etc"), (Names{"deep", "other", "own"}));
  EXPECT_EQ(names("/none"), Names{});
}

TEST_F(BoardFiles, a_removal_takes_the_whole_template_first) {
  std::string file = board + "/etc/deep/file";
  EXPECT_EQ(prepare_removal(file.c_str()), 0);
  EXPECT_EQ(whole.load(), 1u);
  EXPECT_EQ(text_of(file), "given");
  EXPECT_EQ(text_of(board + "/etc/other"), "other");
  EXPECT_EQ(sys_unlink(file.c_str()), 0);
  EXPECT_EQ(read("/etc/deep/file"), std::to_string(-ENOENT));
  EXPECT_EQ(own_board_file(file.c_str()), 0);
  EXPECT_FALSE(owns("/etc/deep/file"));
  EXPECT_EQ(names("/etc/deep"), Names{});
}

TEST_F(BoardFiles, removing_what_only_the_board_has_takes_nothing) {
  write(board + "/etc/own", "mine");
  EXPECT_EQ(prepare_removal((board + "/etc/own").c_str()), 0);
  EXPECT_EQ(whole.load(), 0u);
  EXPECT_FALSE(owns("/etc/other"));
}

TEST_F(BoardFiles, whatever_the_board_has_by_then_stays) {
  write(board + "/etc/other", "mine");
  EXPECT_EQ(prepare_removal((board + "/etc/deep").c_str()), 0);
  EXPECT_EQ(text_of(board + "/etc/other"), "mine");
  EXPECT_EQ(text_of(board + "/etc/deep/file"), "given");
}

TEST_F(BoardFiles, paths_beside_the_board_are_the_kernels) {
  char name[256];
  EXPECT_FALSE(template_path((board + "x/etc/other").c_str(), name, sizeof name));
  EXPECT_FALSE(template_path("/etc/other", name, sizeof name));
  ASSERT_TRUE(template_path((board + "/etc/other").c_str(), name, sizeof name));
  EXPECT_EQ(name, below + "/etc/other");
  EXPECT_FALSE(template_path((board + "/etc/other").c_str(), name, below.size() + 5));
}

TEST(BoardNames, a_file_lies_below_the_board) {
  BoardPath path;
  EXPECT_EQ(find_board_file("/b", "/dev/lcd", path), 0);
  EXPECT_EQ(path.view(), "/b/dev/lcd");
  EXPECT_EQ(find_board_file("/b", "dev//./lcd/", path), 0);
  EXPECT_EQ(path.view(), "/b/dev/lcd");
  EXPECT_EQ(find_board_file("/b", "/sys/a..b/..c/.d", path), 0);
  EXPECT_EQ(path.view(), "/b/sys/a..b/..c/.d");
  for (const char *name : {"..", "/..", "/dev/../../x", "dev/..", "../b/dev", "", "/", ".", "/./"})
    EXPECT_EQ(find_board_file("/b", name, path), -EINVAL) << name;
}

TEST(BoardNames, a_path_has_4095_bytes_at_most) {
  BoardPath path;
  const std::string board = "/" + std::string(4000, 'b');
  EXPECT_EQ(find_board_file(board, std::string(93, 'n'), path), 0);
  EXPECT_EQ(path.length, 4095u);
  EXPECT_EQ(find_board_file(board, std::string(94, 'n'), path), -ENAMETOOLONG);
  EXPECT_EQ(find_medium(board, std::string(87, 'n'), path), 0);
  EXPECT_EQ(find_medium(board, std::string(88, 'n'), path), -ENAMETOOLONG);
  EXPECT_EQ(find_sibling(board, "/a", std::string(4095, 'n'), path), -ENAMETOOLONG);
}

TEST(BoardNames, a_medium_is_one_visible_name) {
  BoardPath path;
  EXPECT_EQ(find_medium("/b", "lcd.frame", path), 0);
  EXPECT_EQ(path.view(), "/b/media/lcd.frame");
  EXPECT_EQ(find_medium("/b", "a..b", path), 0);
  EXPECT_EQ(find_medium("/b", "", path), -ENOENT);
  for (const char *name : {"..", ".", ".hidden", "/etc/passwd", "a/b", "../x"})
    EXPECT_EQ(find_medium("/b", name, path), -EINVAL) << name;
}

TEST(BoardNames, a_sibling_is_in_the_same_directory) {
  BoardPath path;
  EXPECT_EQ(find_sibling("/b", "/sys/leds/x/brightness", "max_brightness", path), 0);
  EXPECT_EQ(path.view(), "/b/sys/leds/x/max_brightness");
  EXPECT_EQ(find_sibling("/b", "/sys/leds/x/brightness", "../y", path), -EINVAL);
}

TEST_F(BoardFiles, a_stored_file_takes_the_place_of_the_old_one) {
  const std::string file = board + "/etc/own";
  std::filesystem::create_directories(board + "/etc");
  EXPECT_EQ(store_file(file.c_str(), "first, and long"), 0);
  EXPECT_EQ(text_of(file), "first, and long");
  std::ifstream reader(file);
  EXPECT_EQ(store_file(file.c_str(), "second"), 0);
  EXPECT_EQ(text_of(file), "second");
  EXPECT_EQ((std::string{std::istreambuf_iterator<char>(reader), {}}), "first, and long");
  EXPECT_EQ(store_file((board + "/none/own").c_str(), "x"), -ENOENT);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(board + "/etc"), {}), 1);
}

TEST_F(BoardFiles, an_unfinished_file_is_in_no_listing) {
  EXPECT_TRUE(is_unfinished(".lcd.123.vboard-new"));
  EXPECT_FALSE(is_unfinished("lcd.vboard-new"));
  EXPECT_FALSE(is_unfinished(".lcd"));
  write(board + "/etc/.other.1.vboard-new", "half");
  EXPECT_EQ(names("/etc"), (Names{"deep", "other"}));
}

TEST_F(BoardFiles, a_state_has_a_name_on_the_board) {
  const std::string_view at = board;
  EXPECT_EQ(store_state(at, "/etc/deep/file", "mine"), 0);
  EXPECT_EQ(text_of(board + "/etc/deep/file"), "mine");
  EXPECT_EQ(store_state(at, "/etc/../../escaped", "x"), -EINVAL);
  EXPECT_FALSE(std::filesystem::exists(folder + "/escaped"));
  EXPECT_TRUE(has_state(at, "etc/other"));
  EXPECT_FALSE(has_state(at, "/etc/none"));
  EXPECT_EQ(move_state(at, "/etc/other", "/etc/deep/file"), -EEXIST);
  EXPECT_EQ(move_state(at, "/etc/other", "/etc/deep/moved"), 0);
  EXPECT_EQ(text_of(board + "/etc/deep/moved"), "other");
  EXPECT_FALSE(has_state(at, "/etc/other"));
}
