#include "vboard/launcher/page_check.h"

#include <algorithm>

namespace vboard {

namespace {

bool has_own_numbers(const RunPage &page, const RunPage &own) {
  for (int stream = 0; stream < kStoryStreams; ++stream) {
    if (page.story_streams[stream] != own.story_streams[stream])
      return false;
  }
  return page.magic == own.magic && page.launcher == own.launcher &&
         page.command.load() == own.command.load() && page.jumping == own.jumping &&
         page.speed_milli == own.speed_milli && page.monotonic_start == own.monotonic_start &&
         page.story_records == own.story_records && page.power_cut_at == own.power_cut_at;
}

bool has_own_signals(const RunPage &page, const RunPage &own) {
  if (page.signal_count != own.signal_count)
    return false;
  for (std::uint32_t i = 0; i < own.signal_count; ++i) {
    const PlannedSignal &planned = page.signals[i];
    if (planned.at != own.signals[i].at || planned.number != own.signals[i].number ||
        planned.sent.load() > 1)
      return false;
  }
  return true;
}

bool has_own_texts(const RunPage &page, const RunPage &own) {
  if (page.text_count != own.text_count || page.texts_that_signal != own.texts_that_signal ||
      page.texts_due.load() > own.text_count)
    return false;
  return std::equal(page.text_times, page.text_times + own.text_count, own.text_times);
}

bool is_outcome(std::uint32_t outcome) {
  return outcome == kGoingOn || outcome_text(outcome) != nullptr;
}

}  // namespace

bool is_overwritten(const RunPage &page, const RunPage &own) {
  return !has_own_numbers(page, own) || !has_own_signals(page, own) || !has_own_texts(page, own) ||
         !is_outcome(page.outcome.load()) || page.reset_time.load() < 0 || page.jumped.load() < 0;
}

}  // namespace vboard
