#include "hotkey/VkHotKeyUtilities.h"

#include <cstdio>
#include <mutex>
#include <string>

#include "hotkey/BackEnd.h"
#include "hotkey/Log.h"
#include "hotkey/VkHotKey.h"

std::uint32_t VkCarbonModifierFlagsFromCocoaModifiers(std::uint64_t modifierFlags) {
    std::uint32_t mask = 0;
    if (modifierFlags & kVkControlFlag) mask |= hotkey::kServiceControl;
    if (modifierFlags & kVkCommandFlag) mask |= hotkey::kServiceCommand;
    if (modifierFlags & kVkShiftFlag) mask |= hotkey::kServiceShift;
    if (modifierFlags & kVkOptionFlag) mask |= hotkey::kServiceOption;
    if (modifierFlags & kVkCapsLockFlag) mask |= hotkey::kServiceCapsLock;
    return mask;
}

namespace hotkey {
namespace {

std::mutex &sinkMutex() {
    static std::mutex mutex;
    return mutex;
}

LogSink &currentSink() {
    static LogSink sink;
    return sink;
}

}  // namespace

void setLogSink(LogSink sink) {
    const std::lock_guard lock(sinkMutex());
    currentSink() = std::move(sink);
}

void logLine(std::string_view line) {
    LogSink sink;
    {
        const std::lock_guard lock(sinkMutex());
        sink = currentSink();
    }
    if (sink)
        sink(line);
    else
        std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
}

}  // namespace hotkey
