// Flattened device trees through libfdt, which is loaded when a property is first to be changed: a
// tool that leaves the tree alone does not pay for it.

#include "platform/overlay_blob.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <errno.h>
#include <libfdt.h>
#include <stdio.h>
#include <string.h>

#include <cstdint>

namespace rigcore {

namespace {

struct FdtLibrary {
  decltype(&fdt_create) create;
  decltype(&fdt_finish_reservemap) finish_reservemap;
  decltype(&fdt_begin_node) begin_node;
  decltype(&fdt_property) property;
  decltype(&fdt_end_node) end_node;
  decltype(&fdt_finish) finish;
};

FdtLibrary fdt;

template <typename Function>
bool bind(void *handle, const char *name, Function *function) {
  *function = reinterpret_cast<Function>(dlsym(handle, name));
  return *function != nullptr;
}

bool load_library() {
  static bool is_loaded = false;
  if (is_loaded)
    return true;
  void *handle = dlopen("libfdt.so.1", RTLD_NOW | RTLD_LOCAL);
  is_loaded = handle != nullptr && bind(handle, "fdt_create", &fdt.create) &&
              bind(handle, "fdt_finish_reservemap", &fdt.finish_reservemap) &&
              bind(handle, "fdt_begin_node", &fdt.begin_node) &&
              bind(handle, "fdt_property", &fdt.property) &&
              bind(handle, "fdt_end_node", &fdt.end_node) &&
              bind(handle, "fdt_finish", &fdt.finish);
  return is_loaded;
}

// Value bytes as the blob holds them. Both kinds are copied, since a caller's text has no NUL at
// its end and its cells need not be aligned.
constexpr std::size_t kMostValue = 4096;

std::uint32_t encode_value(const DtbOverlayProp &prop, unsigned char (&bytes)[kMostValue]) {
  if (prop.length > 0)
    memcpy(bytes, prop.value, prop.length);
  if (prop.type == DTB_PROP_STRING) {
    bytes[prop.length] = '\0';
    return prop.length + 1;
  }
  for (std::uint32_t at = 0; at < prop.length; at += sizeof(std::uint32_t)) {
    std::uint32_t cell;
    memcpy(&cell, bytes + at, sizeof cell);
    cell = htonl(cell);
    memcpy(bytes + at, &cell, sizeof cell);
  }
  return prop.length;
}

// fragment@N { target-path = NODE; __overlay__ { NAME = VALUE; }; };
bool add_fragment(void *blob, int number, const DtbOverlayProp &prop) {
  unsigned char value[kMostValue];
  const int length = static_cast<int>(encode_value(prop, value));
  char fragment[24];
  snprintf(fragment, sizeof fragment, "fragment@%d", number);
  return fdt.begin_node(blob, fragment) == 0 &&
         fdt.property(blob, "target-path", prop.node, static_cast<int>(strlen(prop.node)) + 1) ==
             0 &&
         fdt.begin_node(blob, "__overlay__") == 0 &&
         fdt.property(blob, prop.name, value, length) == 0 && fdt.end_node(blob) == 0 &&
         fdt.end_node(blob) == 0;
}

bool write_tree(const DtbOverlayProp *props, int count, void *blob, std::size_t size) {
  if (fdt.create(blob, static_cast<int>(size)) != 0 || fdt.finish_reservemap(blob) != 0 ||
      fdt.begin_node(blob, "") != 0)
    return false;
  for (int i = 0; i < count; ++i) {
    if (!add_fragment(blob, i, props[i]))
      return false;
  }
  return fdt.end_node(blob) == 0 && fdt.finish(blob) == 0;
}

}  // namespace

bool is_overlay_property(const DtbOverlayProp &prop) {
  if (prop.node == nullptr || prop.node[0] != '/' || prop.name == nullptr || prop.name[0] == '\0' ||
      strchr(prop.name, '/') != nullptr)
    return false;
  if ((prop.value == nullptr && prop.length > 0) || prop.length >= kMostValue)
    return false;
  return prop.type == DTB_PROP_STRING ||
         (prop.type == DTB_PROP_CELLS && prop.length % sizeof(std::uint32_t) == 0);
}

int build_overlay(const DtbOverlayProp *props, int count, void *blob, std::size_t size) {
  if (!load_library()) {
    errno = ELIBACC;
    return -1;
  }
  if (!write_tree(props, count, blob, size)) {
    errno = ENOSPC;
    return -1;
  }
  return static_cast<int>(fdt_totalsize(blob));
}

}  // namespace rigcore
