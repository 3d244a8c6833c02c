// Calls of a socket that a model may take, as rows of its request table. Without the row they fail
// with ENETUNREACH: the board has no network.

#ifndef VBOARD_INTERPOSER_MODELS_SOCKET_CALLS_H
#define VBOARD_INTERPOSER_MODELS_SOCKET_CALLS_H

#include <cstddef>
#include <cstdint>

namespace vboard {

inline constexpr std::uint32_t kSocketBind = 0xFFFF0001;
inline constexpr std::uint32_t kSocketConnect = 0xFFFF0002;

// Their record: the address, as much of it as there is room for.
struct SocketAddress {
  std::size_t size;
  unsigned char bytes[128];
};

}  // namespace vboard

#endif
