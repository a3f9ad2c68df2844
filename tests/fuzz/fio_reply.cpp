#include <algorithm>

#include "fio/fio_exchange.h"
#include "fio/fio_module.h"
#include "tests/fuzz/targets.h"

void fuzz_fio_reply(std::span<const uint8_t> input) {
    if (input.size() < 2)
        return;
    const uint8_t marker = input[0];
    const size_t expected = input[1] % (FRAME_BYTES + 1);
    receive_area area;
    const auto sent = input.subspan(2, std::min(input.size() - 2, receive_area::READ_BYTES));
    const auto received = area.received().first(sent.size());
    std::ranges::copy(sent, received.begin());

    const std::optional<int32_t> offset = find_frame(received, marker);
    require(offset.has_value() == (std::ranges::count(sent, marker) > 0));
    if (!offset)
        return;
    const bool is_in_place = sent.size() > 2 && sent[2] == marker;
    const auto first = std::ranges::find(sent, marker) - sent.begin();
    require(*offset == (is_in_place ? 0 : first - 2));

    fio_frame reply{};
    copy_frame(area, *offset, std::span(reply).first(expected));
    for (size_t i = 0; i < expected; ++i) // from what surrounds the received bytes too
        require(reply[i] == area.bytes.at(static_cast<size_t>(*offset + 2) + i));

    TestRecord record{};
    const module_profile profile = profile_of(reply[DATA_AT]);
    const loop_step *step = profile.map;
    for (int32_t i = 0; step != nullptr && step->output_bit != 0; ++step, ++i)
        (void)compare_inputs(record, reply, *step, i, profile.inputs, 4);
    require(record.hist_next >= 0 && record.hist_next < RING_SLOTS);
}
