#include <algorithm>
#include <array>
#include <cstdlib>

#include "fio/spi_fio_exchange.h"
#include "fio/spi_inputs.h"
#include "tests/fuzz/targets.h"

namespace {

constexpr size_t LONGEST_REPLY = 30;

void require(bool holds) {
    if (!holds)
        abort();
}

} // namespace

void fuzz_spi_reply(std::span<const uint8_t> input) {
    if (input.size() < 2)
        return;
    const uint8_t marker = input[0];
    const size_t length = 1 + input[1] % LONGEST_REPLY;
    std::array<uint8_t, SPI_AREA_BYTES> received{};
    const auto sent = input.subspan(2, std::min(input.size() - 2, received.size()));
    std::ranges::copy(sent, received.begin());

    const auto found = find_spi_reply(received, marker, length);
    if (!found)
        return;
    const auto at = static_cast<size_t>(std::ranges::find(received, marker) - received.begin());
    require(found->data() == received.data() + at && found->size() == length);
    require(at + length < received.size());
    uint8_t check = 0xFF;
    for (const uint8_t byte : *found)
        check ^= byte;
    require(check == 0);

    fio_frame reply{};
    std::ranges::copy(found->first(length - 1), reply.begin() + COMMAND_AT);
    for (const uint8_t type : std::to_array<uint8_t>({219, 221})) {
        correct_inputs(reply, type);
        for (const loop_step &step : MAP_S)
            (void)inputs_follow(reply, step);
    }
}
