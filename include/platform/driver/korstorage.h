/* The storage driver, /dev/korstorage: state of the SATA ports and tracing of block requests.
 *
 * Request numbers encode "read, four bytes" whatever the record's size is: use them as they stand,
 * never _IOR() and the like. A record's first word carries the port's index into the driver, which
 * then overwrites the whole record with its answer. Words that were C's long on the board are 32
 * bits here on every build. */

#ifndef PLATFORM_DRIVER_KORSTORAGE_H
#define PLATFORM_DRIVER_KORSTORAGE_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#define KORSTORAGE_DEVICE "/dev/korstorage"

#define STOR_CMD_GET 0x80045301u                /* StorStatistics */
#define STOR_CMD_SCAN_DONE 0x80045303u          /* StorWord, 0 for the port; the result tells */
#define STOR_CMD_HD_RESET_STATUS 0x80045305u    /* StorResetStatus */
#define STOR_CMD_ERR_REQ 0x80045306u            /* StorErrorRequest */
#define STOR_CMD_TRIM_SUPPORT 0x80045307u       /* StorWord; fills the TRIM status */
#define STOR_CMD_TRACE_DEVICE_START 0x8004530Bu /* StorTraceStart; fills the handle */
#define STOR_CMD_TRACE_DEVICE_STOP 0x8004530Cu  /* the same StorTraceStart */
#define STOR_CMD_TRACE_READ 0x8004530Du         /* StorTraceEvent, with time 0 when there is none */

/* The port's index on entry; the answer's only word. */
typedef struct StorWord {
  int32_t value;        /* 0 */
  uint8_t reserved[28]; /* 4 */
} StorWord;

static_assert(sizeof(StorWord) == 32, "record size");

/* StorStatistics.hd_status */
#define STOR_HD_ABNORMAL 0x3 /* either bit */
#define STOR_HD_IDLE 0x4     /* clear while the disk is active */

/* Counters of one port since the driver was loaded. */
typedef struct StorStatistics {
  int32_t read_err;            /*   0; the port's index on entry */
  int32_t write_err;           /*   4 */
  int32_t key_area_err;        /*   8 */
  int32_t lba_overflow;        /*  12 */
  int32_t no_ready;            /*  16 */
  int32_t bsy_count;           /*  20 */
  int32_t drq_set_err;         /*  24 */
  int32_t hd_status;           /*  28: STOR_HD_... */
  int32_t retry_cmd_count;     /*  32 */
  int32_t abort_cmd_count;     /*  36 */
  int32_t cmd_aborted;         /*  40 */
  int32_t cmd_over_unknown;    /*  44 */
  int32_t cmd_over_err;        /*  48 */
  int32_t bad_scsi_cmd_param;  /*  52 */
  int32_t ua_reset;            /*  56 */
  int32_t ua_param_changed;    /*  60 */
  int32_t queue_full;          /*  64 */
  int32_t over_run;            /*  68 */
  int32_t under_run;           /*  72 */
  int32_t parity_err;          /*  76 */
  int32_t bad_scsi_cmd_result; /*  80 */
  int32_t unreported;          /*  84 */
  int32_t recoverable_err;     /*  88 */
  int32_t device_fault;        /*  92 */
  int32_t serr_int;            /*  96 */
  int32_t link_ctl_rx_err;     /* 100 */
  int32_t link_ctl_tx_err;     /* 104 */
  /* SError content */
  int32_t recov_data;   /* 108 */
  int32_t recov_comm;   /* 112 */
  int32_t unrecov_data; /* 116 */
  int32_t persist;      /* 120 */
  int32_t proto;        /* 124 */
  int32_t host_int;     /* 128 */
  int32_t phy_rdy_chg;  /* 132 */
  int32_t phy_int;      /* 136 */
  int32_t comm_wake;    /* 140 */
  int32_t serr_10b_8b;  /* 144 */
  int32_t dispar;       /* 148 */
  int32_t bad_crc;      /* 152 */
  int32_t handshk;      /* 156 */
  int32_t link_seq;     /* 160 */
  int32_t tr_sta_trns;  /* 164 */
  int32_t unrec_fis;    /* 168 */
  int32_t dev_exch;     /* 172 */
  /* ATA completion errors */
  int32_t host_bus_error;   /* 176 */
  int32_t ata_bus_error;    /* 180 */
  int32_t time_out_error;   /* 184 */
  int32_t hsm_violation;    /* 188 */
  int32_t system_error;     /* 192 */
  int32_t media_error;      /* 196 */
  int32_t invalid_argument; /* 200 */
  int32_t device_error;     /* 204 */
  int32_t unknown_error;    /* 208 */
  int32_t access_time;      /* 212: the last access */
  uint8_t reserved[12];     /* 216 */
} StorStatistics;

static_assert(sizeof(StorStatistics) == 228, "record size");
static_assert(offsetof(StorStatistics, hd_status) == 28, "word 7");
static_assert(offsetof(StorStatistics, bad_scsi_cmd_result) == 80, "word 20");
static_assert(offsetof(StorStatistics, link_ctl_tx_err) == 104, "word 26");
static_assert(offsetof(StorStatistics, recov_data) == 108, "word 27");
static_assert(offsetof(StorStatistics, dev_exch) == 172, "word 43");
static_assert(offsetof(StorStatistics, host_bus_error) == 176, "word 44");
static_assert(offsetof(StorStatistics, unknown_error) == 208, "word 52");
static_assert(offsetof(StorStatistics, access_time) == 212, "word 53");

typedef struct StorResetStatus {
  int32_t count;         /* 0: resets of the disk; the port's index on entry */
  int32_t last_time;     /* 4: of the last reset */
  uint8_t reserved[260]; /* 8 */
} StorResetStatus;

static_assert(sizeof(StorResetStatus) == 268, "record size");
static_assert(offsetof(StorResetStatus, last_time) == 4, "record offset");

/* The request that failed last. */
typedef struct StorErrorRequest {
  int32_t err_type;    /*  0; the port's index on entry */
  int32_t err_count;   /*  4 */
  int32_t cmd_type;    /*  8 */
  int32_t unreported;  /* 12 */
  int64_t sector;      /* 16 */
  uint8_t reserved[8]; /* 24 */
} StorErrorRequest;

static_assert(sizeof(StorErrorRequest) == 32, "record size");
static_assert(offsetof(StorErrorRequest, err_count) == 4, "record offset");
static_assert(offsetof(StorErrorRequest, cmd_type) == 8, "record offset");
static_assert(offsetof(StorErrorRequest, sector) == 16, "record offset");

/* StorTraceStart.option: the only value that the driver is known to take. */
#define STOR_TRACE_OPTION 384

typedef struct StorTraceStart {
  char name[32];  /*  0: NUL-terminated block device, such as "mmcblk0" */
  int32_t handle; /* 32: 0 on entry, then the driver's */
  int32_t option; /* 36: STOR_TRACE_OPTION */
} StorTraceStart;

static_assert(sizeof(StorTraceStart) == 40, "record size");
static_assert(offsetof(StorTraceStart, handle) == 32, "record offset");
static_assert(offsetof(StorTraceStart, option) == 36, "record offset");

/* Categories in StorTraceEvent.action, those of the kernel's block trace; the action's code is in
 * its low byte. */
#define STOR_TRACE_WRITE 0x00020000u
#define STOR_TRACE_FLUSH 0x00040000u
#define STOR_TRACE_SYNC 0x00080000u
#define STOR_TRACE_AHEAD 0x08000000u
#define STOR_TRACE_META 0x10000000u
#define STOR_TRACE_DISCARD 0x20000000u
#define STOR_TRACE_FUA 0x80000000u

/* One event. From `magic` on it is laid out as struct blk_io_trace of linux/blktrace_api.h. */
typedef struct StorTraceEvent {
  int32_t handle;          /*   0: StorTraceStart.handle */
  uint8_t unused[4];       /*   4 */
  uint32_t magic;          /*   8 */
  uint32_t sequence;       /*  12 */
  uint64_t time;           /*  16: nanoseconds, 0 when no event was returned */
  uint64_t sector;         /*  24 */
  uint32_t bytes;          /*  32 */
  uint32_t action;         /*  36: code in the low byte, STOR_TRACE_... above */
  uint32_t pid;            /*  40 */
  uint32_t device;         /*  44 */
  uint32_t cpu;            /*  48 */
  uint16_t error;          /*  52 */
  uint16_t payload_length; /*  54 */
  uint8_t payload[80];     /*  56 */
} StorTraceEvent;

static_assert(sizeof(StorTraceEvent) == 136, "record size");
static_assert(offsetof(StorTraceEvent, magic) == 8, "record offset");
static_assert(offsetof(StorTraceEvent, sequence) == 12, "record offset");
static_assert(offsetof(StorTraceEvent, time) == 16, "record offset");
static_assert(offsetof(StorTraceEvent, sector) == 24, "record offset");
static_assert(offsetof(StorTraceEvent, bytes) == 32, "record offset");
static_assert(offsetof(StorTraceEvent, action) == 36, "record offset");
static_assert(offsetof(StorTraceEvent, pid) == 40, "record offset");
static_assert(offsetof(StorTraceEvent, device) == 44, "record offset");
static_assert(offsetof(StorTraceEvent, cpu) == 48, "record offset");
static_assert(offsetof(StorTraceEvent, error) == 52, "record offset");
static_assert(offsetof(StorTraceEvent, payload_length) == 54, "record offset");
static_assert(offsetof(StorTraceEvent, payload) == 56, "record offset");

#endif
