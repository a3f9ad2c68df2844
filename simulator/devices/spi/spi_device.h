// A node of the SPI user-space interface (/dev/manufacturer, /dev/reserved) and what it leads to:
// a field I/O module, or a plug that sends back what it gets. The node is an ordinary file; its
// requests never reach the kernel, see linux/spi/spidev.h for them.
//
// A device is only heard in the mode it speaks: mode 2, 8 bits a word, 250000 Hz at most. Otherwise
// all that comes back is zeros.
#pragma once

#include "simulator/devices/device.h"
#include "simulator/devices/fio/fio_module.h"

#include <optional>
#include <string>

namespace simulator {

constexpr int SPI_LOOPBACK = 0; // instead of the type of a module: what is sent comes back

struct spi_device final : device {
    // `module_type` may be SPI_LOOPBACK.
    spi_device(std::string node_name, int module_type);

    bool open_nodes() override;
    std::span<const uint32_t> stopped_ioctls() const override;
    bool owns(const struct stat &node) const override;
    void take_request(const request &asked) override;
    void list_targets(std::string_view thing, std::set<std::string> &targets) const override;
    bool take_fault(const fault &wanted) override;

private:
    using transfer_bytes = std::vector<uint8_t>;

    void transfer(const request &asked);
    transfer_bytes received_for(const transfer_bytes &sent);
    void put_reply(transfer_bytes &received, size_t request_bytes, transfer_bytes reply) const;

    std::optional<fio_module> module; // none: a loopback
    dev_t file_system = 0;
    ino_t file = 0;
    uint8_t mode = 0;
    uint8_t word_bits = 0;
    uint32_t speed_hz = 0;
};

} // namespace simulator
