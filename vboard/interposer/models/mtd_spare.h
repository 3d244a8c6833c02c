// The spare bytes beside the pages of NAND flash ("out of band", OOB).
//
// They lie in a file of their own, media/NAME.oob beside the medium media/NAME, page after page.
// What the file is too short for reads as FF, so that blank flash needs no file.

#ifndef VBOARD_INTERPOSER_MODELS_MTD_SPARE_H
#define VBOARD_INTERPOSER_MODELS_MTD_SPARE_H

#include "vboard/interposer/models/model.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace vboard {

// All offsets count spare bytes from those of the first page on. 0, or a negated errno.
int read_spare(const OpenFile &file, std::span<unsigned char> out, std::uint64_t offset);
// Clears bits, as programming does.
int program_spare(const OpenFile &file, std::span<const unsigned char> bytes, std::uint64_t offset);
// Sets `size` bytes to FF.
int erase_spare(const OpenFile &file, std::uint64_t size, std::uint64_t offset);

}  // namespace vboard

#endif
