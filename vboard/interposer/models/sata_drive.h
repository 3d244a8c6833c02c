// A SATA drive as its commands see it, without the host's way to it. sata_disk.cpp brings the
// kernel's requests and the translation of SCSI commands.

#ifndef VBOARD_BOARD_SATA_DRIVE_H
#define VBOARD_BOARD_SATA_DRIVE_H
#include "vboard/interposer/models/model.h"

#include <cstddef>
#include <cstdint>

namespace vboard {

inline constexpr std::size_t kAtaSector = 512;

// Registers of a 28-bit command, and of its answer.
struct AtaRegisters {
  std::uint8_t features;  // error in the answer
  std::uint8_t count;
  std::uint8_t lba_low;
  std::uint8_t lba_mid;
  std::uint8_t lba_high;
  std::uint8_t device;
  std::uint8_t command;  // status in the answer
};

inline constexpr std::uint8_t kAtaReady = 0x50;
inline constexpr std::uint8_t kAtaAborted = 0x51;  // status of a command that failed
inline constexpr std::uint8_t kAtaErrorAbort = 0x04;

enum class AtaData : std::uint8_t { kNone, kIn, kOut };

// Runs the command on the drive. `data` (`size` bytes) is filled or consumed. 0 with the answer in
// `registers`: a command that the drive does not carry out is answered with kAtaAborted. A negated
// errno when the board directory cannot be read or written.
int run_ata_command(OpenFile &file, AtaRegisters &registers, AtaData direction, void *data,
                    std::size_t size);

// IDENTIFY DEVICE data, in the device's order. 0, or a negated errno.
int load_identify(OpenFile &file, unsigned char (&out)[kAtaSector]);

}  // namespace vboard

#endif
