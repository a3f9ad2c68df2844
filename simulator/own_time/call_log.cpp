#include "simulator/own_time/call_log.h"

#include "simulator/base/message.h"
#include "simulator/requests/timed_calls.h"
#include "simulator/time/clock.h"

#include <array>
#include <climits>
#include <cstring>

namespace simulator {

namespace {

std::string name_of(int call) {
    if (const timed_call *row = find_timed_call(call))
        return row->name;
    if (const call_row *row = find_stopped_call(call))
        return row->name;
    return call == SYS_ioctl ? "ioctl" : "call " + std::to_string(call);
}

// Which argument is a path; -1: none.
int path_argument(int call) {
    switch (call) {
    case SYS_openat:
        return 1;
    case SYS_execve:
#ifdef SYS_open
    case SYS_open:
    case SYS_creat:
#endif
        return 0;
    default:
        return -1;
    }
}

std::string path_at(const request &asked, uint64_t address) {
    std::array<char, PATH_MAX> text{};
    (void)read_up_to(asked, address, text.data(), text.size() - 1);
    std::string quoted = "'";
    quoted.append(text.data());
    return quoted.append("'");
}

std::string hex(uint64_t number) {
    std::array<char, 24> text{};
    (void)snprintf(text.data(), text.size(), "%#llx", static_cast<unsigned long long>(number));
    return text.data();
}

// At most three. The registers after the arguments hold something else in each run. So do the
// addresses after the path of execve(2): the first execve is the board's own.
int shown_arguments(int call) {
    switch (call) {
    case SYS_sched_yield:
    case SYS_sync:
        return 0;
    case SYS_execve:
    case SYS_brk:
    case SYS_close:
    case SYS_dup:
    case SYS_fsync:
    case SYS_fdatasync:
    case SYS_times:
    case SYS_sysinfo:
    case SYS_timer_getoverrun:
    case SYS_timer_delete:
    case SYS_exit:
    case SYS_exit_group:
        return 1;
    case SYS_nanosleep:
    case SYS_clock_gettime:
    case SYS_gettimeofday:
    case SYS_getitimer:
    case SYS_timer_gettime:
    case SYS_rt_sigsuspend:
    case SYS_kill:
    case SYS_tkill:
    case SYS_set_robust_list:
    case SYS_clone3:
        return 2;
    default:
        return 3;
    }
}

std::string arguments_of(const request &asked) {
    std::string text;
    for (int i = 0; i < shown_arguments(asked.call); i++) {
        const uint64_t argument = asked.arguments[static_cast<size_t>(i)];
        text += i == 0 ? "" : ", ";
        text += i == path_argument(asked.call) ? path_at(asked, argument) : hex(argument);
    }
    return text;
}

std::string result_of(const response &given) {
    if (given.flags != 0)
        return "kernel";
    if (given.error == 0)
        return std::to_string(given.value);
    const char *name = strerrorname_np(given.error);
    return name != nullptr ? name : std::to_string(-given.error); // ERESTARTSYS has none
}

} // namespace

bool call_log::open(const std::string &wanted) {
    path = wanted;
    out.reset(fopen(path.c_str(), "we"));
    return out != nullptr || cannot("write", path);
}

void call_log::note(const request &asked, int64_t asked_at_us, const response &given) {
    if (out == nullptr)
        return;
    const auto seconds = [](int64_t time_us) {
        return static_cast<double>(time_us) / static_cast<double>(US_PER_SECOND);
    };
    (void)fprintf(out.get(), "%.6f %d %s(%s) = %s", seconds(asked_at_us - BOOT_US),
                  static_cast<int>(asked.caller), name_of(asked.call).c_str(),
                  arguments_of(asked).c_str(), result_of(given).c_str());
    if (now_us() > asked_at_us)
        (void)fprintf(out.get(), " <%.6f>", seconds(now_us() - asked_at_us));
    (void)fputc('\n', out.get());
}

void call_log::finish() {
    if (out != nullptr && (fflush(out.get()) != 0 || ferror(out.get()) != 0))
        report("%s lacks lines: it could not be written", path.c_str());
}

} // namespace simulator
