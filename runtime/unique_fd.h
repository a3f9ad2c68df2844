#pragma once

#include <unistd.h>
#include <utility>

// Owns one file descriptor and closes it in its destructor. Routines borrow the int.
class unique_fd {
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(unique_fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    ~unique_fd() {
        reset();
    }

    int get() const {
        return fd_;
    }
    explicit operator bool() const {
        return fd_ >= 0;
    }
    int release() {
        return std::exchange(fd_, -1);
    }
    void reset(int fd = -1) {
        const int old = std::exchange(fd_, fd);
        if (old >= 0)
            (void)close(old);
    }

private:
    int fd_ = -1;
};
