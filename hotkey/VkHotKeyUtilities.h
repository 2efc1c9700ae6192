#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

/// Converts modifier flags of the toolkit form (kVkShiftFlag …) to the mask of the hot-key service: Command
/// 0x0100, Shift 0x0200, Caps Lock 0x0400, Option 0x0800, Control 0x1000. Every other flag is dropped.
std::uint32_t VkCarbonModifierFlagsFromCocoaModifiers(std::uint64_t modifierFlags);

namespace hotkey {

/// Receives one log line at a time, without a line break, on the thread that logs.
using LogSink = std::function<void(std::string_view line)>;

/// Replaces the place where the library's log lines go; an empty sink means standard error again. Any thread.
void setLogSink(LogSink sink);

}  // namespace hotkey
