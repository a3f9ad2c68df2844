// The program's calls on the heartbeat LED in the board's own time: open, read and write take
// effect at the call, so that the order of two programs that blink the LED is the order of their
// calls. As for a port, the program gets a descriptor with a number that the filter stops, see
// port_calls.h. On any other number, such as a copy that dup2(2) makes, the node's terminal
// answers as in real time.
#pragma once

#include "simulator/devices/led.h"
#include "simulator/requests/caller.h"
#include "simulator/requests/request_channel.h"
#include "simulator/requests/stopped_calls.h"

namespace simulator {

struct led_calls final : call_taker {
    led_calls(led &answered, port_descriptors descriptor_numbers)
        : lamp(answered), numbers(descriptor_numbers) {}

    bool take(const request &asked) override;

private:
    bool take_open(const request &asked, const opening &wanted) const;
    bool take_read(const request &asked) const;
    bool take_write(const request &asked) const;
    bool is_lamps(const request &asked) const;

    led &lamp;
    const port_descriptors numbers;
};

} // namespace simulator
