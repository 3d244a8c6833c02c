// What the launcher still believes of the run page, which every process of the run can write to.

#ifndef VBOARD_LAUNCHER_PAGE_CHECK_H
#define VBOARD_LAUNCHER_PAGE_CHECK_H
#include "vboard/board/run_page.h"

namespace vboard {

// Whether a process of the run has overwritten the page: what nobody changes differs from `own`,
// the launcher's copy, or what a process may change has a value that none gives it.
bool is_overwritten(const RunPage &page, const RunPage &own);

}  // namespace vboard

#endif
