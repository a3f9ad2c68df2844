// This is no part of the board: a copy of it runs in the programs, see quick_calls.h. So it is
// compiled without anything that refers to another place (see CMakeLists.txt), and with the general
// registers alone, since its caller expects a system call.
#include "simulator/own_time/shared_memory.h"

#include <asm/ioctls.h>
#include <poll.h>
#include <sys/syscall.h>

#if defined(__x86_64__)

namespace simulator {

namespace {

constexpr int64_t NOT_QUICK = -1; // the program has to make the call

#define IN_PROGRAMS __attribute__((always_inline)) inline

IN_PROGRAMS bool is_known(const quick_page &page, uint64_t address, uint64_t bytes) {
    for (const memory_area &area : page.areas)
        if (address >= area.begin && address < area.end && bytes <= area.end - address)
            return true;
    return false;
}

IN_PROGRAMS void copy(void *to, const void *from, uint64_t bytes) {
    asm volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(bytes) : : "memory");
}

IN_PROGRAMS quick_port *find_port(quick_page &page, int descriptor) {
    for (uint32_t i = 0; i < page.port_count; i++)
        if (page.ports[i].descriptor == descriptor)
            return &page.ports[i];
    return nullptr;
}

IN_PROGRAMS int64_t poll_port(quick_page &page, uint64_t address, uint64_t count) {
    if (count != 1 || !is_known(page, address, sizeof(pollfd)))
        return NOT_QUICK;
    auto *polled = reinterpret_cast<pollfd *>(address);
    const quick_port *port = find_port(page, polled->fd);
    if (port == nullptr)
        return NOT_QUICK;
    const int found = port->events & (polled->events | POLLERR | POLLHUP);
    if (found == 0)
        return NOT_QUICK;
    polled->revents = static_cast<short>(found);
    return 1;
}

IN_PROGRAMS void note(quick_page &page, const quick_port &port, bool is_write, uint64_t bytes) {
    quick_entry &entry = page.entries[page.entry_count];
    entry.port = static_cast<uint32_t>(&port - page.ports);
    entry.is_write = is_write;
    entry.bytes = static_cast<uint32_t>(bytes);
    page.entry_count++;
}

IN_PROGRAMS int64_t read_port(quick_page &page, quick_port &port, uint64_t to, uint64_t bytes) {
    if (!port.is_readable || bytes == 0)
        return NOT_QUICK;
    const uint64_t done = bytes < port.waiting ? bytes : port.waiting;
    if (!is_known(page, to, done))
        return NOT_QUICK;
    copy(reinterpret_cast<void *>(to), port.input, done);
    port.is_readable = false;
    port.events = 0;
    note(page, port, false, done);
    return static_cast<int64_t>(done);
}

IN_PROGRAMS int64_t write_port(quick_page &page, quick_port &port, uint64_t from, uint64_t bytes) {
    if (bytes == 0 || bytes > port.room || bytes > quick_page::OUTPUT_BYTES - page.output_bytes ||
        !is_known(page, from, bytes))
        return NOT_QUICK;
    copy(&page.output[page.output_bytes], reinterpret_cast<const void *>(from), bytes);
    page.output_bytes += static_cast<uint32_t>(bytes);
    port.room -= static_cast<uint32_t>(bytes);
    port.is_drained = false;
    port.events = 0;
    note(page, port, true, bytes);
    return static_cast<int64_t>(bytes);
}

} // namespace

// The arguments of the call, its number, and the shared memory. The result, or NOT_QUICK.
extern "C" __attribute__((section("quick_code"), used, noinline)) int64_t
answer_call(uint64_t first, uint64_t second, uint64_t third, uint32_t call, uint8_t *shared) {
    auto &clock = *reinterpret_cast<clock_page *>(shared);
    auto &page = *reinterpret_cast<quick_page *>(shared + QUICK_PAGE_OFFSET);
    if (clock.reads_left <= 0 || page.entry_count >= quick_page::ENTRIES)
        return NOT_QUICK;
    int64_t result = NOT_QUICK;
    if (call == SYS_poll) {
        result = poll_port(page, first, second);
    } else if (quick_port *port = find_port(page, static_cast<int>(first)); port != nullptr) {
        if (call == SYS_read)
            result = read_port(page, *port, second, third);
        else if (call == SYS_write)
            result = write_port(page, *port, second, third);
        else if (second == TCSBRK && third != 0 && port->is_drained) // tcdrain(3)
            result = 0;
    }
    if (result != NOT_QUICK)
        clock.reads_left--;
    return result;
}

} // namespace simulator

#endif
