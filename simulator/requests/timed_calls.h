// The system calls that the kernel stops for the board's own time: those that sleep, read or set a
// time, let another thread run, or change the memory that a program may use. Everything else runs
// at full speed.
//
// What depends on the processor is here, by the names of <sys/syscall.h>, and in
// clock_functions.cpp and the folder own_time/quick/.
#pragma once

#include "simulator/requests/stopped_calls.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <sys/syscall.h>

namespace simulator {

enum class timed_kind {
    none,
    // The board answers these.
    read_clock,
    sleep,
    wait_for_signal,
    wait_for_child,
    futex,
    set_timer,
    posix_timer,
    yield,
    describe_machine,
    // The kernel carries these out in the end.
    poll,
    poll_with_mask,
    epoll,
    work,
    send_log,
    send_signal,
    birth,
    execute,
    memory, // changes what the program may use
    end,
    first_of_child,
    close,
    not_modelled, // starts a timer of the machine's time
};

struct timed_call {
    uint32_t number;
    const char *name;
    timed_kind kind;
    stopped_when when = stopped_when::always;
};

constexpr timed_call TIMED_CALLS[] = {
#if defined(__x86_64__)
    {SYS_clock_gettime, "clock_gettime", timed_kind::read_clock},
    {SYS_gettimeofday, "gettimeofday", timed_kind::read_clock},
    {SYS_time, "time", timed_kind::read_clock},
    {SYS_times, "times", timed_kind::read_clock},
    {SYS_sysinfo, "sysinfo", timed_kind::describe_machine},
    {SYS_nanosleep, "nanosleep", timed_kind::sleep},
    {SYS_clock_nanosleep, "clock_nanosleep", timed_kind::sleep},
    {SYS_poll, "poll", timed_kind::poll},
    {SYS_ppoll, "ppoll", timed_kind::poll_with_mask},
    {SYS_select, "select", timed_kind::poll},
    {SYS_pselect6, "pselect6", timed_kind::poll_with_mask},
    {SYS_epoll_wait, "epoll_wait", timed_kind::epoll},
    {SYS_epoll_pwait, "epoll_pwait", timed_kind::epoll},
    {SYS_epoll_pwait2, "epoll_pwait2", timed_kind::epoll},
    {SYS_pause, "pause", timed_kind::wait_for_signal},
    {SYS_rt_sigsuspend, "rt_sigsuspend", timed_kind::wait_for_signal},
    {SYS_rt_sigtimedwait, "rt_sigtimedwait", timed_kind::wait_for_signal},
    {SYS_wait4, "wait4", timed_kind::wait_for_child},
    {SYS_waitid, "waitid", timed_kind::wait_for_child},
    {SYS_futex, "futex", timed_kind::futex},
    {SYS_alarm, "alarm", timed_kind::set_timer},
    {SYS_setitimer, "setitimer", timed_kind::set_timer},
    {SYS_getitimer, "getitimer", timed_kind::set_timer},
    {SYS_timer_create, "timer_create", timed_kind::posix_timer},
    {SYS_timer_settime, "timer_settime", timed_kind::posix_timer},
    {SYS_timer_gettime, "timer_gettime", timed_kind::posix_timer},
    {SYS_timer_getoverrun, "timer_getoverrun", timed_kind::posix_timer},
    {SYS_timer_delete, "timer_delete", timed_kind::posix_timer},
    {SYS_timerfd_settime, "timerfd_settime", timed_kind::not_modelled},
    {SYS_sched_yield, "sched_yield", timed_kind::yield},
    {SYS_open, "open", timed_kind::work},
    {SYS_openat, "openat", timed_kind::work},
    {SYS_creat, "creat", timed_kind::work},
    {SYS_mmap, "mmap", timed_kind::work},
    // A C library's first call: the program's clock is replaced in time.
    {SYS_brk, "brk", timed_kind::memory},
    {SYS_munmap, "munmap", timed_kind::memory},
    {SYS_mremap, "mremap", timed_kind::memory},
    {SYS_mprotect, "mprotect", timed_kind::memory},
    {SYS_pkey_mprotect, "pkey_mprotect", timed_kind::memory},
    {SYS_shmat, "shmat", timed_kind::memory},
    {SYS_shmdt, "shmdt", timed_kind::memory},
    {SYS_sync, "sync", timed_kind::work},
    {SYS_fsync, "fsync", timed_kind::work},
    {SYS_fdatasync, "fdatasync", timed_kind::work},
    {SYS_sendto, "sendto", timed_kind::send_log},
    {SYS_sendmsg, "sendmsg", timed_kind::send_log},
    {SYS_kill, "kill", timed_kind::send_signal},
    {SYS_tkill, "tkill", timed_kind::send_signal},
    {SYS_tgkill, "tgkill", timed_kind::send_signal},
    {SYS_rt_sigqueueinfo, "rt_sigqueueinfo", timed_kind::send_signal},
    {SYS_rt_tgsigqueueinfo, "rt_tgsigqueueinfo", timed_kind::send_signal},
    {SYS_pidfd_send_signal, "pidfd_send_signal", timed_kind::send_signal},
    {SYS_clone, "clone", timed_kind::birth},
    {SYS_clone3, "clone3", timed_kind::birth},
    {SYS_fork, "fork", timed_kind::birth},
    {SYS_vfork, "vfork", timed_kind::birth},
    {SYS_execve, "execve", timed_kind::execute},
    {SYS_execveat, "execveat", timed_kind::execute},
    {SYS_exit, "exit", timed_kind::end},
    {SYS_exit_group, "exit_group", timed_kind::end},
    {SYS_set_robust_list, "set_robust_list", timed_kind::first_of_child},
    {SYS_close, "close", timed_kind::close, stopped_when::on_port_descriptor},
    {SYS_close_range, "close_range", timed_kind::close},
    {SYS_dup2, "dup2", timed_kind::close},
    {SYS_dup3, "dup3", timed_kind::close},
#else
    {SYS_nanosleep, "nanosleep", timed_kind::sleep}, // the rows of this processor are not written
#endif
};

// Whether the board can have its own time on this processor.
constexpr bool HAS_OWN_TIME = std::size(TIMED_CALLS) > 1;

constexpr uint32_t TIMED_CALL_NUMBERS = 512; // the table's are below it

// The row of a system call by its number; null if the table has none.
const timed_call *find_timed_call(int number);

} // namespace simulator
