// Sends the bytes of a file into a port, over and over, so that a receiver can be tested without a
// second port.
//
// A block has 16 bytes, like a producer's; the last block of the file has the rest. One block
// leaves every 10 ms, with silence after it. Bytes for which the port has no room are lost, as on a
// line without handshake. Faults name the feed by its port: "feed1" is the feed into port 1.
//
// The feed sends with 8 data bits at 115200 bit/s, the speed that hk_stress sets, or at the speed
// in its option. At slow speeds a block waits for the previous one. Into a synchronous port each
// block goes as a frame.
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

    line::device_end end;
    direction_faults faults;

    void set_speed(uint32_t bps);

    // Reads the file. False after a message if it cannot be read, is empty or too long.
    bool load(const char *path);

    bool open_nodes() override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;
    void list_targets(std::string_view thing, std::set<std::string> &targets) const override;
    bool take_fault(const fault &wanted) override;

private:
    bool can_have(std::string_view thing) const; // a fault of this kind of thing

    std::vector<uint8_t> bytes;
    size_t sent = 0; // of `bytes`, in this round
    int64_t next_block_us = NEVER;
    int64_t period_us = 0;
};

} // namespace simulator
