// The field I/O modules on a synchronous port. Each frame that the program sends reaches all of
// them; the addressed module answers at once. A module does not answer a frame of the wrong length.
#pragma once

#include "simulator/devices/device.h"
#include "simulator/devices/fio/fio_module.h"
#include "simulator/faults/direction_faults.h"
#include "simulator/line/device_end.h"

#include <deque>

namespace simulator {

struct fio_line final : device {
    fio_line();

    line::device_end end{true};
    direction_faults faults; // of what reaches the port; only the port adds to them

    // Adds a module; address and type are 1 to 255. False if another module has the address.
    bool add_module(int address, int type);

    bool open_nodes() override {
        return true; // the port has the node
    }
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;
    void list_targets(std::string_view thing, std::set<std::string> &targets) const override;
    std::string possible_instead(const fault &wanted) const override;
    bool take_fault(const fault &wanted) override;

private:
    struct addressed_module {
        uint8_t address;
        size_t set_bytes;   // output bytes in a set-outputs request
        size_t input_bytes; // in a read-inputs reply
        fio_module module;
    };
    struct late_reply {
        int64_t due_us;
        std::vector<uint8_t> frame;
    };

    void take_request_frame(int64_t now, std::span<const uint8_t> frame);
    void answer_request(int64_t now, addressed_module &asked, std::span<const uint8_t> frame);
    void send(int64_t now, const std::vector<uint8_t> &reply, int64_t delay_us);

    std::vector<addressed_module> modules;
    std::deque<late_reply> late;
};

} // namespace simulator
