#include "simulator/board_run.h"

#include "simulator/devices/network_interface.h"
#include "simulator/own_time_run.h"
#include "simulator/run_parts.h"
#include "simulator/run_record.h"
#include "simulator/world/log/board_output.h"
#include "simulator/world/namespaces.h"
#include "simulator/world/root.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <sched.h>
#include <span>
#include <sys/mman.h>
#include <sys/resource.h>

namespace simulator {

namespace {

constexpr int64_t FINISH_US = 2'000'000; // for a slow reader of the output
constexpr int RAISED_NICE = -10;

// Gives this process the lowest real-time priority, or a raised ordinary one.
void take_priority(int policy, int flags) {
    sched_param lowest{};
    lowest.sched_priority = sched_get_priority_min(policy);
    if (sched_setscheduler(0, policy | flags, &lowest) == 0)
        return;
    const sched_param none{};
    if (sched_setscheduler(0, SCHED_OTHER | flags, &none) == 0)
        (void)setpriority(PRIO_PROCESS, 0, RAISED_NICE);
}

// Keeps the board on time when the machine is busy. Only a privileged board may raise its priority.
// With the machine's clock the program under test keeps the ordinary one.
//
// In the board's own time both have the same priority. Board and program take turns at each stopped
// call: other work that delays one of them delays both. And a board above the program costs two
// switches more at each call: the kernel wakes it while the program still holds the lock that the
// board then needs.
void raise_priority() {
    if (has_own_clock())
        take_priority(SCHED_RR, 0);
    else
        take_priority(SCHED_FIFO, SCHED_RESET_ON_FORK);
    (void)mlockall(MCL_CURRENT);
}

void start_faults(const run_settings &settings) {
    for (const fault &each : settings.faults)
        each.start(now_us());
}

bool open_nodes(const device_set &devices) {
    for (const std::unique_ptr<device> &each : devices.devices)
        if (!each->open_nodes())
            return false;
    return true;
}

// The clock, the network, the files and the devices. False after a message.
bool set_up(board &built, const machine_paths &paths) {
    if (built.settings.own_time)
        start_own_time(built.settings);
    raise_priority();
    built.devices.find<network_interface>()->bring_up(); // every board has one
    if (!build_root(paths.own_program))
        return false;
    start_faults(built.settings);
    return open_nodes(built.devices) && protect_machine();
}

// The program, and what releases its held tests. False after a message.
bool start_program(run_parts &parts, char *const *program, const machine_paths &paths) {
    const filter_rules rules = parts.program_rules();
    if (parts.built.settings.release && !start_releasing(paths.own_program, rules, parts.release))
        return false;
    parts.processes.count_own();
    if (!parts.run.start({program, paths.directory.c_str(), rules}))
        return false;
    parts.requests.listen_on(std::move(parts.run.listener));
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

// The reader of the output or the log may be slow or gone. Who reads on is waited for.
void pass_on_rest(std::span<event_source *const> sources) {
    const auto is_late = [](const event_source *source) { return source->has_unsent(); };
    std::vector<event_source *> late;
    std::ranges::copy_if(sources, std::back_inserter(late), is_late);
    size_t unread_bytes = output.unread_bytes();
    int64_t latest_us = machine_us() + FINISH_US;
    for (int64_t left_us = FINISH_US; left_us > 0 && std::ranges::any_of(late, is_late);
         left_us = latest_us - machine_us()) {
        turn(late, left_us);
        if (output.unread_bytes() < unread_bytes)
            latest_us = machine_us() + FINISH_US;
        unread_bytes = output.unread_bytes();
    }
    for (event_source *source : sources)
        source->report_unsent();
}

void run_to_the_end(const program_run &run, std::span<event_source *const> sources) {
    while (!run.ended)
        turn(sources, NEVER);
    take_last_events(sources);
}

} // namespace

int run_board(board &built, char *const *program, const machine_paths &paths) {
    if (!set_up(built, paths))
        return STATUS_NO_BOARD;
    if (has_own_clock())
        note_command(built.command);
    else
        note_seed(built.settings);
    run_parts parts(built);
    if (!parts.connect() || !start_program(parts, program, paths))
        return STATUS_NO_BOARD;
    if (has_own_clock())
        run_in_own_time(parts);
    else
        run_to_the_end(parts.run, parts.sources);
    note_strikes(built.settings);
    if (has_own_clock())
        note_hash();
    pass_on_rest(parts.sources);
    return parts.run.status;
}

} // namespace simulator
