// A far end without a port of the board: sends the bytes of a file into a port, over and over, so
// that a receiver can be tried alone.
//
// A block is 16 bytes, as a producer's, the last one of the file what is left. One leaves every
// 10 ms, so that there is silence between them. What the port has no room for is lost, as on a line
// without handshake. The faults of a line strike it under the name of the feed: "feed1" is the one
// into port 1.
//
// The feed sends with 8 data bits at 115200 bit/s, the speed at which hk_stress sets up its ports,
// or at the speed that its option names. At slow speeds a block waits for the one before.
#pragma once

#include "simulator/devices/serial/serial_port.h"
#include "simulator/line/device_end.h"

#include <string>
#include <vector>

namespace simulator {

constexpr size_t FEED_BLOCK_BYTES = 16;
constexpr int64_t FEED_PERIOD_US = 10'000;
constexpr uint32_t FEED_BPS = 115200;
constexpr size_t FEED_FILE_BYTES_MAX = 1 << 20;

struct feed final : device {
    explicit feed(const serial_port &fed_port); // named "feed1" for port 1

    line::device_end end{false};
    direction_faults faults;

    void set_speed(uint32_t bps);

    // Reads the file. False after a message when it cannot be read, is empty or too long.
    bool load(const char *path);

    bool open_nodes() override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;
    void list_targets(std::string_view thing, std::set<std::string> &targets) const override;
    bool take_fault(const fault &wanted) override;

private:
    std::vector<uint8_t> bytes;
    size_t sent = 0; // of `bytes`, in this round
    int64_t next_block_us = NEVER;
    int64_t period_us = 0;
};

} // namespace simulator
