// One line of a `faults` file: what is broken, for which call, how, and when.

#ifndef VBOARD_BOARD_FAULTS_H
#define VBOARD_BOARD_FAULTS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vboard {

enum class FaultEffect : std::uint8_t {
  kAbsent,
  kErrno,     // the call fails with `value`
  kShort,     // at most `value` bytes get through
  kResult,    // the call is performed and returns `value`
  kPowerCut,  // power fails in the middle of the call
};

enum class FaultCount : std::uint8_t { kEvery, kNth, kFrom };

// In nanoseconds of board time; the end is not part of the window.
struct FaultWindow {
  std::int64_t from, to;
};

struct Fault {
  char node[128];        // a path, "net:NAME" or "socket"; a last '*' stands for any rest
  char call[16];         // "ioctl"; empty for an absent node
  char request[48];      // the name behind "ioctl:", empty for any request
  std::uint32_t number;  // of "ioctl:0xNUMBER"
  bool by_number;
  FaultEffect effect;
  std::int64_t value;
  FaultCount count;
  std::uint64_t n;  // of nth= and from=, counted from 1
  std::size_t window_count;
  FaultWindow windows[32];
};

enum class FaultLine : std::uint8_t { kFault, kNothing, kWrong };

// Parses one line. Comments (from '#' on) and blank lines are nothing; a wrong line leaves a reason
// for people in `reason`.
FaultLine parse_fault(std::string_view line, Fault &out, std::span<char> reason);

// The node's name as such, or a path below an absent directory.
bool fault_names_node(const Fault &fault, std::string_view node);
// `request` and `number` are those of an ioctl; null and 0 for other calls.
bool fault_names_call(const Fault &fault, std::string_view call, const char *request,
                      std::uint32_t number);
// Whether the fault shows in the `nth` such call (from 1) at board time `now`.
bool fault_is_due(const Fault &fault, std::uint64_t nth, std::int64_t now);

}  // namespace vboard

#endif
