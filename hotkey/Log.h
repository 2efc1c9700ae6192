#pragma once

#include <string_view>

namespace hotkey {

/// Hands one line to the sink set with setLogSink, or writes it to standard error.
void logLine(std::string_view line);

}  // namespace hotkey
