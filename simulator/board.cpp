#include "simulator/board.h"

#include "simulator/devices/fio/field_io.h"
#include "simulator/devices/fio/fio_line.h"
#include "simulator/devices/hold_release.h"
#include "simulator/devices/led.h"
#include "simulator/devices/panel/front_panel.h"
#include "simulator/devices/serial/feed.h"
#include "simulator/devices/serial/serial_port.h"
#include "simulator/devices/system_log.h"
#include "simulator/requests/request_channel.h"
#include "simulator/world/log/board_output.h"
#include "simulator/world/namespaces.h"
#include "simulator/world/network.h"
#include "simulator/world/program_run.h"
#include "simulator/world/root.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>

namespace simulator {

namespace {

constexpr int64_t FINISH_US = 2'000'000; // for a reader of the output that is slow
constexpr int LAST_TURNS = 100;          // for what the program wrote just before it ended

using port_map = std::map<std::string, std::unique_ptr<serial_port>>;

serial_port &port_named(port_map &ports, const std::string &name) {
    std::unique_ptr<serial_port> &port = ports[name];
    if (port == nullptr)
        port = std::make_unique<serial_port>(name);
    return *port;
}

bool plug(serial_port &port, line_partner &partner, const std::string &partner_name) {
    if (port.partner != nullptr) {
        dprintf(STDERR_FILENO, "hk_board: something is plugged into port %s already\n",
                port.name.c_str());
        return false;
    }
    port.partner = &partner;
    port.partner_name = partner_name;
    port.lines_wired = true;
    return true;
}

bool plug_everything(const board_options &options, port_map &ports) {
    for (const auto &[one, other] : options.cables) {
        serial_port &first = port_named(ports, one);
        serial_port &second = port_named(ports, other);
        if (!plug(first, second, other) || !plug(second, first, one))
            return false;
    }
    for (const std::string &name : options.loops) {
        serial_port &port = port_named(ports, name);
        if (!plug(port, port, name))
            return false;
    }
    for (const std::string &name : options.ports)
        (void)port_named(ports, name);
    return true;
}

bool plug_modules(const board_options &options, port_map &ports, board &built) {
    if (options.field_io.modules.empty())
        return true;
    serial_port &port = port_named(ports, FIO_PORT_NAME);
    auto line = std::make_unique<fio_line>(port, options.field_io.modules);
    if (!plug(port, *line, ""))
        return false;
    built.devices.push_back(std::move(line));
    return true;
}

bool plug_feeds(const board_options &options, port_map &ports, board &built) {
    for (const auto &[name, path] : options.feeds) {
        serial_port &port = port_named(ports, name);
        auto source = std::make_unique<feed>(port);
        if (!plug(port, *source, source->name) || !source->load(path.c_str()))
            return false;
        built.devices.push_back(std::move(source));
    }
    return true;
}

bool plug_panel(const board_options &options, port_map &ports, board &built) {
    if (!options.has_panel)
        return true;
    if (options.panel && !built.terminal.open())
        return false;
    serial_port &port = port_named(ports, PANEL_PORT_NAME);
    auto panel = std::make_unique<front_panel>(port, options.keys, built.terminal.board_end());
    if (!plug(port, *panel, ""))
        return false;
    built.devices.push_back(std::move(panel));
    return true;
}

bool deal_out_faults(const board_options &options, const port_map &ports, board &built) {
    for (const fault &wanted : options.faults) {
        bool taken = false;
        for (const std::unique_ptr<device> &candidate : built.devices)
            taken = candidate->take_fault(wanted) || taken; // a cable has two ends
        if (taken)
            continue;
        dprintf(STDERR_FILENO, "hk_board: --fault %s: this board has no %s %s that can have it",
                wanted.text.c_str(), wanted.kind->device, wanted.target.c_str());
        const char *before = "; its ports are: ";
        for (const auto &[name, port] : ports) {
            dprintf(STDERR_FILENO, "%s%s", before, name.c_str());
            before = " ";
        }
        dprintf(STDERR_FILENO, "\n");
        return false;
    }
    return true;
}

// The board must not be late when the machine is busy. Only a privileged one may ask for it, and
// the program under test keeps the ordinary priority in any case.
void raise_priority() {
    sched_param lowest{};
    lowest.sched_priority = sched_get_priority_min(SCHED_FIFO);
    if (sched_setscheduler(0, SCHED_FIFO | SCHED_RESET_ON_FORK, &lowest) != 0) {
        const sched_param none{};
        if (sched_setscheduler(0, SCHED_OTHER | SCHED_RESET_ON_FORK, &none) == 0)
            (void)setpriority(PRIO_PROCESS, 0, -10);
    }
    (void)mlockall(MCL_CURRENT);
}

// Who receives the output or the log may be slow, or gone.
void pass_on_rest(std::span<event_source *const> sources) {
    const auto is_late = [](const event_source *source) { return source->has_unsent(); };
    std::vector<event_source *> late;
    std::ranges::copy_if(sources, std::back_inserter(late), is_late);
    const int64_t latest_us = now_us() + FINISH_US;
    for (int64_t left_us = FINISH_US; left_us > 0 && std::ranges::any_of(late, is_late);
         left_us = latest_us - now_us())
        turn(late, left_us);
    for (const event_source *source : sources)
        source->report_unsent();
}

bool open_nodes(const board &built) {
    for (const std::unique_ptr<device> &each : built.devices)
        if (!each->open_nodes())
            return false;
    return true;
}

} // namespace

bool build_board(const board_options &options, board &built) {
    port_map ports;
    if (!plug_everything(options, ports) || !plug_feeds(options, ports, built) ||
        !plug_modules(options, ports, built) || !plug_panel(options, ports, built))
        return false;
    if (!options.forward_path.empty() && !built.forward.connect_to(options.forward_path))
        return false;
    built.devices.push_back(std::make_unique<system_log>(built.forward));
    built.devices.push_back(std::make_unique<led>(options.show_led));
    add_spi(options.field_io, built);
    if (options.release)
        built.devices.push_back(std::make_unique<hold_release>());
    for (auto &[name, port] : ports)
        built.devices.push_back(std::move(port));
    return deal_out_faults(options, ports, built);
}

int run_board(board &built, const board_options &options, const machine_paths &paths) {
    raise_priority();
    bring_up_network(options.mac);
    if (!build_root(paths.own_program) || !open_nodes(built))
        return STATUS_NO_BOARD;
    program_run program;
    program.run_us = options.run_us;
    request_channel requests;
    for (const std::unique_ptr<device> &each : built.devices)
        requests.takers.push_back(each.get());
    const std::vector<uint32_t> ioctls = requests.stopped_ioctls();
    if (!program.start({options.program, paths.directory.c_str(), ioctls}))
        return STATUS_NO_BOARD;
    requests.listener = std::move(program.listener);

    std::vector<event_source *> sources = {&program, &requests, &output, &built.forward};
    for (const std::unique_ptr<device> &each : built.devices)
        sources.push_back(each.get());
    while (!program.ended)
        turn(sources, NEVER);
    for (int turns = 0; turns < LAST_TURNS && turn(sources, 0) > 0; turns++) {
    }
    pass_on_rest(sources);
    return program.status;
}

} // namespace simulator
