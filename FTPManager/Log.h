#pragma once

#include <string_view>

namespace fm {

/// Hands one diagnostic line to the sink in force. From any thread.
void log(std::string_view line) noexcept;

}  // namespace fm
