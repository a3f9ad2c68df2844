#include "simulator/board.h"

#include "simulator/base/message.h"
#include "simulator/devices/led_calls.h"
#include "simulator/devices/network_interface.h"
#include "simulator/devices/process_limit.h"
#include "simulator/devices/serial/port_calls.h"
#include "simulator/devices/spi/spi_memory.h"
#include "simulator/devices/system_log.h"
#include "simulator/requests/notification.h"
#include "simulator/requests/request_channel.h"
#include "simulator/run_record.h"
#include "simulator/time/scheduler.h"
#include "simulator/world/entrance.h"
#include "simulator/world/hold_release.h"
#include "simulator/world/log/board_output.h"
#include "simulator/world/namespaces.h"
#include "simulator/world/program_run.h"
#include "simulator/world/root.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <memory>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>

namespace simulator {

namespace {

constexpr int64_t FINISH_US = 2'000'000; // for a slow reader of the output
constexpr int RAISED_NICE = -10;
constexpr int LAST_TURNS = 100; // for what the program wrote just before it ended

bool carry_out(const given_option &given, board &built) {
    const message_place here(given.place);
    const auto &how = given.row->carry_out;
    if (const auto *add = std::get_if<device_option>(&how))
        return (*add)(built.devices, given.text.c_str());
    if (const auto *set = std::get_if<run_option>(&how))
        return (*set)(built.settings, given.text.c_str());
    return true;
}

bool carry_out_options(const command_line &given, board &built) {
    for (const option_row &row : option_table())
        for (const given_option &each : given.options)
            if (each.row == &row && !carry_out(each, built))
                return false;
    return true;
}

// Reports that no device takes the fault, and which targets or numbers are possible.
bool refuse_fault(const fault &wanted, const device_set &devices) {
    for (const std::unique_ptr<device> &each : devices.devices)
        if (const std::string possible = each->possible_instead(wanted); !possible.empty())
            return complain("--fault %s: it could never strike; possible on %s %s: %s",
                            wanted.text.c_str(), wanted.kind->thing, wanted.target.c_str(),
                            possible.c_str());
    std::set<std::string> targets;
    for (const std::unique_ptr<device> &each : devices.devices)
        each->list_targets(wanted.kind->thing, targets);
    std::string possible;
    for (const std::string &target : targets)
        possible += " " + target;
    const char *thing = wanted.kind->thing;
    return complain("--fault %s: this board has no %s %s that can have it; its %ss are:%s",
                    wanted.text.c_str(), thing, wanted.target.c_str(), thing,
                    targets.empty() ? " none" : possible.c_str());
}

// The "FILE:LINE" of a fault in a board file; empty for one on the command line.
std::string place_of(const command_line &given, const fault &wanted) {
    for (const given_option &each : given.options)
        if (each.text == wanted.text && each.row->name == std::string_view("fault"))
            return each.place;
    return "";
}

bool assign_faults(const command_line &given, const board &built) {
    for (const fault &wanted : built.settings.faults) {
        bool taken = false;
        for (const std::unique_ptr<device> &candidate : built.devices.devices)
            taken = candidate->take_fault(wanted) || taken; // a cable has two ends
        const message_place here(place_of(given, wanted));
        if (!taken)
            return refuse_fault(wanted, built.devices);
    }
    return true;
}

// The seed repeats a run with random faults.
void note_seed(const run_settings &settings) {
    const auto is_random = [](const fault &each) { return each.clock().has_rate(); };
    if (std::ranges::any_of(settings.faults, is_random))
        board_note("random faults follow --seed %d", settings.seed);
}

void note_strikes(const run_settings &settings) {
    for (const fault &each : settings.faults) {
        const unsigned long long count = each.strike_count();
        if (count == 0)
            board_note("fault %s never struck", each.text.c_str());
        else
            board_note("fault %s struck %llu time%s", each.text.c_str(), count,
                       count == 1 ? "" : "s");
    }
}

// Keeps the board on time when the machine is busy. Only a privileged board may raise its priority;
// the program under test always keeps the ordinary one.
void raise_priority() {
    sched_param lowest{};
    lowest.sched_priority = sched_get_priority_min(SCHED_FIFO);
    if (sched_setscheduler(0, SCHED_FIFO | SCHED_RESET_ON_FORK, &lowest) != 0) {
        const sched_param none{};
        if (sched_setscheduler(0, SCHED_OTHER | SCHED_RESET_ON_FORK, &none) == 0)
            (void)setpriority(PRIO_PROCESS, 0, RAISED_NICE);
    }
    (void)mlockall(MCL_CURRENT);
}

// The reader of the output or the log may be slow or gone.
void pass_on_rest(std::span<event_source *const> sources) {
    const auto is_late = [](const event_source *source) { return source->has_unsent(); };
    std::vector<event_source *> late;
    std::ranges::copy_if(sources, std::back_inserter(late), is_late);
    const int64_t latest_us = machine_us() + FINISH_US;
    for (int64_t left_us = FINISH_US; left_us > 0 && std::ranges::any_of(late, is_late);
         left_us = latest_us - machine_us())
        turn(late, left_us);
    for (event_source *source : sources)
        source->report_unsent();
}

void run_to_the_end(const program_run &run, std::span<event_source *const> sources) {
    while (!run.ended)
        turn(sources, NEVER);
    for (int turns = 0; turns < LAST_TURNS && turn(sources, 0) > 0; turns++) {
    }
}

// The program and the board share one processor, which makes a stopped call much cheaper. They have
// the same priority: the program then goes on as soon as its call is answered, and the board, which
// has not begun to wait for the next call, need not be woken for it.
void share_one_processor() {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
    (void)sched_setaffinity(0, sizeof one, &one);
}

// Before the first time is read.
void start_own_time(const run_settings &settings) {
    start_own_clock(settings.start_us);
    share_one_processor();
    (void)setenv("TZ", "UTC0", 1); // the same hours everywhere
    tzset();
}

// The listener is the scheduler's: it takes the calls one by one.
std::vector<event_source *> sources_of(scheduler &time, const request_channel &requests,
                                       std::span<event_source *const> sources) {
    std::vector<event_source *> all = {&time, &time.timers};
    std::ranges::remove_copy(sources, std::back_inserter(all), &requests);
    return all;
}

// The devices with descriptors of their own on which something may happen between two calls that
// the board sees. The log is read after each message, and the LED's calls are answered.
std::vector<event_source *> watched_devices(const device_set &devices) {
    std::vector<event_source *> watched;
    for (const std::unique_ptr<device> &each : devices.devices) {
        const bool is_seen =
            each.get() == devices.find<system_log>() || each.get() == devices.find<led>();
        std::vector<pollfd> polls;
        each->add_polls(polls);
        if (!polls.empty() && !is_seen)
            watched.push_back(each.get());
    }
    return watched;
}

// Those that see openings.
std::vector<event_source *> memories_of(const device_set &devices) {
    std::vector<event_source *> memories;
    for (const std::unique_ptr<device> &each : devices.devices)
        if (auto *memory = dynamic_cast<spi_memory *>(each.get());
            memory && memory->sees_openings())
            memories.push_back(memory);
    return memories;
}

// True if there were any.
bool report_unknown_sleeps(const scheduler &time) {
    for (const auto &[name, count] : time.unknown_sleeps())
        report("%s waited %d time%s in the machine's time, not the board's own", name.c_str(),
               count, count == 1 ? "" : "s");
    return !time.unknown_sleeps().empty();
}

// What takes part in a run.
struct run_parts {
    board &built;
    program_run &run;
    request_channel &requests;
    port_calls &calls;
    releaser &release;
};

void start_programs(scheduler &time, const run_parts &parts) {
    if (parts.release.listener.is_open())
        time.add_program(parts.release.id, parts.release.listener.get());
    if (parts.requests.listener.is_open())
        time.add_program(parts.run.id(), parts.requests.listener.get());
}

void run_in_own_time(const run_parts &parts, std::span<event_source *const> sources) {
    auto &[built, run, requests, calls, release] = parts;
    prefer_own_processor(release.listener.get());
    scheduler time(requests, calls);
    time.log = std::move(built.calls);
    time.sources = sources_of(time, requests, sources);
    time.watched = watched_devices(built.devices);
    time.watched.push_back(&calls.held);
    time.speed = built.settings.speed;
    time.costs = built.settings.costs;
    system_log *log = built.devices.find<system_log>(); // every board has one
    time.after_send = [log] { log->take_messages(); };
    time.memories = memories_of(built.devices);
    time.give_up = [&run = run](const std::string &where) { run.end_computing(where); };
    requests.ports = &calls;
    led_calls lamp(*built.devices.find<led>(), calls.numbers); // every board has one
    requests.lamp = &lamp;
    start_programs(time, parts);
    while (!run.ended) {
        if (std::exchange(run.has_signalled, false))
            time.note_signal();
        time.step();
    }
    for (int turns = 0; turns < LAST_TURNS && turn(time.sources, 0) > 0; turns++) {
    }
    requests.lamp = nullptr;
    if (report_unknown_sleeps(time) && built.settings.strict && run.status == 0)
        run.status = STATUS_NOT_MODELLED;
}

void start_faults(const run_settings &settings) {
    for (const fault &each : settings.faults)
        each.start(now_us());
}

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

bool open_nodes(const device_set &devices) {
    for (const std::unique_ptr<device> &each : devices.devices)
        if (!each->open_nodes())
            return false;
    return true;
}

} // namespace

bool build_board(const command_line &given, board &built) {
    add_devices_of_every_board(built.devices);
    if (!carry_out_options(given, built) || !assign_faults(given, built))
        return false;
    built.command = command_words(given, built.settings);
    return true;
}

int run_board(board &built, char *const *program, const machine_paths &paths) {
    if (built.settings.own_time)
        start_own_time(built.settings);
    else
        raise_priority();
    built.devices.find<network_interface>()->bring_up(); // every board has one
    if (!build_root(paths.own_program))
        return STATUS_NO_BOARD;
    start_faults(built.settings);
    if (!open_nodes(built.devices) || !protect_machine())
        return STATUS_NO_BOARD;

    if (has_own_clock())
        note_command(built.command);
    else
        note_seed(built.settings);
    program_run run;
    request_channel requests;
    port_calls calls(ports_of(built.devices), numbers_for_ports());
    if (!calls.watch_nodes())
        return STATUS_NO_BOARD;
    entrance visitors;
    std::vector<event_source *> sources = {&run, &requests, &visitors, &output};
    for (const std::unique_ptr<device> &each : built.devices.devices) {
        requests.takers.push_back(each.get());
        sources.push_back(each.get());
    }
    sources.push_back(&calls);
    sources.push_back(&calls.held);
    if (calls.has_ports())
        requests.ports = &calls;
    auto &processes = *built.devices.find<process_limit>(); // every board has one
    if (processes.can_strike())
        requests.process_limit = &processes;
    visitors.takers = requests.takers;
    visitors.ports = requests.ports;
    visitors.process_limit = requests.process_limit;
    visitors.rules = {.ioctls = requests.stopped_ioctls(),
                      .ports = calls.rule(),
                      .process_starts = processes.can_strike()};
    visitors.listener = std::move(built.entrance_listener);
    run.run_us = built.settings.run_us;
    run.terminal = built.devices.terminal.board_end() < 0 ? &built.terminal : nullptr;
    filter_rules rules = visitors.rules;
    rules.own_time = has_own_clock();
    if (rules.own_time) // the LED's descriptor has such a number too
        rules.ports = calls.numbers;
    releaser release;
    if (built.settings.release && !start_releasing(paths.own_program, rules, release))
        return STATUS_NO_BOARD;
    processes.count_own();
    if (!run.start({program, paths.directory.c_str(), rules}))
        return STATUS_NO_BOARD;
    requests.listen_on(std::move(run.listener));
    if (has_own_clock())
        run_in_own_time({built, run, requests, calls, release}, sources);
    else
        run_to_the_end(run, sources);
    note_strikes(built.settings);
    if (has_own_clock())
        note_hash();
    pass_on_rest(sources);
    return run.status;
}

} // namespace simulator
