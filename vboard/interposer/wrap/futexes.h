// Waits for a word of memory, as the C++ library makes them for std::atomic, std::future and
// std::counting_semaphore.

#ifndef VBOARD_INTERPOSER_WRAP_FUTEXES_H
#define VBOARD_INTERPOSER_WRAP_FUTEXES_H
#include "vboard/interposer/core/engine.h"

#include <cstdint>

namespace vboard {

// Waits in a jumping run while the word has this value, until somebody wakes one of the bits: 0, or
// a negated errno. -ENOSYS without room for another wait.
int wait_for_word(std::uint32_t *word, std::uint32_t value, std::uint32_t bits, BoardTime deadline);
// Wakes waits of a jumping run, the longest waiting one first; how many there were.
int wake_word(const std::uint32_t *word, int most, std::uint32_t bits);

}  // namespace vboard

#endif
