// Raw media of a new board.

#ifndef VBOARD_LAUNCHER_MEDIA_H
#define VBOARD_LAUNCHER_MEDIA_H

namespace vboard {

// Makes what a template of texts cannot hold: the flash with the boot loader's environment (from
// etc/uboot-env.txt), the display's memory, the card's bytes, the two 256-byte blocks. A file that
// is already there stays. 0, or a negated errno; ENOSPC for an environment that does not fit.
int make_media(const char *board);

}  // namespace vboard

#endif
