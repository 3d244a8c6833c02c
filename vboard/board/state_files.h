// The state functions are declared in board_files.h.

#ifndef VBOARD_BOARD_STATE_FILES_H
#define VBOARD_BOARD_STATE_FILES_H

#include "vboard/board/board_files.h"

#endif
