#include "ctl/commands/ending.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>

#include "ctl/text.h"
#include "runtime/clock.h"

namespace {

constexpr int32_t LOOK_US = 20000;
constexpr int64_t KILL_MS = 5000; // a process in a driver may end late

bool has_processes(const stress_run &run) {
    return run.supervisor_is != supervisor_state::GONE || !run.test_processes.empty();
}

bool any_runs(const stress_run &run) {
    const bool supervisor_runs =
        run.supervisor_is == supervisor_state::RUNNING && is_running(run.supervisor);
    return supervisor_runs ||
           std::any_of(run.test_processes.begin(), run.test_processes.end(), is_running);
}

// Reads the whole run again, which takes longer than a check of its known processes.
bool has_ended(stress_run &run) {
    if (any_runs(run))
        return false;
    if (auto now = look_again(run))
        run = std::move(*now);
    else
        return true; // even the segment is gone
    return !has_processes(run);
}

void end_process(const process &each, const char *what) {
    if (!is_running(each))
        return;
    printf("end %s %d\n", what, static_cast<int>(each.pid));
    if (!send_signal(each, SIGKILL) && errno != ESRCH)
        complain("cannot end process %d: %s", static_cast<int>(each.pid), strerror(errno));
}

} // namespace

bool await_end(stress_run &run, int64_t limit_ms) {
    for (const int64_t latest = now_ms() + limit_ms; !has_ended(run); sleep_us(LOOK_US))
        if (now_ms() >= latest)
            return false;
    return true;
}

// Ends the tests first, so a working supervisor reaps them; then the supervisor, if it is left.
bool end_what_is_left(stress_run &run) {
    if (auto now = look_again(run))
        run = std::move(*now);
    for (const process &test : run.test_processes)
        end_process(test, "test");
    if (run.supervisor_is == supervisor_state::RUNNING)
        end_process(run.supervisor, "supervisor");
    return await_end(run, KILL_MS);
}

// The segment of the run as it is now; none if it has been removed.
std::optional<segment> segment_of(const stress_run &run) {
    for (const segment &each : segments_of_table_size())
        if (each.id == run.memory.id && each.creator == run.memory.creator)
            return each;
    return std::nullopt;
}

// A process that was just killed can still be attached, so this waits for it.
bool remove_table(const stress_run &run, bool dry_run) {
    std::optional<segment> now = segment_of(run);
    for (int64_t waited_us = 0; !dry_run && now && now->attached != 0; waited_us += LOOK_US) {
        if (waited_us >= KILL_MS * 1000)
            break;
        sleep_us(LOOK_US);
        now = segment_of(run);
    }
    if (!now)
        return true;
    if (now->attached != 0 && !dry_run) {
        complain("segment %d stays: it is attached %u times", now->id, now->attached);
        return false;
    }
    printf("%s segment %d of run @%d\n", dry_run ? "would remove" : "remove", now->id,
           static_cast<int>(run.supervisor_id()));
    if (dry_run || remove_segment(*now))
        return true;
    complain("cannot remove segment %d: %s", now->id, strerror(errno));
    return false;
}
