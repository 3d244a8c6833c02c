// What the processes of a run add to the story for the launcher to put in order: records in a file
// that all of them append to.

#ifndef VBOARD_BOARD_STORY_RECORD_H
#define VBOARD_BOARD_STORY_RECORD_H

#include <cstdint>

namespace vboard {

inline constexpr int kStoryStreams = 2;  // standard output, standard error

// The head of a record; `size` bytes of text follow. A record without text only says how far the
// streams had come.
struct StoryRecord {
  std::uint64_t written[kStoryStreams];  // bytes that the run had written to each stream by then
  std::uint32_t size;
  std::uint32_t reserved;
};
static_assert(sizeof(StoryRecord) == 24);

}  // namespace vboard

#endif
