// The SPI memories as the program sees them: ordinary files in /dev with the memory's contents.
// /dev/datakeypresent has one byte, not 0 when the key is in its holder.
//
// A memory with a fault of its own is held by a lease, see fcntl(2): an opening of the file waits
// until the board gives the lease back. So the board learns of each opening, makes it slow, and
// decides what is in the file this time. It takes the lease again when the file has been closed; an
// opening that follows a closing at once can come before that, and is not struck.
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/devices/device.h"
#include "simulator/devices/presence_faults.h"

#include <cstddef>
#include <string>
#include <vector>

namespace simulator {

struct spi_memory final : device {
    spi_memory(std::string node_name, std::vector<uint8_t> node_contents)
        : device(std::move(node_name)), contents(std::move(node_contents)) {}

    // In place of the contents while the key is pulled out; only a part of a key can be.
    std::vector<uint8_t> contents_without_key;
    bool is_part_of_key = false;

    bool open_nodes() override;
    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;
    void list_targets(std::string_view thing, std::set<std::string> &targets) const override;
    std::string possible_instead(const fault &wanted) const override;
    bool take_fault(const fault &wanted) override;

private:
    bool watch_openings();
    void begin_opening();
    void finish_opening();
    bool hold();
    void put(const std::vector<uint8_t> &wanted);
    const std::vector<uint8_t> &present_contents() const;
    std::vector<uint8_t> contents_this_time() const;

    std::vector<uint8_t> contents;
    unique_fd node;
    presence_faults absence;   // of the key
    std::vector<fault> faults; // of an opening
    unique_fd lease_breaks;    // a signal descriptor; open only if there are such faults
    unique_fd closings;        // an inotify descriptor
    int opening_signal = 0;
    uint32_t openings = 0;
    int64_t opening_due_us = NEVER; // an opening waits until then
};

} // namespace simulator
