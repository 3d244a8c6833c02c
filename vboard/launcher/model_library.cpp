#include "vboard/launcher/model_library.h"

#include "vboard/board/board_files.h"
#include "vboard/interposer/models/host.h"

#include <dlfcn.h>

namespace vboard {

const Model *load_model_library(std::string_view name, std::string_view file,
                                FixedText<600> &problem) {
  using Entry = const Model *(*)(const Host *);
  // The library keeps the address, and checks the version alone.
  static Host nothing;
  nothing.version = kHostVersion;

  BoardPath path;
  append_text(path, name[0] != '/' ? file.substr(0, file.rfind('/') + 1) : "", name);
  void *handle = path.overflow ? nullptr : dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    append_text(problem, path.overflow ? "the library's name is too long" : dlerror());
    return nullptr;
  }
  const Entry entry = reinterpret_cast<Entry>(dlsym(handle, "vboard_model"));
  const Model *model = entry != nullptr ? entry(&nothing) : nullptr;
  if (model == nullptr)
    append_text(problem, name,
                entry == nullptr ? ": has no vboard_model()" : ": was built for another vboard");
  return model;
}

}  // namespace vboard
