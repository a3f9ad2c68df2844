#include "simulator/devices/spi/spi_device.h"

#include "simulator/base/message.h"
#include "simulator/base/unique_fd.h"
#include "simulator/world/root.h"

#include <algorithm>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/stat.h>

namespace simulator {

namespace {

constexpr uint32_t STOPPED_IOCTLS[] = {
    SPI_IOC_WR_MODE,
    SPI_IOC_WR_BITS_PER_WORD,
    SPI_IOC_WR_MAX_SPEED_HZ,
    SPI_IOC_MESSAGE(1),
};

constexpr int INVERTING_TYPE = 219; // see fio_module::read_inputs
constexpr uint8_t WORD_BITS = 8;
constexpr uint32_t SPEED_HZ_MAX = 250'000;
constexpr size_t TRANSFER_BYTES_MAX = 4096; // as spidev's own buffer
constexpr size_t INPUT_BYTES = 18;          // in a read-inputs reply
constexpr size_t OUTPUT_BYTES = 32;         // in a set-outputs request
constexpr size_t STATUS_REQUEST_BYTES = 1;
constexpr size_t REPLY_GAP_BYTES = 6; // between a request's end and its reply

uint8_t exclusive_or(std::span<const uint8_t> bytes) {
    uint8_t result = 0xFF;
    for (const uint8_t byte : bytes)
        result ^= byte;
    return result;
}

// Bytes of a request with command and check byte; the command alone decides.
size_t request_length(uint8_t command) {
    const size_t payload = command == COMMAND_SET      ? OUTPUT_BYTES
                           : command == COMMAND_STATUS ? STATUS_REQUEST_BYTES
                                                       : 0;
    return 1 + payload + 1;
}

template <typename Setting>
void take_setting(const request &asked, Setting &setting) {
    if (read_memory(asked, asked.ioctl_argument(), &setting, sizeof setting))
        answer(asked, 0);
    else
        refuse(asked, EFAULT);
}

} // namespace

spi_device::spi_device(std::string node_name, int module_type) : device(std::move(node_name)) {
    if (module_type != SPI_LOOPBACK) {
        module.emplace(name, module_type, spi_harness(module_type));
        module->top_bits_inverted = module_type == INVERTING_TYPE;
    }
}

bool spi_device::open_nodes() {
    const std::string path = "/dev/" + name;
    const unique_fd node(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    struct stat status {};
    if (!node.is_open() || fstat(node.get(), &status) != 0)
        return cannot("create", path);
    file_system = status.st_dev;
    file = status.st_ino;
    return true;
}

std::span<const uint32_t> spi_device::stopped_ioctls() const {
    return STOPPED_IOCTLS;
}

bool spi_device::owns(const struct stat &node) const {
    return node.st_dev == file_system && node.st_ino == file;
}

void spi_device::take_request(const request &asked) {
    switch (asked.ioctl_number()) {
    case SPI_IOC_WR_MODE:
        take_setting(asked, mode);
        break;
    case SPI_IOC_WR_BITS_PER_WORD:
        take_setting(asked, word_bits);
        break;
    case SPI_IOC_WR_MAX_SPEED_HZ:
        take_setting(asked, speed_hz);
        break;
    case SPI_IOC_MESSAGE(1):
        transfer(asked);
        break;
    default:
        refuse(asked, ENOTTY);
    }
}

void spi_device::transfer(const request &asked) {
    spi_ioc_transfer wanted{};
    if (!read_memory(asked, asked.ioctl_argument(), &wanted, sizeof wanted)) {
        refuse(asked, EFAULT);
        return;
    }
    if (wanted.len > TRANSFER_BYTES_MAX) {
        refuse(asked, EMSGSIZE);
        return;
    }
    transfer_bytes sent(wanted.len);
    if (!read_memory(asked, wanted.tx_buf, sent.data(), sent.size())) {
        refuse(asked, EFAULT);
        return;
    }
    const uint32_t clock_hz = wanted.speed_hz != 0 ? wanted.speed_hz : speed_hz;
    const bool heard = mode == SPI_MODE_2 && word_bits == WORD_BITS &&
                       wanted.bits_per_word == WORD_BITS && clock_hz <= SPEED_HZ_MAX &&
                       speed_hz <= SPEED_HZ_MAX;
    const transfer_bytes received = heard ? received_for(sent) : transfer_bytes(sent.size());
    if (write_memory(asked, wanted.rx_buf, received.data(), received.size()))
        answer(asked, static_cast<int64_t>(received.size()));
    else
        refuse(asked, EFAULT);
}

spi_device::transfer_bytes spi_device::received_for(const transfer_bytes &sent) {
    if (!module)
        return sent;
    transfer_bytes received(sent.size());
    const size_t length = sent.empty() ? 0 : request_length(sent[0]);
    const std::span<const uint8_t> asked = std::span(sent).first(std::min(length, sent.size()));
    if (length == 0 || asked.size() < length || exclusive_or(asked) != 0)
        return received;
    const transfer_bytes data =
        module->execute(asked[0], asked.subspan(1, length - 2), INPUT_BYTES);
    if (data.empty())
        return received;
    transfer_bytes reply = {static_cast<uint8_t>(asked[0] + REPLY_MARK)};
    reply.insert(reply.end(), data.begin(), data.end());
    reply.push_back(exclusive_or(reply));
    put_reply(received, length, std::move(reply));
    return received;
}

// A late reply begins so late that the transfer ends in its middle.
void spi_device::put_reply(transfer_bytes &received, size_t request_bytes,
                           transfer_bytes reply) const {
    if (module->strikes(fault_id::check))
        reply.back() ^= 0x01;
    size_t begin = request_bytes + REPLY_GAP_BYTES;
    if (module->strikes(fault_id::late_reply))
        begin = received.size() - reply.size() / 2;
    for (size_t i = 0; i < reply.size() && begin + i < received.size(); i++)
        received[begin + i] = reply[i];
}

void spi_device::list_targets(std::string_view thing, std::set<std::string> &targets) const {
    if (thing == "module" && module)
        targets.insert(name);
}

bool spi_device::take_fault(const fault &wanted) {
    constexpr fault_id OF_THE_LINE[] = {fault_id::stray_bytes, fault_id::long_reply,
                                        fault_id::short_reply};
    return module && std::ranges::find(OF_THE_LINE, wanted.kind->id) == std::end(OF_THE_LINE) &&
           module->take_fault(wanted);
}

} // namespace simulator
