#include <algorithm>
#include <array>

#include "fio/spi/spi_exchange.h"
#include "fio/spi/spi_inputs.h"
#include "tests/fuzz/targets.h"

constexpr size_t LONGEST_REPLY = 30;

void fuzz_spi_reply(std::span<const uint8_t> input) {
    if (input.size() < 2)
        return;
    const uint8_t marker = input[0];
    const size_t length = 1 + input[1] % LONGEST_REPLY;
    std::array<uint8_t, SPI_AREA_BYTES> received{};
    const auto sent = input.subspan(2, std::min(input.size() - 2, received.size()));
    std::ranges::copy(sent, received.begin());

    const auto at = static_cast<size_t>(std::ranges::find(received, marker) - received.begin());
    uint8_t check = 0xFF;
    for (size_t i = at; i < std::min(at + length, received.size()); ++i)
        check ^= received[i];
    const auto found = find_spi_reply(received, marker, length);
    require(found.has_value() == (at + length < received.size() && check == 0));
    if (!found)
        return;
    require(found->data() == received.data() + at && found->size() == length);

    fio_frame reply{};
    std::ranges::copy(found->first(length - 1), reply.begin() + COMMAND_AT);
    for (const uint8_t type : std::to_array<uint8_t>({219, 221})) {
        correct_inputs(reply, type);
        for (const loop_step &step : MAP_S)
            (void)inputs_follow(reply, step);
    }
}
