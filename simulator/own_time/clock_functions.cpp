#include "simulator/own_time/clock_functions.h"

#include <cstring>
#include <ctime>
#include <sys/syscall.h>

namespace simulator {

#if defined(__x86_64__)
// Until the address of the page is known, a read maps the page. The call for the time that follows
// has the address as its fourth argument, which it does not use: so the board learns it.
//
// A time is copied by one instruction: no signal comes between its halves.
asm(R"(
    .macro end_of_clock_function name, call
\name\()_unmapped:
    push %rdi
    push %rsi
    xor %edi, %edi                      # mmap(0, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, lent, 0)
    mov $4096, %esi
    mov $3, %edx
    mov $1, %r10d
    mov \name\()_lent(%rip), %r8d
    xor %r9d, %r9d
    mov $9, %eax
    syscall
    mov %rax, %r10
    mov \name\()_lent(%rip), %edi       # close(lent)
    mov $3, %eax
    syscall
    pop %rsi
    pop %rdi
\name\()_call:
    mov $\call, %eax
    syscall
    ret
\name\()_page:
    .quad 0
\name\()_lent:
    .quad 0
\name\()_end:
    .endm

    .pushsection .rodata
own_clock_gettime:                      # (clock, time)
    mov own_clock_gettime_page(%rip), %rax
    test %rax, %rax
    jz own_clock_gettime_unmapped
    cmp $1, %edi                        # CLOCK_REALTIME, CLOCK_MONOTONIC
    ja own_clock_gettime_call
    decl (%rax)
    js own_clock_gettime_call
    shl $4, %edi
    movups 16(%rax, %rdi), %xmm0
    movups %xmm0, (%rsi)
    xor %eax, %eax
    ret
    end_of_clock_function own_clock_gettime, 228

own_gettimeofday:                       # (time, zone)
    mov own_gettimeofday_page(%rip), %rax
    test %rax, %rax
    jz own_gettimeofday_unmapped
    test %rdi, %rdi
    jz own_gettimeofday_call
    test %rsi, %rsi
    jnz own_gettimeofday_call
    decl (%rax)
    js own_gettimeofday_call
    movups 48(%rax), %xmm0
    movups %xmm0, (%rdi)
    xor %eax, %eax
    ret
    end_of_clock_function own_gettimeofday, 96
    .popsection
)");
static_assert(SYS_mmap == 9 && SYS_close == 3 && SYS_clock_gettime == 228 &&
              SYS_gettimeofday == 96);
static_assert(CLOCK_REALTIME == 0 && CLOCK_MONOTONIC == 1);
static_assert(offsetof(clock_page, calendar) == 16 && offsetof(clock_page, monotonic) == 32 &&
              offsetof(clock_page, time_of_day) == 48 && CLOCK_PAGE_BYTES == 4096);
extern "C" const uint8_t own_clock_gettime[], own_clock_gettime_end[];
extern "C" const uint8_t own_gettimeofday[], own_gettimeofday_end[];

namespace {

const clock_function CLOCK_FUNCTIONS[] = {
    {"__vdso_clock_gettime", SYS_clock_gettime, {own_clock_gettime, own_clock_gettime_end}},
    {"__vdso_gettimeofday", SYS_gettimeofday, {own_gettimeofday, own_gettimeofday_end}},
    {"__vdso_time", SYS_time, {}},
};

} // namespace

std::span<const clock_function> clock_functions() {
    return CLOCK_FUNCTIONS;
}

// mov eax, number; syscall; ret
std::vector<uint8_t> plain_call(uint32_t number) {
    std::vector<uint8_t> code = {0xb8, 0, 0, 0, 0, 0x0f, 0x05, 0xc3};
    memcpy(&code[1], &number, sizeof number);
    return code;
}

#else // the code of this processor is not written

std::span<const clock_function> clock_functions() {
    return {};
}

std::vector<uint8_t> plain_call(uint32_t) {
    return {};
}

#endif

} // namespace simulator
