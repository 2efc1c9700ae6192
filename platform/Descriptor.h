#pragma once

#include <unistd.h>

#include <cerrno>
#include <string_view>

// An open file, closed with it; or none, below 0.
class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return fd_; }
    bool isOpen() const { return fd_ >= 0; }
    // Closes; false if the file system reported a late error.
    bool reset() {
        if (fd_ < 0) return true;
        const bool ok = close(fd_) == 0 || errno == EINTR;  // interrupted, it is closed all the same
        fd_ = -1;
        return ok;
    }

  private:
    int fd_;
};

// False, with the reason in errno, if not all could be written.
inline bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(fd, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}
