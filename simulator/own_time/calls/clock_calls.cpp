#include "simulator/own_time/calls/clock_calls.h"

#include "simulator/own_time/calls/caller_times.h"

#include <ctime>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <unistd.h>

namespace simulator {

namespace {

constexpr unsigned long MEMORY_BYTES = 64UL << 20; // of the board

void finish(const request &asked, bool is_good, int64_t value) {
    if (is_good)
        answer(asked, value);
    else
        refuse(asked, EFAULT);
}

void answer_clock_gettime(const request &asked) {
    const board_clock clock = find_clock(static_cast<clockid_t>(asked.arguments[0]));
    if (clock == board_clock::none)
        return refuse(asked, EINVAL);
    const int64_t time_us = clock == board_clock::calendar ? calendar_us() : now_us();
    finish(asked, write_timespec(asked, asked.arguments[1], time_us), 0);
}

void answer_gettimeofday(const request &asked) {
    const two_words time = {calendar_us() / US_PER_SECOND, calendar_us() % US_PER_SECOND};
    const two_words zone = {}; // struct timezone is half as long
    const auto [time_at, zone_at] = std::array{asked.arguments[0], asked.arguments[1]};
    finish(asked,
           (time_at == 0 || write_memory(asked, time_at, time.data(), sizeof time)) &&
               (zone_at == 0 || write_memory(asked, zone_at, zone.data(), sizeof zone / 2)),
           0);
}

void answer_time(const request &asked) {
    const int64_t seconds = calendar_us() / US_PER_SECOND;
    const uint64_t address = asked.arguments[0];
    finish(asked, address == 0 || write_memory(asked, address, &seconds, sizeof seconds), seconds);
}

// The four sums of processor time, and the ticks since the start.
void answer_times(const request &asked) {
    const std::array<int64_t, 4> sums{};
    const int64_t ticks = now_us() * sysconf(_SC_CLK_TCK) / US_PER_SECOND;
    const uint64_t address = asked.arguments[0];
    finish(asked, address == 0 || write_memory(asked, address, sums.data(), sizeof sums), ticks);
}

} // namespace

board_clock find_clock(clockid_t clock) {
    switch (clock) {
    case CLOCK_REALTIME:
    case CLOCK_REALTIME_COARSE:
    case CLOCK_REALTIME_ALARM:
    case CLOCK_TAI:
        return board_clock::calendar;
    case CLOCK_MONOTONIC:
    case CLOCK_MONOTONIC_RAW:
    case CLOCK_MONOTONIC_COARSE:
    case CLOCK_BOOTTIME:
    case CLOCK_BOOTTIME_ALARM:
    case CLOCK_PROCESS_CPUTIME_ID:
    case CLOCK_THREAD_CPUTIME_ID:
        return board_clock::since_start;
    default: // another process's or thread's processor time is negative, see clock_getcpuclockid(3)
        return clock < 0 ? board_clock::since_start : board_clock::none;
    }
}

bool has_timers(clockid_t clock) {
    return clock != CLOCK_REALTIME_COARSE && clock != CLOCK_MONOTONIC_COARSE &&
           clock != CLOCK_MONOTONIC_RAW;
}

void answer_clock(const request &asked) {
    switch (asked.call) {
    case SYS_clock_gettime:
        return answer_clock_gettime(asked);
    case SYS_gettimeofday:
        return answer_gettimeofday(asked);
    case SYS_times:
        return answer_times(asked);
    default:
        return answer_time(asked);
    }
}

void answer_sysinfo(const request &asked) {
    struct sysinfo about {};
    about.uptime = static_cast<long>(now_us() / US_PER_SECOND);
    about.totalram = MEMORY_BYTES;
    about.freeram = MEMORY_BYTES / 2;
    about.procs = 1;
    about.mem_unit = 1;
    finish(asked, write_memory(asked, asked.arguments[0], &about, sizeof about), 0);
}

} // namespace simulator
