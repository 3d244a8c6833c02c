// What a person may have meant by a word that nothing is called.

#ifndef VBOARD_LAUNCHER_SUGGESTIONS_H
#define VBOARD_LAUNCHER_SUGGESTIONS_H
#include "vboard/base/text.h"

#include <string_view>

namespace vboard {

// A line for people: what is wrong, and what there is instead.
using Reason = FixedText<3072>;

// Words that exist, collected for a word that does not.
struct Suggestions {
  std::string_view word;
  Reason near;  // those that it may be a misspelling of
  Reason all;
};

void suggest(Suggestions &out, std::string_view known);
// "; perhaps: stopped", or "; there is: " and all of them; nothing when there is nothing.
void append_suggestions(Reason &out, const Suggestions &suggestions);

// Whether the word may be a misspelling. A number in it counts as "#".
bool is_near(std::string_view word, std::string_view known);

}  // namespace vboard

#endif
