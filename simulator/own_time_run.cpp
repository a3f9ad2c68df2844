#include "simulator/own_time_run.h"

#include "simulator/base/message.h"
#include "simulator/devices/led_calls.h"
#include "simulator/devices/spi/spi_device.h"
#include "simulator/devices/spi/spi_memory.h"
#include "simulator/devices/system_log.h"
#include "simulator/own_time/scheduler.h"
#include "simulator/requests/notification.h"
#include "simulator/world/log/board_output.h"
#include "simulator/world/namespaces.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <memory>
#include <sched.h>
#include <span>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

#if __has_include(<sys/rseq.h>)
#include <sys/rseq.h> // glibc 2.35
#endif

namespace simulator {

namespace {

// The program and the board share one processor, which makes a stopped call much cheaper.
void share_one_processor() {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
    (void)sched_setaffinity(0, sizeof one, &one);
}

// The kernel serves restartable sequences after each switch to the board, that is at each stopped
// call, and nothing here uses them. Without them the board works the same: an error does not
// matter.
void end_restartable_sequences() {
#if __has_include(<sys/rseq.h>) && defined(__x86_64__)
    char *thread_area = nullptr; // its first word is its address
    asm("mov %%fs:0, %0" : "=r"(thread_area));
    (void)syscall(SYS_rseq, thread_area + __rseq_offset, sizeof(struct rseq), RSEQ_FLAG_UNREGISTER,
                  RSEQ_SIG);
#endif
}

// The listener is the scheduler's: it takes the calls one by one.
std::vector<event_source *> sources_of(scheduler &time, const request_channel &requests,
                                       std::span<event_source *const> sources) {
    std::vector<event_source *> all = {&time, &time.timers, &time.created_timers};
    std::ranges::remove_copy(sources, std::back_inserter(all), &requests);
    return all;
}

// The devices with descriptors of their own on which something may happen between two calls that
// the board sees. The LED's calls are answered.
std::vector<event_source *> watched_devices(const device_set &devices) {
    std::vector<event_source *> watched;
    for (const std::unique_ptr<device> &each : devices.devices) {
        std::vector<pollfd> polls;
        each->add_polls(polls);
        if (!polls.empty() && each.get() != devices.find<led>())
            watched.push_back(each.get());
    }
    return watched;
}

// Those that see openings, and the SPI nodes, whose last close counts before the next open.
std::vector<event_source *> memories_of(const device_set &devices) {
    std::vector<event_source *> memories;
    for (const std::unique_ptr<device> &each : devices.devices) {
        const auto *memory = dynamic_cast<spi_memory *>(each.get());
        const bool sees_openings = memory != nullptr && memory->sees_openings();
        if (sees_openings || dynamic_cast<spi_device *>(each.get()) != nullptr)
            memories.push_back(each.get());
    }
    return memories;
}

// True if there were any.
bool report_unknown_sleeps(const scheduler &time) {
    for (const auto &[name, count] : time.unknown_sleeps())
        report("%s waited %d time%s in the machine's time, not the board's own", name.c_str(),
               count, count == 1 ? "" : "s");
    return !time.unknown_sleeps().empty();
}

void connect_scheduler(scheduler &time, run_parts &parts) {
    board &built = parts.built;
    time.log = std::move(built.calls);
    time.sources = sources_of(time, parts.requests, parts.sources);
    time.watched = watched_devices(built.devices);
    time.watched.push_back(&parts.calls.held);
    time.speed = built.settings.speed;
    time.costs = built.settings.costs;
    system_log *log = built.devices.find<system_log>(); // every board has one
    time.after_send = [log] { log->take_messages(); };
    time.is_reader_late = [&run = parts.run](bool has_blocked_writer) {
        return (has_blocked_writer || output.is_reader_late()) && !run.is_ending();
    };
    time.memories = memories_of(built.devices);
    time.give_up = [&run = parts.run](const std::string &where) { run.end_computing(where); };
}

void start_programs(scheduler &time, const run_parts &parts) {
    if (parts.release.listener.is_open())
        time.add_program(parts.release.id, parts.release.listener.get());
    if (parts.requests.listener.is_open())
        time.add_program(parts.run.id(), parts.requests.listener.get());
}

} // namespace

void start_own_time(const run_settings &settings) {
    start_own_clock(settings.start_us);
    share_one_processor();
    end_restartable_sequences();
    (void)setenv("TZ", "UTC0", 1); // the same hours everywhere
    tzset();
}

void run_in_own_time(run_parts &parts) {
    prefer_own_processor(parts.release.listener.get());
    scheduler time(parts.requests, parts.calls);
    connect_scheduler(time, parts);
    // Every board has an LED.
    led_calls lamp(*parts.built.devices.find<led>(), parts.calls.numbers);
    parts.requests.lamp = &lamp;
    parts.requests.ports = &parts.calls;
    start_programs(time, parts);
    program_run &run = parts.run;
    while (!run.ended) {
        if (std::exchange(run.has_signalled, false))
            time.note_signal();
        time.step();
    }
    take_last_events(time.sources);
    time.finish_calls();
    parts.requests.lamp = nullptr;
    if (report_unknown_sleeps(time) && parts.built.settings.strict && run.status == 0)
        run.status = STATUS_NOT_MODELLED;
}

} // namespace simulator
