// Runs one row of the virtual board's model table by hand: a node file and a medium in a temporary
// board directory, and a clock that the test sets.

#ifndef TESTS_UNIT_MODEL_HARNESS_H
#define TESTS_UNIT_MODEL_HARNESS_H

#include "vboard/interposer/models/host.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct ModelHarness {
  explicit ModelHarness(const char *node_text);
  ~ModelHarness();
  ModelHarness(const ModelHarness &) = delete;
  ModelHarness &operator=(const ModelHarness &) = delete;

  // Opens the node's model: its result. The file stays open until shut().
  int open(const char *node = "/dev/node");
  void shut();
  // A request whose record is `record`; -ENOTTY when the model does not list it.
  int ask(std::uint32_t request, void *record);
  // A transfer at the file's position, which then moves on.
  ssize_t read(void *buffer, std::size_t size);
  ssize_t write(const void *bytes, std::size_t size);
  vboard::Readiness ready(short events);
  // A second open of the node while the first one goes on: its result.
  int open_second();
  template <typename Record>
  int request(std::uint32_t number, Record &record) {
    return ask(number, &record);
  }
  std::string node() const;  // the node file as it stands
  std::string file(const char *name) const;
  void write_file(const char *name, std::string_view bytes) const;

  void give_up();

  std::string directory;
  vboard::OpenFile open_file;
  std::int64_t position;
  alignas(16) unsigned char state[vboard::kModelState];
};

// What the host of the models is told to say, and what it was told.
struct PieceOfWork {
  vboard::BoardTime duration;
  vboard::Progress progress;
  std::string medium, spare;  // as a power cut in it would leave them
};

struct FakeCore {
  std::string directory;
  vboard::BoardTime now;
  std::int64_t calendar;  // when board time is 0
  vboard::BoardTime reset_at;
  bool claimed;
  std::vector<PieceOfWork> work = {};
};
extern FakeCore fake_core;

#endif
