#include "simulator/devices/fio/fio_line.h"

#include <algorithm>

namespace simulator {

namespace {

constexpr uint8_t FUNCTION_CODE = 0x83;
constexpr uint8_t STRAY_BYTES[] = {0x11, 0x22, 0x33};
constexpr uint8_t SURPLUS_BYTES[] = {0x44, 0x55};
constexpr size_t STATUS_REQUEST_BYTES = 1;
constexpr size_t HEADER_BYTES = 3;  // address, function code, command
constexpr int64_t LATE_US = 60'000; // longer than any program waits

struct module_lengths {
    int type;
    size_t set_bytes;
    size_t input_bytes;
};

constexpr module_lengths SMALL_MODULES[] = {{1, 16, 12}, {2, 26, 19}};
constexpr module_lengths OTHER_MODULES = {0, 32, 21};

module_lengths lengths_of(int type) {
    for (const module_lengths &lengths : SMALL_MODULES)
        if (lengths.type == type)
            return lengths;
    return OTHER_MODULES;
}

} // namespace

fio_line::fio_line() {
    end.on_receive = [this](int64_t now, std::span<const uint8_t> frame) {
        take_request_frame(now, frame);
    };
}

bool fio_line::add_module(int address, int type) {
    for (const addressed_module &other : modules)
        if (other.address == address)
            return false;
    const module_lengths lengths = lengths_of(type);
    modules.push_back({static_cast<uint8_t>(address), lengths.set_bytes, lengths.input_bytes,
                       fio_module(std::to_string(address), type, line_harness(type))});
    return true;
}

int64_t fio_line::wake_time_us() const {
    return late.empty() ? NEVER : late.front().due_us;
}

void fio_line::wake(int64_t time_us) {
    while (!late.empty() && late.front().due_us <= time_us) {
        end.send(time_us * NS_PER_US, late.front().frame);
        late.pop_front();
    }
}

void fio_line::list_targets(std::string_view thing, std::set<std::string> &targets) const {
    if (thing != "module" && thing != "sync module")
        return;
    for (const addressed_module &each : modules)
        targets.insert(each.module.name);
}

std::string fio_line::possible_instead(const fault &wanted) const {
    if (!is_fault_of(wanted, "module"))
        return "";
    std::string possible;
    for (const addressed_module &each : modules)
        possible += each.module.possible_instead(wanted, each.input_bytes);
    return possible;
}

bool fio_line::take_fault(const fault &wanted) {
    if (!is_fault_of(wanted, "module") && !is_fault_of(wanted, "sync module"))
        return false;
    return std::ranges::any_of(modules, [&](addressed_module &each) {
        return each.module.take_fault(wanted, each.input_bytes);
    });
}

void fio_line::take_request_frame(int64_t now, std::span<const uint8_t> frame) {
    if (frame.size() < HEADER_BYTES || frame[1] != FUNCTION_CODE)
        return;
    for (addressed_module &each : modules) {
        const size_t payload = frame[2] == COMMAND_SET      ? each.set_bytes
                               : frame[2] == COMMAND_STATUS ? STATUS_REQUEST_BYTES
                                                            : 0;
        if (each.address == frame[0] && frame.size() == HEADER_BYTES + payload)
            answer_request(now, each, frame);
    }
}

void fio_line::answer_request(int64_t now, addressed_module &asked,
                              std::span<const uint8_t> frame) {
    fio_module &module = asked.module;
    std::vector<uint8_t> data =
        module.execute(frame[2], frame.subspan(HEADER_BYTES), asked.input_bytes);
    if (data.empty() || module.strikes(fault_id::lose_reply))
        return;
    module.corrupt(data);
    std::vector<uint8_t> reply = {frame[0], frame[1], static_cast<uint8_t>(frame[2] + REPLY_MARK)};
    reply.insert(reply.end(), data.begin(), data.end());
    if (module.strikes(fault_id::stray_bytes))
        reply.insert(reply.begin(), std::begin(STRAY_BYTES), std::end(STRAY_BYTES));
    if (module.strikes(fault_id::long_reply))
        reply.insert(reply.end(), std::begin(SURPLUS_BYTES), std::end(SURPLUS_BYTES));
    if (module.strikes(fault_id::short_reply))
        reply.pop_back();
    send(now, reply, module.delay_us() + (module.strikes(fault_id::late_reply) ? LATE_US : 0));
}

// A late reply does not delay those of other modules.
void fio_line::send(int64_t now, const std::vector<uint8_t> &reply, int64_t delay_us) {
    if (delay_us == 0) {
        end.send(now, reply);
        return;
    }
    const int64_t due_us = now / NS_PER_US + delay_us;
    const auto after = std::ranges::upper_bound(late, due_us, {}, &late_reply::due_us);
    late.insert(after, {due_us, reply});
}

} // namespace simulator
