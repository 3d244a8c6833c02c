// The rows of the model table, one a file of this folder.

#ifndef VBOARD_INTERPOSER_MODELS_MODELS_H
#define VBOARD_INTERPOSER_MODELS_MODELS_H
#include "vboard/interposer/models/model.h"

#include <span>
#include <string_view>

namespace vboard {

extern const Model kGyroModel;
extern const Model kIccardModel;
extern const Model kInterfaceModel;
extern const Model kKorstorageModel;
extern const Model kKorcmemModel;
extern const Model kLcdModel;
extern const Model kMtdModel;
extern const Model kPhysMemModel;
extern const Model kProcConnectorModel;
extern const Model kRtcModel;
extern const Model kSataDiskModel;
extern const Model kSocketModel;
extern const Model kWatchdogModel;

// Every model, in one table; null for an unknown name.
const Model *find_model(std::string_view name);
std::span<const Model *const> all_models();

}  // namespace vboard

#endif
