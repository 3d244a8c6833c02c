// Steps of the SSD firmware update that are not exported.

#ifndef BENCHRIG_STORAGE_SSD_UPDATE_H
#define BENCHRIG_STORAGE_SSD_UPDATE_H

#include <cstdint>

// Identifies the drive, tells whether it is one of the board maker's own and updates it if so. The
// result of the first step that failed; 0 for a foreign drive, which is left alone.
int ssd_upgrade_device(const char *path, void *image, std::uint32_t length, const char *revision);

// Further vendor reads: memory behind the controller, and an extent's value and kind. The update
// does not need them; they are for bench programs that are built from these sources, and no applet
// calls them. Both return 0 or the failing command's negative result.
int ssd_read_memory(const char *path, std::uint32_t address, void *destination,
                    std::uint32_t length);
int ssd_read_extent(const char *path, std::uint32_t &out_value, std::uint8_t &out_byte);

#endif
