#include "simulator/run_parts.h"

#include "simulator/world/log/board_output.h"

#include <algorithm>
#include <sys/resource.h>

namespace simulator {

namespace {

std::vector<serial_port *> ports_of(const device_set &devices) {
    std::vector<serial_port *> ports;
    for (const std::unique_ptr<device> &each : devices.devices)
        if (auto *port = dynamic_cast<serial_port *>(each.get()))
            ports.push_back(port);
    return ports;
}

// The highest numbers below the limit on open files and below 1024, the limit of select(2).
port_descriptors numbers_for_ports() {
    constexpr rlim_t HIGHEST = 1024;
    constexpr int MOST = 64;
    rlimit limit{};
    (void)getrlimit(RLIMIT_NOFILE, &limit); // cannot fail
    const int end = static_cast<int>(std::min(limit.rlim_cur, HIGHEST));
    return {std::max(end - MOST, end / 2), end};
}

} // namespace

run_parts::run_parts(board &of)
    : built(of),
      calls(ports_of(of.devices), numbers_for_ports()),
      processes(*of.devices.find<process_limit>()) { // every board has one
    run.run_us = built.settings.run_us;
    run.terminal = built.devices.terminal.board_end() < 0 ? &built.terminal : nullptr;
    sources = {&run, &requests, &visitors, &output};
    for (const std::unique_ptr<device> &each : built.devices.devices) {
        requests.takers.push_back(each.get());
        sources.push_back(each.get());
    }
    sources.push_back(&calls);
    sources.push_back(&calls.held);
}

bool run_parts::connect() {
    if (!calls.watch_nodes())
        return false;
    if (calls.has_ports())
        requests.ports = &calls;
    if (processes.can_strike())
        requests.process_limit = &processes;
    visitors.takers = requests.takers;
    visitors.ports = requests.ports;
    visitors.process_limit = requests.process_limit;
    visitors.rules = {.ioctls = requests.stopped_ioctls(),
                      .ports = calls.rule(),
                      .process_starts = processes.can_strike()};
    visitors.listener = std::move(built.entrance_listener);
    return true;
}

filter_rules run_parts::program_rules() const {
    filter_rules rules = visitors.rules;
    rules.own_time = has_own_clock();
    if (rules.own_time) // the LED's descriptor has such a number too
        rules.ports = calls.numbers;
    return rules;
}

} // namespace simulator
