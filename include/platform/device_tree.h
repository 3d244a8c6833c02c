/* Properties of the running device tree. */

#ifndef PLATFORM_DEVICE_TREE_H
#define PLATFORM_DEVICE_TREE_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* DtbOverlayProp.type */
enum {
  DTB_PROP_STRING = 1, /* text, given without its NUL, stored with it */
  DTB_PROP_CELLS = 2,  /* 32-bit words in the processor's byte order, stored big-endian */
};

/* One property to add or change. Offsets are the board's, whose pointers have four bytes. */
typedef struct DtbOverlayProp {
  const char *node;  /*  0: path of the node, such as "/chosen" */
  const char *name;  /*  4 */
  uint32_t type;     /*  8: DTB_PROP_... */
  const void *value; /* 12 */
  uint32_t length;   /* 16: bytes */
} DtbOverlayProp;

static_assert(sizeof(void *) != 4 || sizeof(DtbOverlayProp) == 20, "size on the board");
static_assert(sizeof(void *) != 4 || offsetof(DtbOverlayProp, length) == 16, "offset on the board");

/* Adds or changes `count` properties of the running tree (1 and more) at once. 0, or -1 with the
 * reason on standard error and errno: ENOENT when a node does not exist, ENOSYS when the kernel
 * takes no overlays at run time, ELIBACC when libfdt is not installed, EINVAL for a record that
 * makes no sense, EIO when the kernel refused the overlay, nothing being changed then.
 *
 * Builds an overlay with libfdt and hands it to the kernel's overlay directory of configfs,
 * /sys/kernel/config/device-tree/overlays. Removing the new directory there undoes the change. */
RIG_API int rig_dtb_overlay(DtbOverlayProp *props, int count);

#ifdef __cplusplus
}
#endif

#endif
