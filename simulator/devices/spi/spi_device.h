// A node of the SPI user-space interface (/dev/manufacturer, /dev/reserved) and the device on it: a
// field I/O module, or a loopback that returns what it gets. The node is an ordinary file; its
// requests never reach the kernel. For the requests see linux/spi/spidev.h. Their structures are
// the same for 32-bit and for 64-bit callers.
//
// Only requests reach the device: reads and writes of the node act on the file, and the board says
// so. The last close of the node sets the speed back to that of the start.
//
// The devices work in mode 2, with 8 bits a word, at 250000 Hz at most. With other settings both
// ends take each bit one clock late. A controller starts in mode 0, at a clock that is too fast for
// the devices. The call returns after the time that the message takes at its clock.
#pragma once

#include "simulator/devices/device.h"
#include "simulator/devices/fio/fio_module.h"
#include "simulator/devices/spi/node_use.h"
#include "simulator/devices/spi/spi_selection.h"

#include <deque>
#include <optional>
#include <string>

namespace simulator {

constexpr int SPI_LOOPBACK = 0; // in place of a module's type: returns what is sent

struct spi_device final : device {
    // `module_type` may be SPI_LOOPBACK.
    spi_device(std::string node_name, int module_type);

    bool open_nodes() override;
    void add_polls(std::vector<pollfd> &polls) const override;
    void ready(const pollfd &event) override;
    int64_t wake_time_us() const override;
    void wake(int64_t time_us) override;
    std::span<const uint32_t> stopped_ioctls() const override;
    bool owns(const struct stat &node) const override;
    void take_request(const request &asked) override;
    void list_targets(std::string_view thing, std::set<std::string> &targets) const override;
    std::string possible_instead(const fault &wanted) const override;
    bool take_fault(const fault &wanted) override;

private:
    struct settings {
        uint32_t mode = 0;
        uint32_t word_bits = 8;
        uint32_t speed_hz = 10'000'000;
    };
    struct transfer {
        uint64_t received_at; // an address in the caller's memory; 0: none
        size_t begin;         // of its bytes in those of the message
        size_t length;
        settings how;
        int64_t time_us;
        bool releases; // the chip select, after it
    };
    struct message {
        request asked;
        std::vector<transfer> transfers;
        spi_bytes bytes; // sent, then received
        int64_t due_us;
    };

    void look_at_node();
    void take_setting(const request &asked);
    void take_message(const request &asked);
    bool read_message(message &wanted, int &error) const;
    bool read_transfer(message &wanted, uint64_t address, int &error) const;
    void carry_out(message &wanted);
    void answer_message(const message &done);
    spi_bytes exchange(std::span<const uint8_t> sent, const settings &how);

    std::optional<fio_module> module; // none: a loopback
    node_use use;
    dev_t file_system = 0;
    ino_t file = 0;
    settings present;
    spi_selection selection;
    std::deque<message> under_way; // one after the other
};

} // namespace simulator
