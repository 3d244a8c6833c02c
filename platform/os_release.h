// Assignments of a file in the form of os-release(5).

#ifndef PLATFORM_OS_RELEASE_H
#define PLATFORM_OS_RELEASE_H

#include <cstddef>
#include <string_view>

namespace rigcore {

// Stores the value that `text` gives `name`, without its quotes, cut to `size` - 1 characters and
// terminated. The last assignment counts, as it would for a shell. False when there is none.
bool find_assignment(std::string_view text, std::string_view name, char *value, std::size_t size);

}  // namespace rigcore

#endif
