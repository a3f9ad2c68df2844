#include "simulator/own_time/quick/call_sites.h"

#include "simulator/own_time/shared_memory.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <sys/syscall.h>

namespace simulator {

#if defined(__x86_64__)

// The function of answer_call.cpp is alone in its section, whose end the linker defines.
extern "C" const uint8_t quick_code_begin[] asm("answer_call");
extern "C" const uint8_t quick_code_end[] asm("__stop_quick_code");

namespace {

// The parts of a path. The red zone below the stack pointer is the program's. The lent code changes
// only registers that a system call may change, and those that are saved here.
constexpr auto SAVE = std::to_array<uint8_t>({
    0x48, 0x8d, 0x64, 0x24, 0x80, // lea -128(%rsp), %rsp
    0x57, 0x56, 0x52,             // push %rdi, %rsi, %rdx
    0x41, 0x50, 0x41, 0x51,       // push %r8, %r9
    0x41, 0x52,                   // push %r10
});
constexpr auto RESTORE = std::to_array<uint8_t>({
    0x41, 0x5a,                                     // pop %r10
    0x41, 0x59, 0x41, 0x58,                         // pop %r9, %r8
    0x5a, 0x5e, 0x5f,                               // pop %rdx, %rsi, %rdi
    0x48, 0x8d, 0xa4, 0x24, 0x80, 0x00, 0x00, 0x00, // lea 128(%rsp), %rsp
    0x48, 0x85, 0xc0,                               // test %rax, %rax
    0x78, 0x0e,                                     // js +14: over the next jump
});
constexpr uint8_t NUMBER_TO_ECX = 0xb9;
constexpr uint8_t NUMBER_TO_EAX = 0xb8;
constexpr auto ADDRESS_TO_R8 = std::to_array<uint8_t>({0x4c, 0x8d, 0x05}); // lea n(%rip), %r8
constexpr uint8_t NEAR_CALL = 0xe8;
constexpr uint8_t NEAR_JUMP = 0xe9;
constexpr uint8_t SHORT_JUMP = 0xeb;
constexpr auto FAR_JUMP = std::to_array<uint8_t>({0xff, 0x25, 0, 0, 0, 0}); // jmp *(%rip)
constexpr size_t NEAR_BYTES = 5;                                            // of a call or a jump
constexpr size_t SHORT_BYTES = 2;
constexpr auto ENTER_KERNEL = std::to_array<uint8_t>({0x0f, 0x05}); // syscall

// What the C library has after the instruction that enters the kernel, and what it fills the space
// to the next function with.
constexpr auto COMPARE_RESULT = std::to_array<uint8_t>({0x48, 0x3d, 0x00, 0xf0, 0xff, 0xff});
constexpr uint8_t JUMP_IF_ABOVE = 0x77;
constexpr uint8_t RETURN = 0xc3;
constexpr auto FILLER = std::to_array<uint8_t>({0x66, 0x2e, 0x0f, 0x1f, 0x84, 0, 0, 0, 0, 0});
constexpr auto READ_NUMBER = std::to_array<uint8_t>({0x31, 0xc0}); // xor %eax, %eax
static_assert(SYS_read == 0);

class code_writer {
public:
    void put(std::span<const uint8_t> bytes) {
        code.insert(code.end(), bytes.begin(), bytes.end());
    }
    void put(uint8_t byte) {
        code.push_back(byte);
    }
    template <class Number>
    void put_number(Number number) {
        std::array<uint8_t, sizeof number> bytes;
        memcpy(bytes.data(), &number, sizeof number);
        put(bytes);
    }
    // A number that is relative to the end of its own four bytes.
    void put_distance(uint64_t begin, uint64_t to) {
        const uint64_t end = begin + code.size() + sizeof(int32_t);
        put_number(static_cast<int32_t>(static_cast<int64_t>(to - end)));
    }
    std::vector<uint8_t> code;
};

bool starts_with(std::span<const uint8_t> bytes, std::span<const uint8_t> wanted) {
    return bytes.size() >= wanted.size() && std::ranges::equal(bytes.first(wanted.size()), wanted);
}

std::vector<uint8_t> near_jump(uint64_t from, uint64_t to) {
    code_writer jump;
    jump.put(NEAR_JUMP);
    jump.put_distance(from, to);
    return jump.code;
}

bool is_near(uint64_t site, uint64_t path) {
    constexpr int64_t REACH = int64_t{1} << 30;
    const auto distance = static_cast<int64_t>(path - site);
    return -REACH < distance && distance < REACH;
}

} // namespace

std::span<const uint8_t> quick_code() {
    return {quick_code_begin, quick_code_end};
}

std::vector<uint8_t> path_of(const call_site &site, uint64_t offset) {
    code_writer path;
    path.put(SAVE);
    path.put(NUMBER_TO_ECX);
    path.put_number(site.call);
    path.put(ADDRESS_TO_R8);
    path.put_distance(offset, 0);
    path.put(NEAR_CALL);
    path.put_distance(offset, QUICK_CODE_OFFSET);
    path.put(RESTORE);
    path.put(FAR_JUMP); // the call is answered
    path.put_number(site.address + ENTER_KERNEL.size());
    path.put(NUMBER_TO_EAX); // it is not: the program makes it
    path.put_number(site.call);
    path.put(FAR_JUMP);
    path.put_number(site.address);
    return path.code;
}

// The library loads the number of the call just before it enters the kernel. That instruction
// becomes the jump to the path; the one that enters the kernel stays, since threads may be in it.
// The number of read(2), 0, is loaded by a shorter instruction: it becomes a jump to the space
// after the function.
std::vector<code_change> change_site(const call_site &site, std::span<const uint8_t> around,
                                     uint64_t path) {
    if (around.size() != BEFORE_SITE + AFTER_SITE || !is_near(site.address, path))
        return {};
    const auto after = around.subspan(BEFORE_SITE);
    if (!starts_with(after, ENTER_KERNEL))
        return {};
    code_writer load;
    load.put(NUMBER_TO_EAX);
    load.put_number(site.call);
    if (starts_with(around, load.code))
        return {{-int64_t{NEAR_BYTES}, near_jump(site.address - NEAR_BYTES, path)}};

    constexpr size_t FUNCTION_END = ENTER_KERNEL.size() + COMPARE_RESULT.size() + 3;
    const bool is_read =
        site.call == SYS_read &&
        starts_with(around.subspan(BEFORE_SITE - READ_NUMBER.size()), READ_NUMBER) &&
        starts_with(after.subspan(ENTER_KERNEL.size()), COMPARE_RESULT) &&
        after[FUNCTION_END - 3] == JUMP_IF_ABOVE && after[FUNCTION_END - 1] == RETURN &&
        starts_with(after.subspan(FUNCTION_END), FILLER);
    if (!is_read)
        return {};
    return {{FUNCTION_END, near_jump(site.address + FUNCTION_END, path)},
            {-int64_t{SHORT_BYTES}, {SHORT_JUMP, static_cast<uint8_t>(FUNCTION_END)}}};
}

uint64_t target_of_site(uint64_t address, std::span<const uint8_t> around) {
    if (around.size() != BEFORE_SITE + AFTER_SITE)
        return 0;
    size_t jump = 0;
    if (around[BEFORE_SITE - SHORT_BYTES] == SHORT_JUMP)
        jump = BEFORE_SITE + around[BEFORE_SITE - SHORT_BYTES + 1];
    if (jump + NEAR_BYTES > around.size() || around[jump] != NEAR_JUMP)
        return 0;
    int32_t distance = 0;
    memcpy(&distance, &around[jump + 1], sizeof distance);
    const uint64_t end = address - BEFORE_SITE + jump + NEAR_BYTES;
    return end + static_cast<uint64_t>(int64_t{distance});
}

#else // the code of this processor is not written

std::span<const uint8_t> quick_code() {
    return {};
}

std::vector<uint8_t> path_of(const call_site &, uint64_t) {
    return {};
}

std::vector<code_change> change_site(const call_site &, std::span<const uint8_t>, uint64_t) {
    return {};
}

uint64_t target_of_site(uint64_t, std::span<const uint8_t>) {
    return 0;
}

#endif

} // namespace simulator
