#include "vboard/launcher/suggestions.h"

#include <algorithm>

namespace vboard {

namespace {

constexpr std::size_t kLongest = 64;  // a longer word is near to nothing
constexpr int kMostEdits = 2;

bool is_digit(char letter) {
  return letter >= '0' && letter <= '9';
}

// The word with "#" for each number: "block12" is "block#".
FixedText<kLongest + 1> without_numbers(std::string_view word) {
  FixedText<kLongest + 1> out;
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (!is_digit(word[i]))
      append_text(out, word.substr(i, 1));
    else if (i == 0 || !is_digit(word[i - 1]))
      append_text(out, "#");
  }
  return out;
}

// How many letters to add, drop, replace, or exchange with the next one.
int edits(std::string_view one, std::string_view other) {
  int rows[3][kLongest + 1];
  int *before = rows[0];
  int *above = rows[1];
  int *row = rows[2];
  for (std::size_t j = 0; j <= other.size(); ++j)
    above[j] = static_cast<int>(j);
  for (std::size_t i = 1; i <= one.size(); ++i) {
    row[0] = static_cast<int>(i);
    for (std::size_t j = 1; j <= other.size(); ++j) {
      const int replaced = above[j - 1] + (one[i - 1] != other[j - 1]);
      row[j] = std::min({above[j] + 1, row[j - 1] + 1, replaced});
      if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1])
        row[j] = std::min(row[j], before[j - 2] + 1);
    }
    int *const oldest = before;
    before = above;
    above = row;
    row = oldest;
  }
  return above[other.size()];
}

}  // namespace

bool is_near(std::string_view word, std::string_view known) {
  const auto one = without_numbers(word);
  const auto other = without_numbers(known);
  if (one.overflow || other.overflow || one.length < 3)
    return false;
  // Short words are near to all others of their length.
  const int most = one.length < 5 ? 1 : kMostEdits;
  return other.view().starts_with(one.view()) || edits(one.view(), other.view()) <= most;
}

void suggest(Suggestions &out, std::string_view known) {
  append_text(out.all, " ", known);
  if (is_near(out.word, known))
    append_text(out.near, " ", known);
}

void append_suggestions(Reason &out, const Suggestions &suggestions) {
  if (suggestions.near.length > 0)
    append_text(out, "; perhaps:", suggestions.near.view());
  else if (suggestions.all.length > 0)
    append_text(out, "; there is:", suggestions.all.view());
}

}  // namespace vboard
