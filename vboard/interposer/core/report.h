// Results of the kernel's form as libc's.

#ifndef VBOARD_INTERPOSER_CORE_REPORT_H
#define VBOARD_INTERPOSER_CORE_REPORT_H

#include <errno.h>

namespace vboard {

// -1 with errno for a negated errno; zero and positive results as they are.
template <typename Result>
Result report(Result result) {
  if (result >= 0)
    return result;
  errno = static_cast<int>(-result);
  return -1;
}

}  // namespace vboard

#endif
