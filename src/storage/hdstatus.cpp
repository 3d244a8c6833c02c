// bt2 hdstatus: everything that the storage driver knows about one SATA port.
//
// The first three requests only report how they went. The report's first thirteen lines are
// deliberately not in the record's order, and the disk's status stands there twice, as a number and
// as words.

#include "storage/storage.h"

#include "common/numbers.h"
#include "platform/driver/korstorage.h"

#include <sys/ioctl.h>

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <iterator>

namespace {

constexpr char kUsage[] =
    "\n hdstatus v1.0\n"
    "Usage:\n\n"
    "    hdstatus  index         ---sata index(0~n)\n\n\n"
    "example:\n\n"
    "    hdstatus  0             ---get sata0 status\n\n\n";
static_assert(sizeof kUsage - 1 == 133);

struct Counter {
  const char *label;
  std::int32_t StorStatistics::*value;
};

using S = StorStatistics;

// clang-format off
constexpr Counter kStatusCounters[] = {
    {"lbaOverflow:",    &S::lba_overflow},
    {"keyAreaErr:",     &S::key_area_err},
    {"BSYCount:",       &S::bsy_count},
    {"NoReady:",        &S::no_ready},
    {"DRQSetErr:",      &S::drq_set_err},
    {"writeErr:",       &S::write_err},
    {"readErr:",        &S::read_err},
    {"retryCmdCount:",  &S::retry_cmd_count},
    {"abortCmdCount:",  &S::abort_cmd_count},
    {"CmdAborted:",     &S::cmd_aborted},
    {"CmdOverUnknown:", &S::cmd_over_unknown},
    {"CmdOverErr:",     &S::cmd_over_err},
    {"hdStatus:",       &S::hd_status},
};

// From here on in the record's order, without the one word that is not reported.
constexpr Counter kLinkCounters[] = {
    {"BadSCSICmdParam:",  &S::bad_scsi_cmd_param},
    {"UAReset:",          &S::ua_reset},
    {"UAParamChanged:",   &S::ua_param_changed},
    {"QueueFull:",        &S::queue_full},
    {"OverRun:",          &S::over_run},
    {"UnderRun:",         &S::under_run},
    {"ParityErr:",        &S::parity_err},
    {"BadSCSICmdResult:", &S::bad_scsi_cmd_result},
    {"RecoverableErr:",   &S::recoverable_err},
    {"DeviceFault:",      &S::device_fault},
    {"SerrInt:",          &S::serr_int},
    {"LinkCtlRxErr:",     &S::link_ctl_rx_err},
    {"LinkCtlTxErr:",     &S::link_ctl_tx_err},
};

constexpr Counter kSerrorCounters[] = {
    {"RecovData:",    &S::recov_data},
    {"RecovComm:",    &S::recov_comm},
    {"UnrecovData:",  &S::unrecov_data},
    {"Persist:",      &S::persist},
    {"Proto:",        &S::proto},
    {"HostInt:",      &S::host_int},
    {"PHYRdyChg:",    &S::phy_rdy_chg},
    {"PHYInt:",       &S::phy_int},
    {"CommWake:",     &S::comm_wake},
    {"SERR_10B_8B:",  &S::serr_10b_8b},
    {"Dispar:",       &S::dispar},
    {"BadCRC:",       &S::bad_crc},
    {"Handshk:",      &S::handshk},
    {"LinkSeq:",      &S::link_seq},
    {"TrStaTrns:",    &S::tr_sta_trns},
    {"UnrecFIS:",     &S::unrec_fis},
    {"DevExch:",      &S::dev_exch},
};

constexpr Counter kCompletionCounters[] = {
    {"HostBusError:",    &S::host_bus_error},
    {"ATABusError:",     &S::ata_bus_error},
    {"TimeOutError:",    &S::time_out_error},
    {"HSMviolation:",    &S::hsm_violation},
    {"SystemError:",     &S::system_error},
    {"MediaError:",      &S::media_error},
    {"InvalidArgument:", &S::invalid_argument},
    {"DeviceError:",     &S::device_error},
    {"UnknownError:",    &S::unknown_error},
};
// clang-format on

static_assert(std::size(kSerrorCounters) == 17 && std::size(kCompletionCounters) == 9);

template <std::size_t Count>
void print_counters(const Counter (&counters)[Count], const StorStatistics &statistics) {
  for (const Counter &counter : counters)
    printf("%-23s%d\n", counter.label, statistics.*counter.value);
}

void print_statistics(int port, const StorStatistics &statistics) {
  const std::int32_t status = statistics.hd_status;
  puts("\033[0;32mSTOR_CMD_GET test OK.\033[m");
  printf("@start==============SATA PORT %d STATUS================start@\n", port);
  print_counters(kStatusCounters, statistics);
  printf("hdStatus:              %s  %s  %#x\n",
         (status & STOR_HD_ABNORMAL) != 0 ? "ABNORMAL" : "NORMAL",
         (status & STOR_HD_IDLE) != 0 ? "IDLE" : "ACTIVE", static_cast<unsigned int>(status));
  print_counters(kLinkCounters, statistics);
  printf("accessTime:            %ld\n\n", static_cast<long>(statistics.access_time));
  puts("                SError Content");
  print_counters(kSerrorCounters, statistics);
  puts("");
  puts("            ATA completion errors");
  print_counters(kCompletionCounters, statistics);
  printf("@end================SATA PORT%d STATUS================end@\n", port);  // sic: no blank
}

void report_scan(int device) {
  StorWord word = {};  // of no port
  const int result = ioctl(device, STOR_CMD_SCAN_DONE, &word);
  if (result < 0)
    printf("\033[0;32mSTOR_CMD_SCAN_DONE test faild:%d.\033[m\n", result);  // sic
  else
    puts("\033[0;32mSTOR_CMD_SCAN_DONE test OK.\033[m");
}

void report_error_request(int device, int port) {
  StorErrorRequest error = {};
  error.err_type = port;
  const int result = ioctl(device, STOR_CMD_ERR_REQ, &error);
  if (result < 0) {
    printf("\033[0;32mSTOR_CMD_ERR_REQ test faild:%d.\033[m\n", result);  // sic
    return;
  }
  puts("\033[0;32mSTOR_CMD_ERR_REQ test OK.\033[m");
  printf("@start==============SATA PORT %d ERROR REQUEST================start@\n", port);
  printf("err type:              %d\n", error.err_type);
  printf("err count:             %d\n", error.err_count);
  printf("cmd type:              %d\n", error.cmd_type);
  printf("sector:                %lld\n", static_cast<long long>(error.sector));
  printf("@end================SATA PORT %d ERROR REQUEST================end@\n", port);
}

void report_resets(int device, int port) {
  StorResetStatus resets = {};
  resets.count = port;
  const int result = ioctl(device, STOR_CMD_HD_RESET_STATUS, &resets);
  if (result < 0) {
    printf("\033[0;32mSTOR_CMD_HD_RESET_STATUS test faild:%d.\033[m\n", result);  // sic
    return;
  }
  puts("\033[0;32mSTOR_CMD_HD_RESET_STATUS test OK.\033[m");
  printf("@start==============SATA PORT %d RESET COUNT================start@\n", port);
  printf("reset count:           %d\n", resets.count);
  printf("last reset time:       %ld\n", static_cast<long>(resets.last_time));
  printf("@end================SATA PORT %d RESET COUNT================end@\n", port);
}

int report_port(int device, int port) {
  report_scan(device);
  report_error_request(device, port);
  report_resets(device, port);

  StorStatistics statistics = {};
  statistics.read_err = port;
  if (ioctl(device, STOR_CMD_GET, &statistics) != 0) {
    puts("\033[0;32mSTOR_CMD_GET faild!\033[m");  // sic
    return -1;
  }
  print_statistics(port, statistics);

  StorWord trim = {};
  trim.value = port;
  if (ioctl(device, STOR_CMD_TRIM_SUPPORT, &trim) != 0) {
    puts("\033[0;32mSTOR_CMD_TRIM_SUPPORT faild!\033[m");  // sic
    return -1;
  }
  printf("SATA PORT%d TRIM STATUS: %d\n", port, trim.value);
  // GBK: 硬盘信息输出完毕,请对照, "the disk's information is complete, compare it with".
  printf(
      "\xD3\xB2\xC5\xCC\xD0\xC5\xCF\xA2\xCA\xE4\xB3\xF6\xCD\xEA\xB1\xCF,\xC7\xEB\xB6\xD4\xD5\xD5"
      "/proc/korvs/stor/sataport%d!!!\n",
      port);
  return 0;
}

}  // namespace

int hdstatus_applet(int argc, char **argv) {
  if (argc < 2) {
    fputs(kUsage, stderr);
    return -1;
  }
  const int device = open(KORSTORAGE_DEVICE, O_RDWR);
  if (device < 0) {
    puts("Open /dev/korstorage failed!");
    return -1;
  }
  const int status = report_port(device, parse_decimal(argv[1]));
  close(device);
  return status;
}
