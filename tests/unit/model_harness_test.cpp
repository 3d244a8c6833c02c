#include "model_harness.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

FakeCore fake_core;

namespace vboard {

namespace {

const Setting &row_of(const OpenFile &file, std::string_view key) {
  const Setting *row = find_setting(file.model->settings, key);
  if (row == nullptr)
    row = find_setting(common_settings(), key);
  if (row == nullptr) {
    // A model that reads a setting which its table lacks hides it from everybody.
    ADD_FAILURE() << file.model->name << " has no setting " << key;
    return common_settings()[0];
  }
  return *row;
}

int change(OpenFile &file, void (*change)(Node &node, void *context), void *context) {
  change(file.node, context);
  return update_node(file.file, change, context);
}

int store(OpenFile &file, std::string_view key, std::string_view value) {
  row_of(file, key);
  std::pair<std::string_view, std::string_view> setting(key, value);
  return change(
      file,
      [](Node &node, void *context) {
        auto *pair = static_cast<std::pair<std::string_view, std::string_view> *>(context);
        set_node_text(node, pair->first, pair->second);
      },
      &setting);
}

void *map(OpenFile &file, std::size_t size) {
  if (file.mapped == nullptr) {
    void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.medium, 0);
    file.mapped = memory == MAP_FAILED ? nullptr : memory;
    file.mapped_size = size;
  }
  return file.mapped;
}

std::int64_t medium_bytes(const OpenFile &file) {
  struct stat status;
  return file.medium >= 0 && fstat(file.medium, &status) == 0 ? status.st_size : 0;
}

constexpr Host kHost = {
    .version = kHostVersion,
    .board_time = [] { return fake_core.now; },
    .board_calendar_time = [] { return fake_core.calendar + fake_core.now; },
    .set_reset_time = [](BoardTime when) { fake_core.reset_at = when; },
    .reset_time = [] { return fake_core.reset_at; },
    .board_directory = [] { return fake_core.directory.c_str(); },
    .setting_text =
        [](const OpenFile &file, std::string_view key) {
          return setting_of(file.node, row_of(file, key), key);
        },
    .setting_number =
        [](const OpenFile &file, std::string_view key) {
          return setting_number_of(file.node, row_of(file, key), key);
        },
    .store_text = store,
    .change_settings = change,
    .read_medium =
        [](const OpenFile &file, void *out, std::size_t size, std::int64_t offset) {
          const ssize_t result = pread(file.medium, out, size, offset);
          return result < 0 ? static_cast<ssize_t>(-errno) : result;
        },
    .write_medium =
        [](const OpenFile &file, const void *bytes, std::size_t size, std::int64_t offset) {
          const ssize_t result = pwrite(file.medium, bytes, size, offset);
          return result < 0 ? static_cast<ssize_t>(-errno) : result;
        },
    .medium_size = medium_bytes,
    .resize_medium =
        [](const OpenFile &file, std::int64_t size) {
          return ftruncate(file.medium, size) < 0 ? -errno : 0;
        },
    .map_medium = map,
    .copy_in =
        [](void *out, std::uint64_t address, std::size_t size) {
          memcpy(out, reinterpret_cast<void *>(static_cast<std::uintptr_t>(address)), size);
          return 0;
        },
    .copy_out =
        [](std::uint64_t address, const void *bytes, std::size_t size) {
          memcpy(reinterpret_cast<void *>(static_cast<std::uintptr_t>(address)), bytes, size);
          return 0;
        },
    .claim_device = [](OpenFile &) { return std::exchange(fake_core.claimed, true) ? -EBUSY : 0; },
    .device_memory = [](OpenFile &, std::size_t) -> void * { return nullptr; },
    .open_child = [](OpenFile &, const Model &, int, const void *, std::size_t) { return -ENFILE; },
    .wake = [](OpenFile &) {},
    .take_time =
        [](OpenFile &file, BoardTime duration, Progress progress) {
          std::string medium(static_cast<std::size_t>(medium_bytes(file)), '?');
          EXPECT_EQ(pread(file.medium, medium.data(), medium.size(), 0),
                    static_cast<ssize_t>(medium.size()));
          std::ostringstream spare;
          const std::string name(node_text(file.node, "medium"));
          spare << std::ifstream(fake_core.directory + "/media/" + name + ".oob").rdbuf();
          fake_core.work.push_back({duration, progress, medium, spare.str()});
          fake_core.now += duration;
        },
};

}  // namespace

}  // namespace vboard

ModelHarness::ModelHarness(const char *node_text) : open_file(), position(), state() {
  vboard::host = &vboard::kHost;
  directory = std::filesystem::temp_directory_path() / "model.XXXXXX";
  EXPECT_NE(mkdtemp(directory.data()), nullptr);
  std::filesystem::create_directories(directory + "/dev");
  std::filesystem::create_directories(directory + "/media");
  write_file("dev/node", node_text);
  // 2024-01-05 09:05:03 UTC
  fake_core = {.directory = directory,
               .now = 0,
               .calendar = 1'704'445'503'000'000'000,
               .reset_at = vboard::kNever,
               .claimed = false};
}

ModelHarness::~ModelHarness() {
  shut();
  std::filesystem::remove_all(directory);
}

int ModelHarness::open(const char *node) {
  shut();
  open_file = {};
  position = 0;
  std::fill(std::begin(state), std::end(state), static_cast<unsigned char>(0));
  open_file.state = state;
  open_file.medium = -1;
  const std::string path = directory + "/dev/node";
  strcpy(open_file.path, node);
  strcpy(open_file.file, path.c_str());
  if (const int error = vboard::load_node(path.c_str(), open_file.node))
    return error;
  const vboard::Model *model =
      vboard::find_model(std::string(vboard::node_text(open_file.node, "model")).c_str());
  if (model == nullptr)
    return -ENODEV;
  const std::string medium(vboard::node_text(open_file.node, model->medium_setting));
  if (!medium.empty()) {
    const std::string medium_path = directory + "/media/" + medium;
    const bool missing = !std::filesystem::exists(medium_path);
    open_file.medium = ::open(medium_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (missing) {
      const std::string filled(model->medium_size, static_cast<char>(model->medium_fill));
      if (::write(open_file.medium, filled.data(), filled.size()) < 0)
        return -EIO;
    }
  }
  open_file.model = model;
  open_file.opened_at = fake_core.now;
  const int result = model->open != nullptr ? model->open(open_file) : 0;
  if (result < 0)
    give_up();
  return result;
}

void ModelHarness::give_up() {
  if (open_file.mapped != nullptr)
    munmap(open_file.mapped, open_file.mapped_size);
  free(open_file.extra);
  if (open_file.medium >= 0)
    ::close(open_file.medium);
  open_file.model = nullptr;
  fake_core.claimed = false;
}

void ModelHarness::shut() {
  if (open_file.model == nullptr)
    return;
  if (open_file.model->close != nullptr)
    open_file.model->close(open_file);
  give_up();
}

int ModelHarness::open_second() {
  vboard::OpenFile second = open_file;
  unsigned char other[vboard::kModelState] = {};
  second.state = other;
  second.extra = nullptr;
  return second.model->open(second);
}

int ModelHarness::ask(std::uint32_t request, void *record) {
  const vboard::Request *row = vboard::find_request(*open_file.model, request);
  if (row == nullptr)
    return -ENOTTY;
  // As a host does it: a copy, zeros where the driver fills the record.
  const std::size_t size = row->handler.size;
  alignas(16) unsigned char copy[4096] = {};
  if (size > 0 && row->direction != vboard::Direction::kOut)
    memcpy(copy, record, size);
  vboard::Argument argument = {.number = request,
                               .address = reinterpret_cast<std::uintptr_t>(record),
                               .record = copy,
                               .size = size,
                               .answers_failure = false};
  const int result = row->handler.call(open_file, argument);
  const bool answers = result >= 0 || argument.answers_failure;
  if (size > 0 && answers && row->direction != vboard::Direction::kIn)
    memcpy(record, copy, size);
  return result;
}

ssize_t ModelHarness::read(void *buffer, std::size_t size) {
  const vboard::UserMemory to = {reinterpret_cast<std::uintptr_t>(buffer), size};
  const ssize_t result = open_file.model->read(open_file, to, position);
  position += std::max<ssize_t>(result, 0);
  return result;
}

ssize_t ModelHarness::write(const void *bytes, std::size_t size) {
  const vboard::UserMemory from = {reinterpret_cast<std::uintptr_t>(bytes), size};
  const ssize_t result = open_file.model->write(open_file, from, position);
  position += std::max<ssize_t>(result, 0);
  return result;
}

vboard::Readiness ModelHarness::ready(short events) {
  return open_file.model->ready(open_file, events, fake_core.now);
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
