// The system calls that the kernel stops for the board's ports, and the descriptor numbers on which
// it stops them.
//
// A port's descriptor is 0, 1 or a high number that the board chooses when it opens the port for
// the program. The filter stops calls on those numbers alone: calls on files, the log and memory
// run at full speed.
//
// The kernel answers calls on descriptor 2. A signal before the board has received a stopped call
// makes the call fail with EINTR. A file never does that, so a message of the program would be
// lost. Nor may an exit or a start of a program fail so (a C library faults after an exit that
// returns): these are stopped in the board's own time alone, in which no other process of the
// program runs then and could send a signal.
#pragma once

#include <algorithm>
#include <cstdint>
#include <fcntl.h>
#include <iterator>
#include <sys/syscall.h>

namespace simulator {

static_assert(sizeof(long) == 8, "the board reads only the calls of 64-bit programs");

enum class call_kind {
    other,
    request, // ioctl(2), stopped by its request number
    open,
    openat,
    openat2,
    creat,
    read,
    readv,
    write,
    writev,
    dup,
    dup2, // dup3(2) too
    fcntl,
    close,
    close_range,
    end,     // exit(2), exit_group(2)
    execute, // execve(2), execveat(2)
    poll,
    ppoll,
    select,
    pselect,
    epoll_ctl,
};

enum class stopped_when {
    always,
    on_port_descriptor,
    on_either_port_descriptor, // the first or the second argument
    on_third_port_descriptor,
    copying_port_descriptor,
};

struct call_row {
    uint32_t number;
    const char *name;
    call_kind kind;
    stopped_when when;
};

// Newer processors lack the older calls: those are below the #ifdef.
constexpr call_row STOPPED_CALLS[] = {
    {SYS_read, "read", call_kind::read, stopped_when::on_port_descriptor},
    {SYS_write, "write", call_kind::write, stopped_when::on_port_descriptor},
    {SYS_readv, "readv", call_kind::readv, stopped_when::on_port_descriptor},
    {SYS_writev, "writev", call_kind::writev, stopped_when::on_port_descriptor},
    {SYS_ppoll, "ppoll", call_kind::ppoll, stopped_when::always},
    {SYS_pselect6, "pselect6", call_kind::pselect, stopped_when::always},
    {SYS_openat, "openat", call_kind::openat, stopped_when::always},
    {SYS_epoll_ctl, "epoll_ctl", call_kind::epoll_ctl, stopped_when::on_third_port_descriptor},
    {SYS_openat2, "openat2", call_kind::openat2, stopped_when::always},
    {SYS_dup, "dup", call_kind::dup, stopped_when::on_port_descriptor},
    {SYS_dup3, "dup3", call_kind::dup2, stopped_when::on_either_port_descriptor},
    {SYS_fcntl, "fcntl", call_kind::fcntl, stopped_when::copying_port_descriptor},
    {SYS_close, "close", call_kind::close, stopped_when::on_port_descriptor},
    {SYS_close_range, "close_range", call_kind::close_range, stopped_when::always},
    {SYS_exit, "exit", call_kind::end, stopped_when::always},
    {SYS_exit_group, "exit_group", call_kind::end, stopped_when::always},
    {SYS_execve, "execve", call_kind::execute, stopped_when::always},
    {SYS_execveat, "execveat", call_kind::execute, stopped_when::always},
#ifdef SYS_open
    {SYS_poll, "poll", call_kind::poll, stopped_when::always},
    {SYS_select, "select", call_kind::select, stopped_when::always},
    {SYS_open, "open", call_kind::open, stopped_when::always},
    {SYS_creat, "creat", call_kind::creat, stopped_when::always},
    {SYS_dup2, "dup2", call_kind::dup2, stopped_when::on_either_port_descriptor},
#endif
};

// The calls that start a process or a thread; stopped on a board that limits how many there can be.
constexpr uint32_t STARTING_CALLS[] = {
    SYS_clone,
    SYS_clone3,
#ifdef SYS_fork
    SYS_fork,
    SYS_vfork,
#endif
};

constexpr bool starts_process(int number) {
    return std::ranges::find(STARTING_CALLS, static_cast<uint32_t>(number)) !=
           std::end(STARTING_CALLS);
}

constexpr bool may_fail_with_eintr(call_kind kind) {
    return kind != call_kind::end && kind != call_kind::execute;
}

// The row of a system call by its number; null if the table has none.
constexpr const call_row *find_stopped_call(int number) {
    const auto *found =
        std::ranges::find(STOPPED_CALLS, static_cast<uint32_t>(number), &call_row::number);
    return found != std::end(STOPPED_CALLS) ? found : nullptr;
}

// The kind of a system call by its number.
constexpr call_kind kind_of(int number) {
    if (number == SYS_ioctl)
        return call_kind::request;
    const call_row *found = find_stopped_call(number);
    return found != nullptr ? found->kind : call_kind::other;
}

constexpr bool opens_file(int number) {
    const call_kind kind = kind_of(number);
    return kind == call_kind::open || kind == call_kind::openat || kind == call_kind::openat2 ||
           kind == call_kind::creat;
}

// The numbers of ports' descriptors.
struct port_descriptors {
    static constexpr int STANDARD = 3; // standard input, output and error: open(2) returns these
    static constexpr int STOPPED = 2;  // of those, input and output

    int first; // the lowest high number
    int end;   // after the highest; the program's limit on open files

    bool has(int descriptor) const {
        return (descriptor >= 0 && descriptor < STOPPED) || descriptor >= first;
    }
};

} // namespace simulator
