#include "fio/spi/spi_transfer.h"

#include <linux/spi/spidev.h>
#include <sys/ioctl.h>

namespace {

constexpr uint32_t SPEED_HZ = 250000;
constexpr uint8_t WORD_BITS = 8;

void send_settings(int device) {
    uint8_t mode = SPI_MODE_2;
    uint8_t bits = WORD_BITS;
    uint32_t speed_hz = SPEED_HZ;
    (void)ioctl(device, SPI_IOC_WR_MODE, &mode); // a refusal shows in the transfer
    (void)ioctl(device, SPI_IOC_WR_BITS_PER_WORD, &bits);
    (void)ioctl(device, SPI_IOC_WR_MAX_SPEED_HZ, &speed_hz);
}

} // namespace

void spi_transfer(int device, spi_settings &settings, std::span<const uint8_t> transmit,
                  std::span<uint8_t> receive) {
    if (!settings.sent) {
        send_settings(device);
        settings.sent = true;
    }
    spi_ioc_transfer transfer = {};
    transfer.tx_buf = reinterpret_cast<uintptr_t>(transmit.data());
    transfer.rx_buf = reinterpret_cast<uintptr_t>(receive.data());
    transfer.len = static_cast<uint32_t>(transmit.size());
    transfer.speed_hz = SPEED_HZ;
    transfer.bits_per_word = WORD_BITS;
    (void)ioctl(device, SPI_IOC_MESSAGE(1), &transfer);
}
