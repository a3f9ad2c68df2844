#include "simulator/requests/request_filter.h"

#include "simulator/requests/timed_calls.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <endian.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <span>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

// Linux 5.19; older headers lack it.
#ifndef SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV
#define SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV (1UL << 5)
#endif

namespace simulator {

namespace {

#if defined(__x86_64__)
constexpr uint32_t NATIVE_CALLS = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr uint32_t NATIVE_CALLS = AUDIT_ARCH_AARCH64;
#elif defined(__powerpc64__) && __BYTE_ORDER == __LITTLE_ENDIAN
constexpr uint32_t NATIVE_CALLS = AUDIT_ARCH_PPC64LE;
#elif defined(__riscv) && __riscv_xlen == 64
constexpr uint32_t NATIVE_CALLS = AUDIT_ARCH_RISCV64;
#else
#error "give this processor's AUDIT_ARCH_ number, see linux/audit.h"
#endif

#ifndef SYS_open_tree_attr // Linux 6.15; the same number on all processors
#define SYS_open_tree_attr 467
#endif

// The calls that change what is mounted: they fail with EPERM. A program without the right to mount
// has this right in a user namespace that it makes, where only the filter stops it.
constexpr uint32_t MOUNTING_CALLS[] = {
    SYS_mount,  SYS_umount2,  SYS_pivot_root, SYS_open_tree, SYS_open_tree_attr, SYS_move_mount,
    SYS_fsopen, SYS_fsconfig, SYS_fsmount,    SYS_fspick,    SYS_mount_setattr,
};

// Restartable sequences, see <sys/rseq.h>: the kernel writes to the thread's memory after each
// switch to it, and the C library uses them only to find its processor. In the board's own time
// threads switch at each stopped call, so the program gets a kernel without them, which is some
// per cent faster.
constexpr uint32_t SEQUENCES_CALL = SYS_rseq;

constexpr uint32_t LOW_WORD = __BYTE_ORDER == __BIG_ENDIAN ? 4 : 0;

sock_filter load(size_t offset) {
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offset));
}

sock_filter give(uint32_t verdict) {
    return BPF_STMT(BPF_RET | BPF_K, verdict);
}

constexpr uint32_t argument(size_t index) {
    return offsetof(seccomp_data, args) + static_cast<uint32_t>(index * sizeof(uint64_t)) +
           LOW_WORD;
}

// Continues with the next step if the loaded word equals the value, else skips `skipped` steps.
sock_filter unless_equal(uint32_t value, size_t skipped) {
    return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, static_cast<uint8_t>(skipped));
}

sock_filter unless_at_least(uint32_t value, size_t skipped) {
    return BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, value, 0, static_cast<uint8_t>(skipped));
}

using steps = std::vector<sock_filter>;

// Ends the filter; the decision depends on the descriptor, the argument with that index.
steps decide_by_descriptor(const port_descriptors &ports, size_t index = 0) {
    return {
        load(argument(index)),        unless_at_least(static_cast<uint32_t>(ports.first), 1),
        give(SECCOMP_RET_USER_NOTIF), unless_at_least(port_descriptors::STOPPED, 1),
        give(SECCOMP_RET_ALLOW),      give(SECCOMP_RET_USER_NOTIF),
    };
}

steps decide_by_either_descriptor(const port_descriptors &ports) {
    steps all = {
        load(argument(1)),
        unless_at_least(static_cast<uint32_t>(ports.first), 1),
        give(SECCOMP_RET_USER_NOTIF),
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, port_descriptors::STOPPED, 1, 0),
        give(SECCOMP_RET_USER_NOTIF),
    };
    const steps rest = decide_by_descriptor(ports);
    all.insert(all.end(), rest.begin(), rest.end());
    return all;
}

// Ends the filter for fcntl: only calls that copy a port's descriptor are stopped.
steps decide_by_copy(const port_descriptors &ports) {
    steps all = {
        load(argument(1)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, F_DUPFD, 2, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, F_DUPFD_CLOEXEC, 1, 0),
        give(SECCOMP_RET_ALLOW),
    };
    const steps rest = decide_by_descriptor(ports);
    all.insert(all.end(), rest.begin(), rest.end());
    return all;
}

steps decide_by_request(std::span<const uint32_t> numbers) {
    steps all = {load(argument(1))};
    for (const uint32_t number : numbers) {
        all.push_back(unless_equal(number, 1));
        all.push_back(give(SECCOMP_RET_USER_NOTIF));
    }
    all.push_back(give(SECCOMP_RET_ALLOW));
    return all;
}

steps decide(stopped_when when, const port_descriptors &ports) {
    switch (when) {
    case stopped_when::on_port_descriptor:
        return decide_by_descriptor(ports);
    case stopped_when::on_either_port_descriptor:
        return decide_by_either_descriptor(ports);
    case stopped_when::on_third_port_descriptor:
        return decide_by_descriptor(ports, 2);
    case stopped_when::copying_port_descriptor:
        return decide_by_copy(ports);
    default:
        return {give(SECCOMP_RET_USER_NOTIF)};
    }
}

// Expects the call's number as the loaded word.
void add_rule(steps &all, uint32_t number, const steps &decision) {
    all.push_back(unless_equal(number, decision.size()));
    all.insert(all.end(), decision.begin(), decision.end());
}

steps filter_steps(const filter_rules &rules) {
    steps all = {
        load(offsetof(seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, NATIVE_CALLS, 1, 0),
        give(SECCOMP_RET_USER_NOTIF),
        load(offsetof(seccomp_data, nr)),
#ifdef __x86_64__
        unless_at_least(FIRST_FOREIGN_CALL, 1),
        give(SECCOMP_RET_USER_NOTIF),
#endif
    };
    const port_descriptors ports = rules.ports.value_or(port_descriptors{});
    if (rules.own_time)
        for (const timed_call &row : TIMED_CALLS)
            add_rule(all, row.number, decide(row.when, ports));
    if (rules.ports)
        for (const call_row &row : STOPPED_CALLS)
            if (rules.own_time || may_fail_with_eintr(row.kind))
                add_rule(all, row.number, decide(row.when, ports));
    if (rules.process_starts && !rules.own_time) // which has those calls already
        for (const uint32_t number : STARTING_CALLS)
            add_rule(all, number, {give(SECCOMP_RET_USER_NOTIF)});
    add_rule(all, SYS_ioctl, decide_by_request(rules.ioctls));
    for (const uint32_t number : MOUNTING_CALLS)
        add_rule(all, number, {give(SECCOMP_RET_ERRNO | EPERM)});
    if (rules.own_time)
        add_rule(all, SEQUENCES_CALL, {give(SECCOMP_RET_ERRNO | ENOSYS)});
    all.push_back(give(SECCOMP_RET_ALLOW));
    return all;
}

} // namespace

bool is_native_call(uint32_t architecture, int number) {
#ifdef __x86_64__
    if (static_cast<uint32_t>(number) >= FIRST_FOREIGN_CALL)
        return false;
#else
    (void)number;
#endif
    return architecture == NATIVE_CALLS;
}

unique_fd install_request_filter(const filter_rules &rules) {
    steps all = filter_steps(rules);
    sock_fprog program{static_cast<unsigned short>(all.size()), all.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        (rules.own_time && personality(ADDR_NO_RANDOMIZE) < 0))
        return unique_fd();
    // With the second flag, a signal does not abort a request that the board has begun to carry
    // out. Kernels before 5.19 know only the first flag.
    for (const unsigned long flags :
         {SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV,
          SECCOMP_FILTER_FLAG_NEW_LISTENER}) {
        const long listener = syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, flags, &program);
        if (listener >= 0)
            return unique_fd(static_cast<int>(listener));
    }
    return unique_fd();
}

} // namespace simulator
