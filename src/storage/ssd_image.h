// The SSD firmware image and the drive's tag block: offsets, checksum, revision rule, recognition.
// The functions that plug-ins use are declared in benchrig/ssd_update.h; nothing here needs a
// drive.

#ifndef BENCHRIG_STORAGE_SSD_IMAGE_H
#define BENCHRIG_STORAGE_SSD_IMAGE_H

#include "benchrig/ssd_update.h"

#include <cstddef>
#include <cstdint>
#include <span>

// IDENTIFY DEVICE data: a drive's, or an image's template.
inline constexpr std::size_t kIdentifySerial = 20;
inline constexpr std::size_t kSerialSize = 20;
inline constexpr std::size_t kIdentifyRevision = 46;
inline constexpr std::size_t kRevisionSize = 8;
inline constexpr std::size_t kIdentifyModel = 54;
inline constexpr std::size_t kModelSize = 40;
inline constexpr std::size_t kIdentifyWwn = 216;
inline constexpr std::size_t kWwnTextSize = 16;

// The image.
inline constexpr std::size_t kImageTagBlock = 4096;
inline constexpr std::size_t kImageTemplate = 4192;
static_assert(kImageTagBlock + SSD_TAG_BLOCK_SIZE == SSD_IMAGE_BUFFER_MIN);
static_assert(kImageTemplate + SATA_SECTOR_SIZE <= SSD_IMAGE_BUFFER_MIN);

// The bytes that the buffer of an image must have: whole blocks, and every fixed offset inside.
std::uint64_t image_buffer_size(std::uint64_t length);

// Byte N - 1 over bytes 0 to N - 3; byte N - 2 belongs to nobody. An image of fewer than two bytes
// has no checksum: it is never valid.
std::uint8_t image_checksum(std::span<const std::uint8_t> image);
bool image_checksum_is_valid(std::span<const std::uint8_t> image);

// The revision that an image's file name carries: characters 8 to 15 of the base name, NULs where
// the name is shorter.
void revision_of_file_name(const char *path, char (&out)[kRevisionSize + 1]);

// Only the last character may move, and only up or not at all.
bool revision_may_follow(const char *update, const char *current);

// The board maker's own drives: by the model (texts in reading order) or a mark in the SMART data.
bool ssd_is_own_drive(const char *model, const void *smart_values);

// Vendor request blocks.

// The block that announces a vendor read; zeros after the bytes that it needs.
void build_ram_request(std::uint32_t address, std::span<std::uint8_t, SATA_SECTOR_SIZE> out);
void build_memory_request(std::uint32_t address, std::span<std::uint8_t, SATA_SECTOR_SIZE> out);
void build_extent_request(std::span<std::uint8_t, SATA_SECTOR_SIZE> out);

// What an extent read answers: a value, most significant byte first and in units of eight, and a
// byte.
void decode_extent(std::span<const std::uint8_t, SATA_SECTOR_SIZE> answer, std::uint32_t &out_value,
                   std::uint8_t &out_byte);

#endif
