// Sockets of the families that reach beyond the board, as their models see them.

#ifndef VBOARD_INTERPOSER_MODELS_SOCKET_CALLS_H
#define VBOARD_INTERPOSER_MODELS_SOCKET_CALLS_H

#include <cstddef>
#include <cstdint>

namespace vboard {

// Calls of a socket that a model may take, as rows of its request table. Without the row they fail
// with ENETUNREACH: the board has no network.
inline constexpr std::uint32_t kSocketBind = 0xFFFF0001;
inline constexpr std::uint32_t kSocketConnect = 0xFFFF0002;

// Their argument.
struct SocketAddress {
  const void *data;
  std::size_t size;
};

}  // namespace vboard

#endif
