#include "simulator/devices/spi/spi_device.h"

#include "simulator/base/message.h"
#include "simulator/world/root.h"

#include <algorithm>
#include <array>
#include <linux/spi/spidev.h>
#include <sys/stat.h>

namespace simulator {

namespace {

constexpr uint32_t TRANSFERS_MAX = 16; // of a message

constexpr uint32_t MESSAGE_NUMBER = _IOC_NR(SPI_IOC_MESSAGE(1)); // whatever its length

constexpr uint32_t message_request(uint32_t transfers) {
    return _IOC(_IOC_WRITE, SPI_IOC_MAGIC, MESSAGE_NUMBER,
                transfers * uint32_t{sizeof(spi_ioc_transfer)});
}

constexpr uint32_t SETTINGS_REQUESTS[] = {
    SPI_IOC_RD_MODE,          SPI_IOC_WR_MODE,          SPI_IOC_RD_MODE32,
    SPI_IOC_WR_MODE32,        SPI_IOC_RD_LSB_FIRST,     SPI_IOC_WR_LSB_FIRST,
    SPI_IOC_RD_BITS_PER_WORD, SPI_IOC_WR_BITS_PER_WORD, SPI_IOC_RD_MAX_SPEED_HZ,
    SPI_IOC_WR_MAX_SPEED_HZ,
};

constexpr auto STOPPED_SPI_IOCTLS = [] {
    std::array<uint32_t, std::size(SETTINGS_REQUESTS) + TRANSFERS_MAX> numbers{};
    std::ranges::copy(SETTINGS_REQUESTS, numbers.begin());
    for (uint32_t i = 0; i < TRANSFERS_MAX; i++)
        numbers[std::size(SETTINGS_REQUESTS) + i] = message_request(i + 1);
    return numbers;
}();
static_assert(message_request(3) == SPI_IOC_MESSAGE(3));

constexpr int INVERTING_TYPE = 219; // see fio_module::read_inputs
constexpr uint8_t SPI_WORD_BITS = 8;
constexpr uint32_t SPEED_HZ_MAX = 250'000;
constexpr size_t MESSAGE_BYTES_MAX = 4096; // as spidev's own buffer

// What the controller can do. Requests for anything else fail with EINVAL.
constexpr uint32_t POSSIBLE_MODES = SPI_CPHA | SPI_CPOL | SPI_CS_HIGH | SPI_LSB_FIRST;
constexpr uint32_t POSSIBLE_WORD_BITS = 32;

// Of a word in memory.
constexpr uint32_t bytes_of_word(uint32_t bits) {
    return bits <= 8 ? 1 : bits <= 16 ? 2 : 4;
}

// The size of the value is in the number of the request.
void give_setting(const request &asked, uint32_t value) {
    const auto byte = static_cast<uint8_t>(value);
    const bool is_byte = _IOC_SIZE(asked.ioctl_number()) == sizeof byte;
    const void *from = is_byte ? static_cast<const void *>(&byte) : &value;
    if (write_memory(asked, asked.ioctl_argument(), from, is_byte ? sizeof byte : sizeof value))
        answer(asked, 0);
    else
        refuse(asked, EFAULT);
}

std::optional<uint32_t> given_setting(const request &asked) {
    uint8_t byte = 0;
    uint32_t word = 0;
    const bool is_byte = _IOC_SIZE(asked.ioctl_number()) == sizeof byte;
    void *to = is_byte ? static_cast<void *>(&byte) : &word;
    if (!read_memory(asked, asked.ioctl_argument(), to, is_byte ? sizeof byte : sizeof word))
        return std::nullopt;
    return is_byte ? byte : word;
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
    struct stat status {};
    if (!use.create(path))
        return false;
    if (fstat(use.node(), &status) != 0)
        return cannot("create", path);
    file_system = status.st_dev;
    file = status.st_ino;
    return true;
}

void spi_device::add_polls(std::vector<pollfd> &polls) const {
    polls.push_back({use.events(), POLLIN, 0});
}

void spi_device::ready(const pollfd &) {
    look_at_node();
}

// The last close sets the speed back, and nothing else (spidev_release in drivers/spi/spidev.c).
void spi_device::look_at_node() {
    use.take_events();
    if (use.has_ended())
        present.speed_hz = settings{}.speed_hz;
}

std::span<const uint32_t> spi_device::stopped_ioctls() const {
    return STOPPED_SPI_IOCTLS;
}

bool spi_device::owns(const struct stat &node) const {
    return node.st_dev == file_system && node.st_ino == file;
}

void spi_device::take_request(const request &asked) {
    look_at_node();
    switch (asked.ioctl_number()) {
    case SPI_IOC_RD_MODE:
    case SPI_IOC_RD_MODE32:
        return give_setting(asked, present.mode);
    case SPI_IOC_RD_LSB_FIRST:
        return give_setting(asked, (present.mode & SPI_LSB_FIRST) != 0 ? 1 : 0);
    case SPI_IOC_RD_BITS_PER_WORD:
        return give_setting(asked, present.word_bits);
    case SPI_IOC_RD_MAX_SPEED_HZ:
        return give_setting(asked, present.speed_hz);
    default:
        return _IOC_NR(asked.ioctl_number()) != MESSAGE_NUMBER ? take_setting(asked)
                                                               : take_message(asked);
    }
}

// As spidev_ioctl and spi_setup of the kernel do. Words of 0 bits are words of 8.
void spi_device::take_setting(const request &asked) {
    const std::optional<uint32_t> value = given_setting(asked);
    if (!value)
        return refuse(asked, EFAULT);
    settings wanted = present;
    switch (asked.ioctl_number()) {
    case SPI_IOC_WR_BITS_PER_WORD:
        wanted.word_bits = *value != 0 ? *value : SPI_WORD_BITS;
        break;
    case SPI_IOC_WR_MAX_SPEED_HZ:
        wanted.speed_hz = *value;
        break;
    case SPI_IOC_WR_LSB_FIRST:
        wanted.mode = (wanted.mode & ~uint32_t{SPI_LSB_FIRST}) | (*value != 0 ? SPI_LSB_FIRST : 0U);
        break;
    default:
        wanted.mode = *value;
    }
    const bool is_possible = (wanted.mode & ~POSSIBLE_MODES) == 0 &&
                             wanted.word_bits <= POSSIBLE_WORD_BITS && wanted.speed_hz > 0;
    if (!is_possible)
        return refuse(asked, EINVAL);
    present = wanted;
    answer(asked, 0);
}

void spi_device::take_message(const request &asked) {
    message wanted{.asked = asked, .transfers = {}, .bytes = {}, .due_us = now_us()};
    if (!under_way.empty())
        wanted.due_us = under_way.back().due_us;
    int error = EFAULT;
    if (!read_message(wanted, error)) {
        refuse(asked, error);
        return;
    }
    carry_out(wanted);
    under_way.push_back(std::move(wanted));
}

bool spi_device::read_message(message &wanted, int &error) const {
    const uint64_t address = wanted.asked.ioctl_argument();
    const uint32_t bytes = _IOC_SIZE(wanted.asked.ioctl_number());
    for (uint32_t at = 0; at < bytes; at += sizeof(spi_ioc_transfer))
        if (!read_transfer(wanted, address + at, error))
            return false;
    wanted.transfers.back().releases = !wanted.transfers.back().releases;
    return true;
}

// `cs_change` releases the chip select between two transfers. After the last transfer it does not.
bool spi_device::read_transfer(message &wanted, uint64_t address, int &error) const {
    spi_ioc_transfer given{};
    if (!read_memory(wanted.asked, address, &given, sizeof given))
        return false;
    const size_t begin = wanted.bytes.size();
    if (given.len > MESSAGE_BYTES_MAX - begin) {
        error = EMSGSIZE;
        return false;
    }
    wanted.bytes.resize(begin + given.len);
    if (given.tx_buf != 0 &&
        !read_memory(wanted.asked, given.tx_buf, wanted.bytes.data() + begin, given.len))
        return false;
    settings how = present;
    how.word_bits = given.bits_per_word != 0 ? given.bits_per_word : how.word_bits;
    how.speed_hz = given.speed_hz != 0 ? given.speed_hz : how.speed_hz;
    if (how.word_bits > POSSIBLE_WORD_BITS || given.len % bytes_of_word(how.word_bits) != 0) {
        error = EINVAL; // __spi_validate in drivers/spi/spi.c
        return false;
    }
    const int64_t time_us =
        SPI_BYTE_BITS * given.len * US_PER_SECOND / how.speed_hz + given.delay_usecs;
    wanted.transfers.push_back(
        {given.rx_buf, begin, given.len, how, time_us, given.cs_change != 0});
    return true;
}

// Transfers without a release between them belong to one selection of the device.
void spi_device::carry_out(message &wanted) {
    size_t begin = 0;
    for (const transfer &each : wanted.transfers) {
        wanted.due_us += each.time_us;
        if (!each.releases && &each != &wanted.transfers.back())
            continue;
        const size_t end = each.begin + each.length;
        const spi_bytes received =
            exchange(std::span(wanted.bytes).subspan(begin, end - begin), each.how);
        std::ranges::copy(received, wanted.bytes.begin() + static_cast<ptrdiff_t>(begin));
        begin = end;
        if (each.releases)
            selection.release();
    }
}

spi_bytes spi_device::exchange(std::span<const uint8_t> sent, const settings &how) {
    fio_module *plugged = module ? &*module : nullptr;
    const bool agrees =
        how.mode == SPI_MODE_2 && how.word_bits == SPI_WORD_BITS && how.speed_hz <= SPEED_HZ_MAX;
    if (agrees)
        return selection.shift(sent, plugged, how.speed_hz);
    return one_bit_late(selection.shift(one_bit_late(sent), plugged, how.speed_hz));
}

int64_t spi_device::wake_time_us() const {
    const int64_t message_us = under_way.empty() ? NEVER : under_way.front().due_us;
    return std::min(message_us, use.next_look_us());
}

void spi_device::wake(int64_t time_us) {
    if (use.next_look_us() <= time_us)
        look_at_node();
    while (!under_way.empty() && under_way.front().due_us <= time_us) {
        answer_message(under_way.front());
        under_way.pop_front();
    }
}

void spi_device::answer_message(const message &done) {
    for (const transfer &each : done.transfers) {
        if (each.received_at != 0 && each.length != 0 &&
            !write_memory(done.asked, each.received_at, done.bytes.data() + each.begin,
                          each.length)) {
            refuse(done.asked, EFAULT);
            return;
        }
    }
    answer(done.asked, static_cast<int64_t>(done.bytes.size()));
}

void spi_device::list_targets(std::string_view thing, std::set<std::string> &targets) const {
    if ((thing == "module" || thing == "SPI module") && module)
        targets.insert(name);
}

std::string spi_device::possible_instead(const fault &wanted) const {
    return module && is_fault_of(wanted, "module")
               ? module->possible_instead(wanted, SPI_INPUT_BYTES)
               : "";
}

bool spi_device::take_fault(const fault &wanted) {
    return module && (is_fault_of(wanted, "module") || is_fault_of(wanted, "SPI module")) &&
           module->take_fault(wanted, SPI_INPUT_BYTES);
}

} // namespace simulator
