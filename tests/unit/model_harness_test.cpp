#include "model_harness.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

FakeCore fake_core;

namespace vboard {

const char *board_directory() {
  return fake_core.directory.c_str();
}

BoardTime board_time() {
  return fake_core.now;
}

std::int64_t board_calendar_time() {
  return fake_core.calendar + fake_core.now;
}

void set_reset_time(BoardTime when) {
  fake_core.reset_at = when;
}

BoardTime reset_time() {
  return fake_core.reset_at;
}

int store_text(OpenFile &file, std::string_view key, std::string_view value) {
  std::pair<std::string_view, std::string_view> setting(key, value);
  const int error = update_node(
      file.file,
      [](Node &node, void *context) {
        auto *pair = static_cast<std::pair<std::string_view, std::string_view> *>(context);
        set_node_text(node, pair->first, pair->second);
      },
      &setting);
  return error != 0 ? error : set_node_text(file.node, key, value) ? 0 : -ENOSPC;
}

int store_number(OpenFile &file, std::string_view key, std::int64_t value) {
  return store_text(file, key, std::to_string(value));
}

}  // namespace vboard

ModelHarness::ModelHarness(const char *node_text) : open_file() {
  directory = std::filesystem::temp_directory_path() / "model.XXXXXX";
  EXPECT_NE(mkdtemp(directory.data()), nullptr);
  std::filesystem::create_directories(directory + "/dev");
  std::filesystem::create_directories(directory + "/media");
  write_file("dev/node", node_text);
  // 2024-01-05 09:05:03 UTC
  fake_core = {.directory = directory,
               .now = 0,
               .calendar = 1'704'445'503'000'000'000,
               .reset_at = vboard::kNever};
}

ModelHarness::~ModelHarness() {
  shut();
  std::filesystem::remove_all(directory);
}

int ModelHarness::open(const char *node) {
  shut();
  open_file = {};
  const std::string path = directory + "/dev/node";
  strcpy(open_file.path, node);
  strcpy(open_file.file, path.c_str());
  if (const int error = vboard::load_node(path.c_str(), open_file.node))
    return error;
  const vboard::Model *model =
      vboard::find_model(std::string(vboard::node_text(open_file.node, "model")).c_str());
  if (model == nullptr)
    return -ENODEV;
  const std::string medium(vboard::node_text(open_file.node, "medium"));
  const std::string medium_path = medium.empty() ? "/dev/null" : directory + "/media/" + medium;
  const bool missing = !std::filesystem::exists(medium_path);
  open_file.fd = ::open(medium_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (missing) {
    std::string filled(model->medium_size, static_cast<char>(model->medium_fill));
    if (::write(open_file.fd, filled.data(), filled.size()) < 0)
      return -EIO;
    ::lseek(open_file.fd, 0, SEEK_SET);
  }
  open_file.opened_at = fake_core.now;
  const int result = model->open != nullptr ? model->open(open_file) : 0;
  if (result < 0)
    ::close(open_file.fd);
  else
    open_file.model = model;
  return result;
}

void ModelHarness::shut() {
  if (open_file.model == nullptr)
    return;
  if (open_file.model->close != nullptr)
    open_file.model->close(open_file);
  ::close(open_file.fd);
  open_file.model = nullptr;
}

int ModelHarness::ask(std::uint32_t request, void *record) {
  for (const vboard::Request &row : open_file.model->requests) {
    if (row.number == request)
      return open_file.model->ioctl(open_file, request, record);
  }
  return -ENOTTY;
}

std::string ModelHarness::node() const {
  return file("dev/node");
}

std::string ModelHarness::file(const char *name) const {
  const std::ifstream in(directory + "/" + name, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void ModelHarness::write_file(const char *name, std::string_view bytes) const {
  std::filesystem::create_directories(std::filesystem::path(directory + "/" + name).parent_path());
  std::ofstream(directory + "/" + name, std::ios::binary) << bytes;
}
