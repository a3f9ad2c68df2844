// The SPI memories as the program sees them: ordinary files in /dev with the memory's contents.
// /dev/datakeypresent has one byte, which is not 0 if the key is in its holder.
//
// The board holds a lease on the file of a memory that has faults, see fcntl(2): an open of the
// file waits until the board releases the lease. So the board sees each opening, can delay it, and
// decides what the file contains this time. It takes the lease again after the file was closed. An
// open right after a close may come before that; no fault strikes it. In the board's own time the
// scheduler lets the board take the lease first.
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

    // The contents while the key is pulled out. Only parts of a key can be pulled out.
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

    // The board holds the file's lease between openings.
    bool sees_openings() const {
        return lease_breaks.is_open();
    }

private:
    bool watch_openings();
    void begin_opening();
    void finish_opening();
    bool hold();
    void hold_soon();
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
    int64_t hold_due_us = NEVER;    // the next try to hold the file
    int hold_tries_left = 0;
};

} // namespace simulator
