// dtbofs, dtbofcell: add or change one property of the running device tree, a text or up to 16
// cells, through the platform library, whose result is the status. dtbofu32 and dtbofu64 are the
// forms for one and for two cells.
//
// Cells are handed over as native words, texts without their NUL: how they are stored is the
// library's business.

#include "debug/debug_tools.h"

#include "common/numbers.h"
#include "debug/dtb_cells.h"
#include "platform/device_tree.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr char kStringUsage[] =
    "\n dtbofs v1.0\n\nUsage: dtbofs [args]\n\n\n\nexample:\n"
    "  dtbofs /chosen test aaaa\n";

constexpr char kCellUsage[] =
    "\n dtbofu64 v1.0\n\nUsage: dtbofcell [args]\n\n\n\nexample:\n"  // sic: dtbofu64
    "  dtbofcell /chosen testu64 2 0x11223344 0x55667788\n";

constexpr char kU32Usage[] =
    "\n dtbofu32 v1.0\n\nUsage: dtbofu32 [args]\n\n\n\nexample:\n"
    "  dtbofu32 /chosen testu32 0x12345678\n";

constexpr char kU64Usage[] =
    "\n dtbofu64 v1.0\n\nUsage: dtbofu64 [args]\n\n\n\nexample:\n"
    "  dtbofu64 /chosen testu64 0x11223344 0x55667788\n";

int dtb_usage(const char *usage) {
  fputs(usage, stderr);
  return -1;
}

int set_property(const char *node, const char *name, std::uint32_t type, const void *value,
                 std::size_t length) {
  DtbOverlayProp property = {};
  property.node = node;
  property.name = name;
  property.type = type;
  property.value = value;
  property.length = static_cast<std::uint32_t>(length);
  return rig_dtb_overlay(&property, 1);
}

int set_cells(const char *node, const char *name, const DtbCells &cells) {
  return set_property(node, name, DTB_PROP_CELLS, cells.words.data(),
                      cells.count * sizeof(std::uint32_t));
}

}  // namespace

int dtbofs_main(int argc, char **argv) {
  if (argc != 4)
    return dtb_usage(kStringUsage);
  return set_property(argv[1], argv[2], DTB_PROP_STRING, argv[3], strlen(argv[3]));
}

int dtbofcell_main(int argc, char **argv) {
  if (argc < 5)
    return dtb_usage(kCellUsage);
  return set_cells(argv[1], argv[2], parse_cells(parse_u32(argv[3], 0), argc - 4, argv + 4));
}

int dtbofu32_main(int argc, char **argv) {
  if (argc != 4)
    return dtb_usage(kU32Usage);
  return set_cells(argv[1], argv[2], parse_cells(1, argc - 3, argv + 3));
}

int dtbofu64_main(int argc, char **argv) {
  if (argc != 5)
    return dtb_usage(kU64Usage);
  return set_cells(argv[1], argv[2], parse_cells(2, argc - 3, argv + 3));
}
