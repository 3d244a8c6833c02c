#include "vboard/launcher/board_clock.h"

#include "vboard/base/calendar.h"
#include "vboard/base/kernel.h"
#include "vboard/board/node.h"
#include "vboard/launcher/boards.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

namespace vboard {

namespace {

void disarm(Node &node) {
  if (!node_text(node, "reset_at").empty())
    set_node_text(node, "reset_at", "");
}

void count_boot(Node &node) {
  set_node_number(node, "boots", saturated_sum(node_number(node, "boots", 0), 1));
  disarm(node);
}

// Changes the clock file, which the first run that has something to keep makes.
void update_clock(const char *board, void (*change)(Node &node, void *context), void *context) {
  BoardPath file;
  if (!locate(board, "clock", file))
    return;
  int result = update_node(file.c_str(), change, context);
  if (result == -ENOENT) {
    const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd >= 0)
      close(fd);
    result = fd >= 0 ? update_node(file.c_str(), change, context) : -errno;
  }
  if (result < 0 && result != -EACCES && result != -EROFS)
    fail("%s: %s", file.c_str(), strerror(-result));
}

struct Left {
  const RunPage *page;
  std::int64_t ahead;  // what the run adds
};

}  // namespace

BoardClock start_board_clock(const char *board, std::int64_t date) {
  BoardClock clock = {date >= 0 ? date : pc_calendar(), kNoTime};
  BoardPath file;
  Node node;
  if (!locate(board, "clock", file) || load_node(file.c_str(), node) < 0)
    return clock;
  if (date < 0)
    clock.calendar_start = calendar_after(clock.calendar_start, node_number(node, "ahead_ns", 0));
  const std::int64_t reset_at = node_number(node, "reset_at", kNoTime);
  if (reset_at == kNoTime)
    return clock;
  if (reset_at > clock.calendar_start) {
    clock.reset_time = reset_at - clock.calendar_start;
    return clock;
  }
  update_clock(
      board, [](Node &content, void *) { count_boot(content); }, nullptr);
  return clock;
}

void stop_board_clock(const char *board, const RunPage &page, const BoardClock &started,
                      bool own_date) {
  const std::int64_t elapsed = pc_monotonic() - page.monotonic_start;
  const std::int64_t board_elapsed =
      page.jumping ? page.jumped.load() : board_from_pc(page, elapsed);
  // A slow board must not fall behind: its calendar never goes backward. Setting it may.
  const std::int64_t ahead =
      saturated_sum(std::max<std::int64_t>(board_elapsed - elapsed, 0),
                    saturated_sum(page.calendar_start.load(), -started.calendar_start));
  Left left = {&page, own_date ? 0 : ahead};
  const bool armed = page.reset_time.load() != kNoTime || started.reset_time != kNoTime;
  if (left.ahead == 0 && !armed && page.outcome.load() == kGoingOn)
    return;
  update_clock(
      board,
      [](Node &node, void *context) {
        const Left &run = *static_cast<const Left *>(context);
        if (run.ahead != 0)
          set_node_number(node, "ahead_ns",
                          saturated_sum(node_number(node, "ahead_ns", 0), run.ahead));
        const std::int64_t reset_time = run.page->reset_time.load();
        if (run.page->outcome.load() != kGoingOn)
          count_boot(node);
        else if (reset_time == kNoTime)
          disarm(node);
        else
          set_node_number(node, "reset_at",
                          saturated_sum(run.page->calendar_start.load(), reset_time));
      },
      &left);
}

}  // namespace vboard
