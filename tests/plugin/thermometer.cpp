// A device model in a library of its own, for the commands that read its tables. Nobody opens it.

#include "vboard/interposer/models/host.h"

namespace {

using namespace vboard;

constexpr Setting kSettings[] = {
    {.key = "celsius",
     .kind = SettingKind::kNumber,
     .otherwise = "21",
     .help = "what it measures",
     .least = -40,
     .most = 125},
    {.key = "broken", .kind = SettingKind::kFlag, .otherwise = "0", .help = "1: it measures -40"},
};

constexpr Request kRequests[] = {
    {.number = 0x5401, .name = "THERMOMETER_READ", .direction = Direction::kOut, .handler = {}},
};

constexpr Model kThermometer = {
    .name = "thermometer", .settings = kSettings, .requests = kRequests};

}  // namespace

VBOARD_MODEL(kThermometer)
