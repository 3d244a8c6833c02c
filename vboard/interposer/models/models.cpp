#include "vboard/interposer/models/models.h"

#include "vboard/interposer/models/host.h"

namespace vboard {

const Host *host;

namespace {

constexpr const Model *kModels[] = {
    &kGyroModel,     &kIccardModel, &kInterfaceModel, &kKorstorageModel,    &kKorcmemModel,
    &kLcdModel,      &kMtdModel,    &kPhysMemModel,   &kProcConnectorModel, &kRtcModel,
    &kSataDiskModel, &kSocketModel, &kWatchdogModel,
};

// The size bits of a request number.
constexpr std::uint32_t kSizeBits = 0x3FFF0000;

}  // namespace

std::span<const Model *const> all_models() {
  return kModels;
}

const Model *find_model(std::string_view name) {
  for (const Model *model : kModels) {
    if (model->name == name)
      return model;
  }
  return nullptr;
}

const Request *find_request(const Model &model, std::uint32_t number) {
  for (const Request &request : model.requests) {
    const std::uint32_t compared = request.any_size ? ~kSizeBits : ~0u;
    if ((request.number & compared) == (number & compared))
      return &request;
  }
  return nullptr;
}

}  // namespace vboard
