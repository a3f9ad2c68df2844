// Sends a message to an SPI node and prints what comes back:
//
//     spi_probe NODE MODE BITS SPEED TRANSFER...
//
// Requests set MODE, BITS and SPEED; "-" leaves one unchanged. A TRANSFER is its bytes in
// hexadecimal, followed by "+" if the chip select changes after it. The first line of output has
// the bytes, with blanks between transfers; the second has the time of the call in microseconds.

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <string>
#include <sys/ioctl.h>
#include <vector>

namespace {

template <typename Setting>
void set(int node, unsigned long request, const char *text) {
    auto value = static_cast<Setting>(strtoul(text, nullptr, 0));
    if (strcmp(text, "-") != 0 && ioctl(node, request, &value) != 0)
        perror("setting");
}

std::vector<uint8_t> bytes_of(const std::string &text) {
    std::vector<uint8_t> bytes;
    for (size_t at = 0; at + 1 < text.size(); at += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(text.substr(at, 2), nullptr, 16)));
    return bytes;
}

long long clock_us() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000LL + now.tv_nsec / 1000;
}

} // namespace

int main(int argc, char **argv) {
    const int node = argc > 5 ? open(argv[1], O_RDWR) : -1;
    if (node < 0)
        return 1;
    set<uint8_t>(node, SPI_IOC_WR_MODE, argv[2]);
    set<uint8_t>(node, SPI_IOC_WR_BITS_PER_WORD, argv[3]);
    set<uint32_t>(node, SPI_IOC_WR_MAX_SPEED_HZ, argv[4]);
    std::vector<std::vector<uint8_t>> bytes;
    std::vector<spi_ioc_transfer> transfers;
    for (int i = 5; i < argc; i++) {
        bytes.push_back(bytes_of(argv[i]));
        spi_ioc_transfer transfer{};
        transfer.tx_buf = transfer.rx_buf = reinterpret_cast<uintptr_t>(bytes.back().data());
        transfer.len = static_cast<uint32_t>(bytes.back().size());
        transfer.cs_change = std::string(argv[i]).ends_with("+");
        transfers.push_back(transfer);
    }
    const unsigned long request =
        SPI_IOC_MESSAGE(1) + ((transfers.size() - 1) * sizeof(spi_ioc_transfer) << _IOC_SIZESHIFT);
    const long long begin = clock_us();
    if (ioctl(node, request, transfers.data()) < 0) {
        printf("%s\n", strerror(errno));
        return 1;
    }
    const long long end = clock_us();
    for (const std::vector<uint8_t> &each : bytes) {
        for (const uint8_t byte : each)
            printf("%02x", byte);
        printf(" ");
    }
    printf("\n%lld\n", end - begin);
    return 0;
}
