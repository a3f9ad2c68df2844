// One field I/O module with its loopback harness: outputs that a request sets, inputs that follow
// them over the harness. How frames reach it, and the faults of that way, are its transport's:
// fio_line.h, spi_device.h.
#pragma once

#include "simulator/devices/fio/module_wiring.h"
#include "simulator/faults/fault.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace simulator {

constexpr size_t MODULE_BYTES = 32; // of outputs, and of inputs; more than any module has

// Commands of a request; a reply carries the same plus REPLY_MARK.
constexpr uint8_t COMMAND_STATUS = '1';
constexpr uint8_t COMMAND_READ = '4';
constexpr uint8_t COMMAND_SET = '7';
constexpr uint8_t COMMAND_IDENTIFY = '<';
constexpr uint8_t REPLY_MARK = 0x80;

struct fio_module {
    // `name` is what faults call it. `type` is what it identifies itself as.
    fio_module(std::string module_name, int module_type, module_wiring harness);

    std::string name;
    uint8_t type;
    bool top_bits_inverted = false; // as module 219 on SPI has them, see read_inputs

    // The data of the reply to a command, without marker and check byte; a read returns
    // `input_bytes` inputs. Nothing for a command it does not know, or does not answer.
    std::vector<uint8_t> execute(uint8_t command, std::span<const uint8_t> payload,
                                 size_t input_bytes);

    // What a fault of this module would have to say to strike; empty if it can as it is. A read
    // returns `input_bytes` inputs.
    std::string possible_instead(const fault &wanted, size_t input_bytes) const;
    // True when the fault is this module's. The transport asks for those of the way.
    bool take_fault(const fault &wanted, size_t input_bytes);
    // Whether such a fault breaks the reply given last.
    bool strikes(fault_id id) const;
    // Breaks one bit of the data of the reply given last, if it is to be broken.
    void corrupt(std::span<uint8_t> data) const;
    // How late the reply given last is.
    int64_t delay_us() const;

private:
    bool is_silent_to(uint8_t command) const;
    bool is_dead(const wire &path) const;
    uint8_t identity() const;
    std::set<int> input_bytes_wired(size_t read_bytes) const;
    std::set<int> output_bytes_wired() const;
    std::array<uint8_t, MODULE_BYTES> read_inputs() const;

    module_wiring wiring;
    std::vector<fault> faults;
    std::array<uint8_t, MODULE_BYTES> outputs{};
    uint32_t replies = 0;
};

} // namespace simulator
