#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "FTPManager/FTPManager.h"

/// Collects the library's diagnostic lines while it lives.
class LogCapture {
  public:
    LogCapture() {
        setFTPManagerLogSink([this](std::string_view line) {
            const std::scoped_lock lock(mutex_);
            lines_.emplace_back(line);
        });
    }
    ~LogCapture() { setFTPManagerLogSink({}); }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    /// The lines since the last call.
    std::vector<std::string> take() {
        const std::scoped_lock lock(mutex_);
        return std::exchange(lines_, {});
    }

  private:
    std::mutex mutex_;
    std::vector<std::string> lines_;
};
