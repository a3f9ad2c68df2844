#include "simulator/devices/spi/spi_selection.h"

#include "simulator/time/clock.h"

#include <algorithm>

namespace simulator {

namespace {

constexpr size_t OUTPUT_BYTES = 32; // in a set-outputs request
constexpr size_t STATUS_REQUEST_BYTES = 1;
constexpr size_t REPLY_GAP_BYTES = 6; // between a request's end and its reply

uint8_t exclusive_or(std::span<const uint8_t> bytes) {
    uint8_t result = 0xFF;
    for (const uint8_t byte : bytes)
        result ^= byte;
    return result;
}

// Length of a request, with command and check byte. It depends on the command alone.
size_t request_length(uint8_t command) {
    const size_t payload = command == COMMAND_SET      ? OUTPUT_BYTES
                           : command == COMMAND_STATUS ? STATUS_REQUEST_BYTES
                                                       : 0;
    return 1 + payload + 1;
}

} // namespace

spi_bytes spi_selection::shift(std::span<const uint8_t> sent, fio_module *module,
                               uint32_t clock_hz) {
    if (module == nullptr)
        return {sent.begin(), sent.end()};
    const size_t begin = taken.size();
    taken.insert(taken.end(), sent.begin(), sent.end());
    const size_t length = taken.empty() ? 0 : request_length(taken[0]);
    if (begin < length && length <= taken.size())
        answer_request(*module, taken.size(), clock_hz);
    spi_bytes received(sent.size());
    for (size_t i = 0; i < received.size(); i++)
        if (begin + i >= reply_begin && begin + i - reply_begin < reply.size())
            received[i] = reply[begin + i - reply_begin];
    return received;
}

// A late reply begins so late that the transfer, up to byte `end`, ends in the middle of it.
void spi_selection::answer_request(fio_module &module, size_t end, uint32_t clock_hz) {
    const std::span<const uint8_t> asked = std::span(taken).first(request_length(taken[0]));
    if (exclusive_or(asked) != 0)
        return;
    const spi_bytes data =
        module.execute(asked[0], asked.subspan(1, asked.size() - 2), SPI_INPUT_BYTES);
    if (data.empty() || module.strikes(fault_id::lose_reply))
        return;
    reply = {static_cast<uint8_t>(asked[0] + REPLY_MARK)};
    reply.insert(reply.end(), data.begin(), data.end());
    reply.push_back(exclusive_or(reply));
    module.corrupt(std::span(reply).subspan(1, data.size()));
    if (module.strikes(fault_id::check))
        reply.back() ^= 0x01;
    reply_begin = asked.size() + REPLY_GAP_BYTES;
    reply_begin +=
        static_cast<size_t>(module.delay_us() * clock_hz / (SPI_BYTE_BITS * US_PER_SECOND));
    if (module.strikes(fault_id::late_reply))
        reply_begin = end - reply.size() / 2;
}

void spi_selection::release() {
    taken.clear();
    reply.clear();
}

spi_bytes one_bit_late(std::span<const uint8_t> bytes) {
    spi_bytes late;
    unsigned carried = 0; // the wire is low before the first bit
    for (const uint8_t byte : bytes) {
        late.push_back(static_cast<uint8_t>(carried << 7 | byte >> 1));
        carried = byte & 1;
    }
    return late;
}

} // namespace simulator
