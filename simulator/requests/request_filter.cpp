#include "simulator/requests/request_filter.h"

#include <cstddef>
#include <cstdint>
#include <endian.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
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

// A call made through another processor's or another mode's table (x32: bit 30 of the number) has
// other numbers; it is let through.
#if defined(__x86_64__)
constexpr uint32_t NATIVE_CALLS = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr uint32_t NATIVE_CALLS = AUDIT_ARCH_AARCH64;
#elif defined(__powerpc64__) && __BYTE_ORDER == __LITTLE_ENDIAN
constexpr uint32_t NATIVE_CALLS = AUDIT_ARCH_PPC64LE;
#elif defined(__powerpc64__)
constexpr uint32_t NATIVE_CALLS = AUDIT_ARCH_PPC64;
#elif defined(__powerpc__)
constexpr uint32_t NATIVE_CALLS = AUDIT_ARCH_PPC;
#elif defined(__riscv) && __riscv_xlen == 64
constexpr uint32_t NATIVE_CALLS = AUDIT_ARCH_RISCV64;
#elif defined(__arm__)
constexpr uint32_t NATIVE_CALLS = AUDIT_ARCH_ARM;
#elif defined(__i386__)
constexpr uint32_t NATIVE_CALLS = AUDIT_ARCH_I386;
#else
#error "give this processor's AUDIT_ARCH_ number, see linux/audit.h"
#endif

constexpr uint32_t LOW_WORD = __BYTE_ORDER == __BIG_ENDIAN ? 4 : 0;

sock_filter load(size_t offset) {
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offset));
}

sock_filter give(uint32_t verdict) {
    return BPF_STMT(BPF_RET | BPF_K, verdict);
}

sock_filter skip_next_if(uint32_t value) {
    return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 1, 0);
}

sock_filter skip_next_unless(uint32_t value) {
    return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, 1);
}

std::vector<sock_filter> filter_steps(std::span<const uint32_t> stopped_ioctls) {
    std::vector<sock_filter> steps = {
        load(offsetof(seccomp_data, arch)),
        skip_next_if(NATIVE_CALLS),
        give(SECCOMP_RET_ALLOW),
        load(offsetof(seccomp_data, nr)),
        skip_next_if(SYS_ioctl),
        give(SECCOMP_RET_ALLOW),
        load(offsetof(seccomp_data, args) + sizeof(uint64_t) + LOW_WORD),
    };
    for (const uint32_t number : stopped_ioctls) {
        steps.push_back(skip_next_unless(number));
        steps.push_back(give(SECCOMP_RET_USER_NOTIF));
    }
    steps.push_back(give(SECCOMP_RET_ALLOW));
    return steps;
}

} // namespace

unique_fd install_request_filter(std::span<const uint32_t> stopped_ioctls) {
    std::vector<sock_filter> steps = filter_steps(stopped_ioctls);
    sock_fprog program{static_cast<unsigned short>(steps.size()), steps.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        return unique_fd();
    // With the second flag a signal does not abort a request that the board has begun to carry out;
    // kernels before 5.19 know only the first.
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
