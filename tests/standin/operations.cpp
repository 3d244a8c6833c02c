// Every operation of librigcore, answered from the script: one short function each. The comment
// above a function gives its line where that is not just its arguments and outputs in order.

#include "platform/applets.h"
#include "platform/board_io.h"
#include "platform/boot_blocks.h"
#include "platform/device_tree.h"
#include "platform/led.h"
#include "platform/logo.h"
#include "platform/md5.h"
#include "platform/mdio.h"
#include "platform/mtd.h"
#include "platform/netchan.h"
#include "platform/power.h"
#include "platform/sata.h"
#include "platform/serial_port.h"
#include "platform/storage.h"
#include "platform/thread.h"
#include "platform/uenv.h"
#include "platform/upgrade.h"
#include "platform/verbose.h"
#include "platform/versions.h"
#include "tests/standin/script.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

using standin::block;
using standin::block_slot;
using standin::byte_slot;
using standin::call;
using standin::long_slot;
using standin::number;
using standin::pointer_slot;
using standin::text;
using standin::text_slot;
using standin::word_slot;

int rig_verbose = 0;

// Dispatch: real, never in the script.

int rig_applets_process(const char *name, AppletEntry *table, int argc, char **argv) {
  for (AppletEntry *row = table; argc >= 2 && row->name != nullptr; ++row) {
    if (strcmp(row->name, argv[1]) == 0) {
      if (row->handler == nullptr)
        break;
      return row->handler(argc - 1, argv + 1);
    }
  }
  printf("%s\n", name);
  for (AppletEntry *row = table; row->name != nullptr; ++row)
    printf("  %-16s %s\n", row->name, row->description);
  return 1;
}

// Banner, board I/O.

int rig_print_logo(int indent, int end_line) {
  return call("rig_print_logo", {number(indent), number(end_line)});
}

int rig_beep(int on) {
  return call("rig_beep", {number(on)});
}

int rig_alarm_input(std::uint32_t *levels) {
  return call("rig_alarm_input", {}, {word_slot(levels)});
}

int rig_alarm_output(std::uint32_t *levels) {
  return call("rig_alarm_output", {number(*levels)});
}

int rig_detect_vga(void) {
  return call("rig_detect_vga", {});
}

int rig_detect(int feature) {
  return call("rig_detect", {number(feature)});
}

// Boot blocks, versions, environment.

int rig_bootparam_get(void *bytes, int size) {
  return call("rig_bootparam_get", {number(size)}, {block_slot(bytes, size)});
}

int rig_bootparam_set(const void *bytes, int size) {
  return call("rig_bootparam_set", {block(bytes, size), number(size)});
}

int rig_hardinfo_get(void *bytes, int size) {
  return call("rig_hardinfo_get", {number(size)}, {block_slot(bytes, size)});
}

void rig_bytes_print(const void *bytes, int size) {
  call("rig_bytes_print", {block(bytes, size), number(size)});
}

std::uint32_t rig_kernel_version(void) {
  return static_cast<std::uint32_t>(call("rig_kernel_version", {}));
}

std::uint32_t rig_kernel_date(void) {
  return static_cast<std::uint32_t>(call("rig_kernel_date", {}));
}

int rig_get_korbootversion(char *out) {
  return call("rig_get_korbootversion", {}, {text_slot(out, RIG_VERSION_TEXT_SIZE)});
}

int rig_get_ubootversion(char *out) {
  return call("rig_get_ubootversion", {}, {text_slot(out, RIG_VERSION_TEXT_SIZE)});
}

int rig_get_korbspversion(char *out) {
  return call("rig_get_korbspversion", {}, {text_slot(out, RIG_VERSION_TEXT_SIZE)});
}

int rig_get_kernelversion(char *out) {
  return call("rig_get_kernelversion", {}, {text_slot(out, RIG_VERSION_TEXT_SIZE)});
}

int rig_uenv_totalkey(void) {
  return call("rig_uenv_totalkey", {});
}

int rig_uenv_key(int index, char *key, int size) {
  return call("rig_uenv_key", {number(index), number(size)}, {text_slot(key, size)});
}

int rig_uenv_get(const char *key, char *value, int size) {
  return call("rig_uenv_get", {text(key), number(size)}, {text_slot(value, size)});
}

int rig_uenv_set(const char *key, const char *value) {
  return call("rig_uenv_set", {text(key), text(value)});
}

// rigabi_get_value "GROUP" "KEY" SIZE -> "VALUE" = 0; a value of SIZE characters goes without its
// NUL.
int rigabi_get_value(const char *group, const char *key, void *buffer, int size) {
  return call("rigabi_get_value", {text(group), text(key), number(size)},
              {text_slot(static_cast<char *>(buffer), size)});
}

// Upgrade.

// rig_upgrade ITEM SOURCE PARTITION COOKIE "PATH" [-> COOKIE ERROR PROGRESS ITEM "STATUS" ...] =
// RESULT with five outputs for each call of the callback, which must return 0.
int rig_upgrade(UpgradeRequest *request) {
  const char *name = "rig_upgrade";
  standin::require_zero(name, "with reserved bytes that are not 0", request->reserved,
                        sizeof request->reserved);
  standin::require_zero(name, "with reserved bytes that are not 0", request->reserved_tail,
                        sizeof request->reserved_tail);
  const standin::Value arguments[] = {number(request->item), number(request->source),
                                      number(request->partition), number(request->cookie),
                                      text(request->path)};
  const standin::Line &line = standin::expect(name, arguments);
  if (request->callback == nullptr)
    standin::fail_call(name, "without a callback");
  if (line.output_count % 5 != 0)
    standin::fail_line(line, "a progress is COOKIE ERROR PROGRESS ITEM \"STATUS\"");
  for (std::size_t i = 0; i < line.output_count; i += 5) {
    alignas(UpgradeProgress) unsigned char room[1024] = {};
    auto *progress = static_cast<UpgradeProgress *>(static_cast<void *>(room));
    std::uint32_t cookie = 0;
    standin::store(line, i, word_slot(&cookie));
    standin::store(line, i + 1, word_slot(&progress->error_code));
    standin::store(line, i + 2, word_slot(&progress->progress));
    standin::store(line, i + 3, word_slot(&progress->item));
    standin::store(line, i + 4, text_slot(progress->status, 1000));
    if (request->callback(cookie, progress) != 0)
      standin::fail_call(name, "with a callback that does not return 0");
  }
  return standin::finish(line);
}

int rig_upgrade_stop_all(void) {
  return call("rig_upgrade_stop_all", {});
}

int rig_upgrade_burn_cpld(int index, const void *image, int size) {
  return call("rig_upgrade_burn_cpld", {number(index), block(image, size), number(size)});
}

// MTD and MD5.

int rig_mtd_getnum(const char *path) {
  return call("rig_mtd_getnum", {text(path)});
}

int rig_mtd_size(int partition) {
  return call("rig_mtd_size", {number(partition)});
}

int rig_mtd_erasesize(int partition) {
  return call("rig_mtd_erasesize", {number(partition)});
}

int rig_mtd_writesize(int partition) {
  return call("rig_mtd_writesize", {number(partition)});
}

int rig_mtd_avail_space_size(int partition) {
  return call("rig_mtd_avail_space_size", {number(partition)});
}

int rig_mtd_valid_data_len(int partition) {
  return call("rig_mtd_valid_data_len", {number(partition)});
}

int rig_mtd_cmp_skip_bad(int partition_a, int partition_b) {
  return call("rig_mtd_cmp_skip_bad", {number(partition_a), number(partition_b)});
}

int rig_mtd_write_skip_bad(int partition, std::uint32_t offset, const void *data,
                           std::uint32_t size) {
  return call("rig_mtd_write_skip_bad",
              {number(partition), number(offset), block(data, size), number(size)});
}

int rig_md5sum_files(const char *list, const char *file) {
  return call("rig_md5sum_files", {text(list), text(file)});
}

int rig_md5sum_check(const char *list) {
  return call("rig_md5sum_check", {text(list)});
}

// LEDs, PWM, power, resets.

int rig_led_ctrl(int id, int cycle_ms, std::uint8_t duty) {
  return call("rig_led_ctrl", {number(id), number(cycle_ms), number(duty)});
}

int rig_led_duty(int id) {
  return call("rig_led_duty", {number(id)});
}

int rig_led_cyclems(int id) {
  return call("rig_led_cyclems", {number(id)});
}

int rig_pwm_ctrl(int id, int period_ns, std::uint8_t duty) {
  return call("rig_pwm_ctrl", {number(id), number(period_ns), number(duty)});
}

int rig_pwm_duty(int id) {
  return call("rig_pwm_duty", {number(id)});
}

int rig_pwm_periodns(int id) {
  return call("rig_pwm_periodns", {number(id)});
}

int rig_pwm_enable(int id) {
  return call("rig_pwm_enable", {number(id)});
}

int rig_pwm_disable(int id) {
  return call("rig_pwm_disable", {number(id)});
}

int rig_power_is_enable(std::uint32_t function) {
  return call("rig_power_is_enable", {number(function)});
}

int rig_power_ctrl(std::uint32_t function, std::uint8_t value) {
  return call("rig_power_ctrl", {number(function), number(value)});
}

int rig_reset_ctrl(std::uint32_t function) {
  return call("rig_reset_ctrl", {number(function)});
}

// Serial ports.

int rig_rs485_tx_en(std::uint32_t index, int enable) {
  return call("rig_rs485_tx_en", {number(index), number(enable)});
}

int rig_rs485_rx_en(std::uint32_t index, int enable) {
  return call("rig_rs485_rx_en", {number(index), number(enable)});
}

int rig_uart_mode_set(std::uint32_t index, std::uint32_t baudrate, std::uint8_t databits,
                      std::uint8_t stopbits, std::uint8_t parity, std::uint8_t flowctrl,
                      std::uint32_t mode) {
  return call("rig_uart_mode_set",
              {number(index), number(baudrate), number(databits), number(stopbits), number(parity),
               number(flowctrl), number(mode)});
}

int rig_uart_mode_getype(std::uint32_t index) {
  return call("rig_uart_mode_getype", {number(index)});
}

// Disks and storage devices.

int rig_sata_read_identify_info(const char *path, void *buffer) {
  return call("rig_sata_read_identify_info", {text(path)},
              {block_slot(buffer, RIG_ATA_SECTOR_SIZE)});
}

// rig_ata_get_identify_info hex:... -> SECTORS BYTES LOGICAL PHYSICAL "VERSION" MAX CURRENT FLAGS
// COUNT
int rig_ata_get_identify_info(const void *identify, IdentifyInfo *out) {
  return call(
      "rig_ata_get_identify_info", {block(identify, RIG_ATA_SECTOR_SIZE)},
      {long_slot(&out->sectors), long_slot(&out->bytes), word_slot(&out->logical_sector_size),
       word_slot(&out->physical_sector_size), pointer_slot(&out->sata_version),
       word_slot(&out->max_speed), word_slot(&out->current_speed), word_slot(&out->trim_flags),
       word_slot(&out->trim_count)});
}

int rig_sata_enable_smart(const char *path) {
  return call("rig_sata_enable_smart", {text(path)});
}

int rig_sata_read_smart_values(const char *path, void *buffer) {
  return call("rig_sata_read_smart_values", {text(path)},
              {block_slot(buffer, RIG_ATA_SECTOR_SIZE)});
}

int rig_sata_read_smart_thresholds(const char *path, void *buffer) {
  return call("rig_sata_read_smart_thresholds", {text(path)},
              {block_slot(buffer, RIG_ATA_SECTOR_SIZE)});
}

int rig_store_get_factory(const void *identify, const void *smart_values) {
  return call("rig_store_get_factory",
              {block(identify, RIG_ATA_SECTOR_SIZE), block(smart_values, RIG_ATA_SECTOR_SIZE)});
}

// rig_stor_devlist -> COUNT "NAME" STATE POWER ... = RESULT; COUNT is stored as it stands.
int rig_stor_devlist(StorDevList *list) {
  standin::require_zero("rig_stor_devlist", "with a list that is not zeroed", list, sizeof(*list));
  const standin::Line &line = standin::expect("rig_stor_devlist", {});
  if (line.output_count > 1 + 3 * STOR_DEVICES_MAX)
    standin::fail_line(line, "more devices than the list holds");
  for (std::size_t i = 0; i < line.output_count; ++i) {
    StorDev &device = list->devices[i == 0 ? 0 : (i - 1) / 3];
    const standin::Slot slots[] = {text_slot(device.name, sizeof device.name),
                                   word_slot(&device.state), word_slot(&device.power_state)};
    standin::store(line, i, i == 0 ? word_slot(&list->count) : slots[(i - 1) % 3]);
  }
  return standin::finish(line);
}

int rig_stor_dev_state(StorDev *device) {
  return call("rig_stor_dev_state", {text(device->name)});
}

int rig_stor_dev_power_state(StorDev *device) {
  return call("rig_stor_dev_power_state", {text(device->name)});
}

int rig_stor_dev_power_ctrl(StorDev *device, std::uint32_t power) {
  return call("rig_stor_dev_power_ctrl", {text(device->name), number(power)});
}

// Network channels and PHYs.

// rig_netchan_allinfo -> CHANNELS CHANGED LINKS0 ... LINKS7 = RESULT
int rig_netchan_allinfo(NetChanAllInfo *info) {
  standin::require_zero("rig_netchan_allinfo", "with a record that is not zeroed", info,
                        sizeof(*info));
  std::uint32_t *links = info->link_status;
  return call(
      "rig_netchan_allinfo", {},
      {word_slot(&info->chan_num), word_slot(&info->link_changed), word_slot(links),
       word_slot(links + 1), word_slot(links + 2), word_slot(links + 3), word_slot(links + 4),
       word_slot(links + 5), word_slot(links + 6), word_slot(links + 7)});
}

// rig_netchan_get_status CHANNEL -> CHANNEL "IFNAME" SUPPORTED ADVERTISING SPEED DUPLEX SETTING
// STATUS
int rig_netchan_get_status(std::uint32_t channel, NetChanStatus *status) {
  return call(
      "rig_netchan_get_status", {number(channel)},
      {word_slot(&status->channel), text_slot(status->ifname, sizeof status->ifname),
       word_slot(&status->supported), word_slot(&status->advertising), word_slot(&status->speed),
       word_slot(&status->duplex), word_slot(&status->setting), word_slot(&status->status)});
}

// rig_netchan_get_setting CHANNEL -> SPEED DUPLEX SETTING
int rig_netchan_get_setting(std::uint32_t channel, NetChanSetting *setting) {
  return call(
      "rig_netchan_get_setting", {number(channel)},
      {word_slot(&setting->speed), word_slot(&setting->duplex), word_slot(&setting->setting)});
}

// rig_netchan_get_psestatus CHANNEL -> OPERMODE DETECT_ENABLE DETECTION CLASS_ENABLE CLASS ON ICUT
// UV UA
int rig_netchan_get_psestatus(std::uint32_t channel, NetChanPseStatus *status) {
  return call(
      "rig_netchan_get_psestatus", {number(channel)},
      {byte_slot(&status->opermode), byte_slot(&status->detect_enable),
       byte_slot(&status->detection), byte_slot(&status->class_enable),
       byte_slot(&status->classification), byte_slot(&status->is_power_onoff),
       byte_slot(&status->is_icut), word_slot(&status->voltage), word_slot(&status->icurrent)});
}

std::uint32_t rig_mdio_getphyid(const char *bus_id) {
  return static_cast<std::uint32_t>(call("rig_mdio_getphyid", {text(bus_id)}));
}

int rig_mdio_getphyaddr(const char *bus_id) {
  return call("rig_mdio_getphyaddr", {text(bus_id)});
}

std::uint16_t rig_mdio_getmiireg(const char *bus_id, std::uint16_t reg) {
  return static_cast<std::uint16_t>(call("rig_mdio_getmiireg", {text(bus_id), number(reg)}));
}

int rig_mdio_setmiireg(const char *bus_id, std::uint16_t reg, std::uint16_t value) {
  return call("rig_mdio_setmiireg", {text(bus_id), number(reg), number(value)});
}

std::uint16_t rig_mdio_getmiirtl836xreg(const char *bus_id, std::uint16_t reg) {
  return static_cast<std::uint16_t>(call("rig_mdio_getmiirtl836xreg", {text(bus_id), number(reg)}));
}

int rig_mdio_setmiirtl836xreg(const char *bus_id, std::uint16_t reg, std::uint16_t value) {
  return call("rig_mdio_setmiirtl836xreg", {text(bus_id), number(reg), number(value)});
}

// Device tree and threads.

// rig_dtb_overlay COUNT "NODE" "NAME" TYPE VALUE LENGTH ... = RESULT, five arguments a property
int rig_dtb_overlay(DtbOverlayProp *props, int count) {
  standin::Value arguments[standin::kMaxValues] = {number(count)};
  std::size_t used = 1;
  for (int i = 0; i < count && used + 5 <= standin::kMaxValues; ++i, used += 5) {
    const DtbOverlayProp &prop = props[i];
    const standin::Value five[] = {text(prop.node), text(prop.name), number(prop.type),
                                   block(prop.value, prop.length), number(prop.length)};
    std::copy(std::begin(five), std::end(five), arguments + used);
  }
  return standin::finish(standin::expect("rig_dtb_overlay", {arguments, used}));
}

// rig_thread_set_cpu "self" CPU = RESULT; "other" when the thread is not the one that calls
int rig_thread_set_cpu(pthread_t thread, int cpu) {
  const bool self = pthread_equal(thread, pthread_self()) != 0;
  return call("rig_thread_set_cpu", {text(self ? "self" : "other"), number(cpu)});
}
