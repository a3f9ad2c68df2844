// The far end of a serial line, as a port sees it: another port, or a device that speaks over the
// line.
#pragma once

#include <cstdint>
#include <span>

namespace simulator {

struct line_partner {
    virtual ~line_partner() = default;
    virtual void take_chunk(std::span<const uint8_t> chunk) = 0;
    // Whether all chunks taken so far have arrived where they were to go.
    virtual bool has_arrived() {
        return true;
    }
    virtual bool drives_rts() const {
        return false;
    }
};

} // namespace simulator
