// Models in libraries of their own, loaded for their tables.

#ifndef VBOARD_LAUNCHER_MODEL_LIBRARY_H
#define VBOARD_LAUNCHER_MODEL_LIBRARY_H
#include "vboard/base/text.h"
#include "vboard/interposer/models/model.h"

#include <string_view>

namespace vboard {

// The row of the library that the node file `file` names with "model = NAME": an absolute name, or
// one that starts from the node file's folder. Null, with the reason in `problem`, when there is
// none. The row's tables may be read; its functions must not be called.
const Model *load_model_library(std::string_view name, std::string_view file,
                                FixedText<600> &problem);

}  // namespace vboard

#endif
