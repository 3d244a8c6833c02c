// Sockets of the internet and packet families, and netlink's without a connector: they can be made
// and asked about interfaces (interface.cpp), and reach nobody.

#include "vboard/interposer/models/models.h"

namespace vboard {

extern constexpr Model kSocketModel = {
    .name = "socket",
    .no_stream = ENOTCONN,
};

}  // namespace vboard
