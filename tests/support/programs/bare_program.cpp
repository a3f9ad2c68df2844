// A program of the host without a C library: it sleeps for 0.2 s and ends with status 0. Its first
// system call is the sleep.

#include <ctime>
#include <sys/syscall.h>

namespace {

long call(long number, long first, long second) {
    long result;
    asm volatile("syscall"
                 : "=a"(result)
                 : "a"(number), "D"(first), "S"(second)
                 : "rcx", "r11", "memory");
    return result;
}

} // namespace

extern "C" [[noreturn]] void _start() {
    const timespec span = {0, 200'000'000};
    (void)call(SYS_nanosleep, reinterpret_cast<long>(&span), 0);
    (void)call(SYS_exit, 0, 0);
    __builtin_unreachable();
}
