// The packed version and build date in the text of /proc/version.

#ifndef PLATFORM_KERNEL_VERSION_H
#define PLATFORM_KERNEL_VERSION_H

#include <cstdint>
#include <string_view>

namespace rigcore {

// "Linux version 6.1.0-18-arm ...": major << 16 | minor << 8 | patch. A patch level above 255 is
// 255, as in the kernel's own LINUX_VERSION_CODE. 0 when the text holds no version.
std::uint32_t parse_kernel_version(std::string_view text);

// The build date behind the '#', in the kernel's form "Thu Feb  1 12:00:00 UTC 2024" (the time zone
// may be missing) or in a distribution's "(2024-02-01)": year - 2000 << 16 | month << 8 | day. 0
// when there is none, or one before 2000.
std::uint32_t parse_kernel_date(std::string_view text);

}  // namespace rigcore

#endif
