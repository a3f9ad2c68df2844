// The battery-backed store /r0, the board's own file system in memory, and its faults: full, too
// small, read-only.
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/devices/device_set.h"
#include "simulator/devices/presence_faults.h"

namespace simulator {

struct store final : device {
    bool open_nodes() override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;
    void list_targets(std::string_view thing, std::set<std::string> &targets) const override;
    bool take_fault(const fault &wanted) override;

private:
    void follow_size();
    void set_size(uint64_t bytes);
    void fill();
    bool protect(bool wanted);
    void follow_protection(int64_t time_us);

    uint64_t whole_bytes = 0; // without faults
    unique_fd filling;        // an unlinked file that takes all the room while the store is full
    presence_faults fullness;
    presence_faults smallness;
    presence_faults protection;
    bool is_protected = false;
    int64_t retry_us = NEVER; // a file that is open for writing keeps the store writable
};

void add_store(device_set &devices);

} // namespace simulator
