// Storing a device's state in its node file.

#include "vboard/base/text.h"
#include "vboard/interposer/models/model.h"

#include <errno.h>

namespace vboard {

namespace {

struct Setting {
  std::string_view key, value;
  bool fits;
};

void store(Node &node, void *context) {
  Setting &setting = *static_cast<Setting *>(context);
  setting.fits = set_node_text(node, setting.key, setting.value);
}

}  // namespace

int store_text(OpenFile &file, std::string_view key, std::string_view value) {
  // What the run itself sees changes even when the board cannot be written.
  if (!set_node_text(file.node, key, value))
    return -E2BIG;
  Setting setting = {key, value, false};
  const int result = update_node(file.file, store, &setting);
  return result == 0 && !setting.fits ? -E2BIG : result;
}

int store_number(OpenFile &file, std::string_view key, std::int64_t value) {
  char text[24];
  TextBuffer buffer = {text, sizeof text, 0, false};
  append_decimal(buffer, value);
  return store_text(file, key, {text, buffer.length});
}

}  // namespace vboard
