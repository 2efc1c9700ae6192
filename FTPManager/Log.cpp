#include "FTPManager/Log.h"

#include <cstdio>
#include <exception>
#include <mutex>
#include <utility>

#include "FTPManager/FTPManager.h"

namespace {

std::mutex sinkMutex;
FTPManagerLogSink sink;

}  // namespace

void setFTPManagerLogSink(FTPManagerLogSink newSink) {
    const std::scoped_lock lock(sinkMutex);
    sink = std::move(newSink);
}

namespace fm {

void log(std::string_view line) noexcept {
    try {
        const std::scoped_lock lock(sinkMutex);
        if (sink) {
            sink(line);
        } else {
            std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
        }
    } catch (...) {
        // A sink that fails has lost its line; the operation that logged goes on.
    }
}

}  // namespace fm
