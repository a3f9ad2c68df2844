// One field I/O module with its loopback harness. A request sets the outputs; the harness connects
// them to the inputs. The transport (fio_line.h, spi_device.h) carries the frames and applies the
// faults of the replies.
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
    // `module_name` is its name in faults. `module_type` is the type that it reports.
    fio_module(std::string module_name, int module_type, module_wiring harness);

    std::string name;
    uint8_t type;
    bool top_bits_inverted = false; // module 219 on SPI, see read_inputs

    // The data of the reply to a command, without marker and check byte; a read returns
    // `input_bytes` bytes of inputs. Empty for a command that it does not know or does not answer.
    std::vector<uint8_t> execute(uint8_t command, std::span<const uint8_t> payload,
                                 size_t input_bytes);

    // The numbers that are possible for a fault of this module that could never strike, else empty.
    // A read returns `input_bytes` bytes of inputs.
    std::string possible_instead(const fault &wanted, size_t input_bytes) const;
    // Takes the fault if it is this module's. The transport applies the faults of replies, see
    // `strikes`.
    bool take_fault(const fault &wanted, size_t input_bytes);
    // True if such a fault strikes the last reply.
    bool strikes(fault_id id) const;
    // Flips one bit in the data of the last reply, if a fault asks for that.
    void corrupt(std::span<uint8_t> data) const;
    // The delay of the last reply.
    int64_t delay_us() const;

private:
    bool is_silent_to(uint8_t command) const;
    bool is_dead(const wire &path) const;
    uint8_t identity() const;
    std::set<int> input_bytes_wired(size_t read_bytes) const;
    std::string other_outputs(const fault &wanted) const;
    std::array<uint8_t, MODULE_BYTES> read_inputs() const;

    module_wiring wiring;
    std::vector<fault> faults;
    std::array<uint8_t, MODULE_BYTES> outputs{};
    uint32_t replies = 0;
};

} // namespace simulator
