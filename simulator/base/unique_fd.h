// Owns one descriptor and closes it when destroyed. Can be moved, not copied.
#pragma once

#include <unistd.h>
#include <utility>

namespace simulator {

class unique_fd {
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(unique_fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    unique_fd &operator=(unique_fd &&other) noexcept {
        reset(std::exchange(other.fd_, -1));
        return *this;
    }
    ~unique_fd() {
        reset();
    }

    int get() const {
        return fd_;
    }
    bool is_open() const {
        return fd_ >= 0;
    }
    void reset(int fd = -1) {
        if (fd_ >= 0)
            (void)close(fd_); // writes are unbuffered: a failing close loses nothing
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

} // namespace simulator
