// The rows of the model table, one a file of this folder.

#ifndef VBOARD_INTERPOSER_MODELS_MODELS_H
#define VBOARD_INTERPOSER_MODELS_MODELS_H

#include "vboard/interposer/models/model.h"

namespace vboard {

extern const Model kGyroModel;
extern const Model kIccardModel;
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

// A medium is moved in whole pieces: 0, or a negated errno (EIO for a medium that is too short).
int read_medium(const OpenFile &file, void *out, std::size_t size, std::int64_t offset);
int write_medium(const OpenFile &file, const void *bytes, std::size_t size, std::int64_t offset);

// Lets only one open file use the node, whichever process has it: 0 with a descriptor in
// `out_claim` to be given up with release_claim(), -EBUSY while another has it.
int claim_device(const OpenFile &file, int &out_claim);
void release_claim(int claim);

}  // namespace vboard

#endif
