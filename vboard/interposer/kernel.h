// Models include this for the kernel's calls; the launcher and the tests use the same functions.

#ifndef VBOARD_INTERPOSER_KERNEL_H
#define VBOARD_INTERPOSER_KERNEL_H

#include "vboard/board/kernel.h"

#endif
