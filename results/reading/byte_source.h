// The bytes of a file, unpacked: plain, gzip or Zstandard, by what the file begins with.

#pragma once

#include <memory>
#include <span>
#include <stdexcept>
#include <string>

struct unreadable_input : std::runtime_error {
    using runtime_error::runtime_error;
};

class byte_source {
public:
    virtual ~byte_source() = default;
    // Fills the front of `room`. Returns the number of bytes, 0 at the end. Throws
    // unreadable_input.
    virtual size_t read(std::span<char> room) = 0;
};

// Opens a file, or standard input as "-". Throws unreadable_input.
std::unique_ptr<byte_source> open_source(const std::string &path);
