#include "vboard/interposer/core/model_libraries.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_paths.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/models.h"

#include <dlfcn.h>
#include <string.h>

namespace vboard {

namespace {

void complain(std::string_view text) {
  sys_write(2, "vboard: ", 8);
  sys_write(2, text.data(), text.size());
  sys_write(2, "\n", 1);
}

const Model *load(const char *library) {
  using Entry = const Model *(*)(const Host *);
  void *handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    complain(dlerror());
    return nullptr;
  }
  const Entry entry = reinterpret_cast<Entry>(dlsym(handle, "vboard_model"));
  const Model *model = entry != nullptr ? entry(host) : nullptr;
  if (model == nullptr)
    complain(entry == nullptr ? "the library of a model has no vboard_model()"
                              : "the library of a model was built for another vboard");
  return model;
}

}  // namespace

const Model *find_any_model(std::string_view name, std::string_view node_file) {
  if (name.find('/') == name.npos)
    return find_model(name);
  FixedText<kPathSize> library;
  if (name[0] != '/')
    append_text(library, node_file.substr(0, node_file.rfind('/') + 1));
  append_text(library, name);
  return library.overflow ? nullptr : load(library.c_str());
}

}  // namespace vboard
