// One ATA command to a disk given by its node ("/dev/sda"): open, send, close.
//
// Each returns what the transport returns. A null path, a failed open and a null buffer are
// reported and -1; a negative result is reported with the command's name. Positive results (the
// host adapter's status, SMART RETURN STATUS) are handed on without a word.

#ifndef BENCHRIG_STORAGE_SATA_DEVICE_H
#define BENCHRIG_STORAGE_SATA_DEVICE_H

#include <cstdint>

int sata_standby_immediate(const char *path);
int sata_flush_cache(const char *path);
int sata_read_smart_values(const char *path, void *sector);
int sata_read_smart_thresholds(const char *path, void *sector);
int sata_smart_return_status(const char *path);
int sata_enable_smart(const char *path);  // and attribute autosave
int sata_disable_smart(const char *path);

// IDENTIFY DEVICE with serial number, firmware revision and model swapped into reading order; the
// other words stay in the device's. A null path or buffer is -1 without a word.
int sata_read_identify_info(const char *path, void *sector);
void swap_identify_texts(std::uint8_t *sector);

int sata_enable_vendor_mode(const char *path);
int sata_vendor_dma_read(const char *path, const std::uint8_t *count, unsigned int lba_low,
                         void *data);
int sata_vendor_dma_write(const char *path, const std::uint8_t *count, unsigned int lba_low,
                          void *data);

// Enables SMART (a failure is only reported) and reads the values, up to three times. 0, -1 after
// the third failure, -14 for a null argument.
int sata_read_smart_retry(const char *path, void *sector);

#endif
