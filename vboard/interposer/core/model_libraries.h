// Models of somebody else's: libraries that a node file names.

#ifndef VBOARD_INTERPOSER_CORE_MODEL_LIBRARIES_H
#define VBOARD_INTERPOSER_CORE_MODEL_LIBRARIES_H
#include "vboard/interposer/models/model.h"

#include <string_view>

namespace vboard {

// The model of that name: one of the table, or with a '/' in its name one in a library, by an
// absolute name or one that starts from the node file's folder. Null, with the reason on standard
// error for a library, when there is none.
const Model *find_any_model(std::string_view name, std::string_view node_file);

}  // namespace vboard

#endif
