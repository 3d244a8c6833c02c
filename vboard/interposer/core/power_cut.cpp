#include "vboard/interposer/core/power_cut.h"

#include "vboard/board/node.h"
#include "vboard/interposer/core/device_time.h"
#include "vboard/interposer/core/state.h"

namespace vboard {

namespace {

__thread bool failing __attribute__((tls_model("initial-exec")));

}  // namespace

void fail_power_in(std::string_view call) {
  failing = true;
  if (call != "write" && call != "ioctl")
    end_power_if_failing();
}

bool power_fails() {
  return failing;
}

void end_power_if_failing() {
  if (failing)
    end_run(kPowerCut);
}

std::size_t size_before_power_cut(const Description &description, std::size_t size) {
  switch (description.kind) {
    case Kind::kModel:
      if (description.file.model->writes_in_pieces)
        return size;
      if (node_text(description.file.node, "type") == "block")
        return size / 2 / kSector * kSector;
      return size / 2;
    case Kind::kAttribute:
      return 0;  // its text is taken whole
    default:
      return size / 2;
  }
}

}  // namespace vboard
