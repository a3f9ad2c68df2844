#include "fio/spi/spi_exchange.h"

#include <algorithm>
#include <array>

#include "fio/spi/spi_transfer.h"

namespace {

constexpr size_t REPLY_TIME_BYTES = 40; // extra bytes: the module's time to act
constexpr uint8_t CHECK_START = 0xFF;

struct reply_length {
    uint8_t command;
    uint8_t bytes;
};

constexpr reply_length REPLY_LENGTHS[] = {
    {'1', 9}, {'2', 3}, {'4', 20}, {'5', 20}, {'6', 30}, {'7', 3},
    {':', 3}, {'<', 3}, {'p', 4},  {'q', 10}, {'r', 26},
};

constexpr size_t longest_reply() {
    size_t longest = 0;
    for (const reply_length &row : REPLY_LENGTHS)
        longest = std::max<size_t>(longest, row.bytes);
    return longest;
}
static_assert(FRAME_BYTES + longest_reply() + REPLY_TIME_BYTES <= SPI_AREA_BYTES);
static_assert(COMMAND_AT + longest_reply() - 1 <= FRAME_BYTES);

// Returns 0 for a block that ends with its own check byte.
uint8_t check_of(std::span<const uint8_t> block) {
    uint8_t check = CHECK_START;
    for (const uint8_t byte : block)
        check ^= byte;
    return check;
}

} // namespace

int spi_fio_exchange(std::span<const uint8_t> request, fio_frame &reply, int device) {
    static spi_settings settings;
    std::array<uint8_t, SPI_AREA_BYTES> transmit{};
    std::array<uint8_t, SPI_AREA_BYTES> received{};
    const size_t length = spi_reply_length(request[COMMAND_AT]);
    if (length == 0)
        return 1;
    std::ranges::copy(request.subspan(COMMAND_AT), transmit.begin());
    fio_check_append(transmit, request.size() - COMMAND_AT);

    const size_t clocked = request.size() + length + REPLY_TIME_BYTES;
    spi_transfer(device, settings, std::span(transmit).first(clocked), received);
    const auto found = find_spi_reply(received, reply_marker(request[COMMAND_AT]), length);
    if (!found)
        return 1;
    std::ranges::copy(request.first(COMMAND_AT), reply.begin());
    std::ranges::copy(found->first(length - 1), reply.begin() + COMMAND_AT);
    return 0;
}

void fio_check_append(std::span<uint8_t> block, size_t length) {
    block[length] = check_of(block.first(length));
}

bool fio_check_verify(std::span<const uint8_t> block) {
    return check_of(block) == 0;
}

size_t spi_reply_length(uint8_t command) {
    for (const reply_length &row : REPLY_LENGTHS)
        if (row.command == command)
            return row.bytes;
    return 0;
}

std::optional<std::span<const uint8_t>>
find_spi_reply(std::span<const uint8_t, SPI_AREA_BYTES> received, uint8_t marker, size_t length) {
    const auto at = static_cast<size_t>(std::ranges::find(received, marker) - received.begin());
    if (at + length >= SPI_AREA_BYTES)
        return std::nullopt;
    const std::span<const uint8_t> reply = received.subspan(at, length);
    if (!fio_check_verify(reply))
        return std::nullopt;
    return reply;
}
