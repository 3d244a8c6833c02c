// The story of a run: the lines of the trace and what the program wrote to its standard streams, in
// one order.
//
// The streams are pipes to the launcher while a story is written. A line is appended to the story's
// records together with how many bytes the run has written to each stream by then: the launcher can
// so put the text in its place, whatever wrote it and whenever the launcher comes to read it.

#ifndef VBOARD_INTERPOSER_CORE_STORY_H
#define VBOARD_INTERPOSER_CORE_STORY_H

#include <string_view>

namespace vboard {

// Connects this process with the story, if the run has one.
void open_story();
bool telling();
// Appends a line, without its line end.
void tell(std::string_view line);
// Notes how far the streams have come. The order of the two streams is known as far as this is
// called between writing to one and writing to the other.
void tell_streams();

}  // namespace vboard

#endif
