#include "simulator/own_time/clock_functions.h"

#include "simulator/own_time/shared_memory.h"

#include <array>
#include <cstring>
#include <ctime>
#include <sys/syscall.h>

namespace simulator {

#if defined(__x86_64__)
// A time is copied by one instruction: no signal comes between its halves.
asm(R"(
    .macro end_of_clock_function name, call
\name\()_call:
    mov $\call, %eax
    syscall
    ret
\name\()_page:
    .quad 0
\name\()_end:
    .endm

    .pushsection .rodata
own_clock_gettime:                      # (clock, time)
    mov own_clock_gettime_page(%rip), %rax
    test %rax, %rax
    jz own_clock_gettime_call
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
    jz own_gettimeofday_call
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

# Nothing calls this one: a program comes here from its first system call, and goes on after that
# call. So it keeps what is below the stack pointer, and all registers but those that a system call
# changes.
own_mapping:
    lea -128(%rsp), %rsp
    push %rax
    push %rdi
    push %rsi
    push %rdx
    push %r8
    push %r9
    push %r10
    xor %edi, %edi                      # mmap(0, bytes, all rights, MAP_SHARED, lent, 0)
    mov $32768, %esi
    mov $7, %edx
    mov $1, %r10d
    mov own_mapping_lent(%rip), %r8d
    xor %r9d, %r9d
    mov $9, %eax
    syscall
    mov %rax, %r10                      # shows the address: the call does not use this argument
    mov own_mapping_lent(%rip), %edi    # close(lent)
    mov $3, %eax
    syscall
    xor %edi, %edi                      # clock_gettime(CLOCK_REALTIME, 0)
    xor %esi, %esi
    mov $228, %eax
    syscall
    pop %r10
    pop %r9
    pop %r8
    pop %rdx
    pop %rsi
    pop %rdi
    pop %rax
    lea 128(%rsp), %rsp
    jmp *own_mapping_return(%rip)
own_mapping_lent:
    .quad 0
own_mapping_return:
    .quad 0
own_mapping_end:
    .popsection
)");
static_assert(SYS_mmap == 9 && SYS_close == 3 && SYS_clock_gettime == 228 &&
              SYS_gettimeofday == 96);
static_assert(CLOCK_REALTIME == 0 && CLOCK_MONOTONIC == 1);
static_assert(offsetof(clock_page, calendar) == 16 && offsetof(clock_page, monotonic) == 32 &&
              offsetof(clock_page, time_of_day) == 48 && SHARED_BYTES == 32768);
extern "C" const uint8_t own_clock_gettime[], own_clock_gettime_end[];
extern "C" const uint8_t own_gettimeofday[], own_gettimeofday_end[];
extern "C" const uint8_t own_mapping[], own_mapping_end[];

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

std::vector<uint8_t> mapping_code(int lent, uint64_t return_address) {
    std::vector<uint8_t> code(own_mapping, own_mapping_end);
    const std::array<uint64_t, 2> words = {static_cast<uint64_t>(lent), return_address};
    memcpy(&code[code.size() - sizeof words], words.data(), sizeof words);
    return code;
}

std::vector<uint8_t> jump_to(uint64_t address) {
    std::vector<uint8_t> code = {0xff, 0x25, 0, 0, 0, 0}; // jmp *(%rip): of the next eight bytes
    code.resize(code.size() + sizeof address);
    memcpy(&code[code.size() - sizeof address], &address, sizeof address);
    return code;
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

std::vector<uint8_t> mapping_code(int, uint64_t) {
    return {};
}

std::vector<uint8_t> jump_to(uint64_t) {
    return {};
}

#endif

} // namespace simulator
