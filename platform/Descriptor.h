#pragma once

#include <unistd.h>

#include <cerrno>

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
