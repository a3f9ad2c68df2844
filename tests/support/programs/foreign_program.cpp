// A 32-bit program for a 64-bit machine, without a library: it opens a port and ends with status 7.
// The calls are those of i386's own table, see syscall(2).

extern "C" [[noreturn]] void _start() {
    constexpr int OPEN = 5;
    constexpr int EXIT = 1;
    int result;
    asm volatile("int $0x80" : "=a"(result) : "a"(OPEN), "b"("/dev/sp1"), "c"(2) : "memory");
    asm volatile("int $0x80" : "=a"(result) : "a"(EXIT), "b"(7) : "memory");
    __builtin_unreachable();
}
