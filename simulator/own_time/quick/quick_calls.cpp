#include "simulator/own_time/quick/quick_calls.h"

#include "simulator/base/message.h"
#include "simulator/requests/timed_calls.h"

#include <algorithm>
#include <array>
#include <asm/ioctls.h>
#include <csignal>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace simulator {

namespace {

constexpr uint64_t KERNEL_ENTRY_BYTES = 2; // of the instruction

bool may_be_quick(const request &asked) {
    switch (asked.call) {
    case SYS_read:
    case SYS_write:
#ifdef SYS_poll
    case SYS_poll:
#endif
        return true;
    case SYS_ioctl:
        return asked.ioctl_number() == TCSBRK;
    default:
        return false;
    }
}

bool changes_memory(const request &asked) {
    const timed_call *row = find_timed_call(asked.call);
    return asked.call == SYS_mmap || (row != nullptr && row->kind == timed_kind::memory);
}

} // namespace

quick_calls::quick_calls(const program_clock &shared, const port_calls &all_calls)
    : clock(shared), calls(all_calls) {
    const std::span<const uint8_t> code = quick_code();
    uint8_t *memory = clock.shared_memory();
    if (memory == nullptr || code.empty() || code.size() > QUICK_PATHS_OFFSET - QUICK_CODE_OFFSET)
        return;
    std::ranges::copy(code, memory + QUICK_CODE_OFFSET);
    page = reinterpret_cast<quick_page *>(memory + QUICK_PAGE_OFFSET);
}

void quick_calls::learn(const thread &stopped) {
    const request &asked = stopped.asked;
    if (page == nullptr || !may_be_quick(asked))
        return;
    user &of = users[stopped.owner->id];
    if (!of.known.insert(asked.place).second)
        return;
    const uint64_t memory = clock.address_in(stopped.owner->id);
    const call_site site{asked.place - KERNEL_ENTRY_BYTES, static_cast<uint32_t>(asked.call)};
    if (memory != 0 && change(stopped, site, memory))
        of.has_paths = true;
}

// A forked process has the changes of its parent.
bool quick_calls::change(const thread &stopped, const call_site &site, uint64_t memory) {
    const unique_fd file = open_memory(stopped.owner->id);
    std::array<uint8_t, BEFORE_SITE + AFTER_SITE> around{};
    if (pread(file.get(), around.data(), around.size(),
              static_cast<off_t>(site.address - BEFORE_SITE)) != std::ssize(around))
        return false;
    const uint64_t target = target_of_site(site.address, around);
    if (target >= memory + QUICK_PATHS_OFFSET && target < memory + SHARED_BYTES)
        return true;
    const uint64_t path = path_to(site);
    if (path == 0)
        return false;
    const std::vector<code_change> changes = change_site(site, around, memory + path);
    for (const code_change &each : changes)
        if (pwrite(file.get(), each.code.data(), each.code.size(),
                   static_cast<off_t>(site.address) + each.offset) != std::ssize(each.code))
            return false;
    return !changes.empty();
}

// The offset of the path in the shared memory; 0 if there is no room for one more.
uint64_t quick_calls::path_to(const call_site &site) {
    uint64_t &offset = paths[{site.address, site.call}];
    const std::vector<uint8_t> code = path_of(site, paths_end);
    if (offset != 0 || code.size() > SHARED_BYTES - paths_end)
        return offset;
    std::ranges::copy(code, clock.shared_memory() + paths_end);
    return offset = std::exchange(paths_end, paths_end + code.size());
}

void quick_calls::offer(const thread &of, bool may_use) {
    if (page == nullptr)
        return;
    page->port_count = 0;
    if (changes_memory(of.asked)) {
        forget_areas(of.owner->id);
        forget_areas(of.owner->parent); // which may have the same memory, see vfork(2)
        return;
    }
    const auto found = users.find(of.owner->id);
    if (!may_use || found == users.end() || !found->second.has_paths)
        return;
    user &offered = found->second;
    if (!std::exchange(offered.knows_areas, true))
        offered.areas = writable_areas_of(of.owner->id);
    holder = of.owner->id;
    page->areas[0] = offered.areas.data;
    page->areas[1] = offered.areas.stack;
    ports.clear();
    calls.add_known_ports(of.id, ports);
    ports.resize(std::min(ports.size(), quick_page::PORTS));
    for (const auto &[descriptor, port] : ports) {
        quick_port &given = page->ports[page->port_count++];
        const line::at_once now = port->model.foresee(line_now(), given.input);
        given.descriptor = descriptor;
        given.events = now.events;
        given.is_readable = now.readable > 0;
        given.waiting = static_cast<uint32_t>(now.readable);
        given.is_drained = now.is_drained;
        given.room = static_cast<uint32_t>(now.room);
    }
}

void quick_calls::forget_areas(pid_t process) {
    if (const auto found = users.find(process); found != users.end())
        found->second.knows_areas = false;
}

void quick_calls::take_over() {
    if (page == nullptr || page->entry_count == 0)
        return;
    size_t begin = 0; // of the output
    const auto count = std::min<size_t>(page->entry_count, quick_page::ENTRIES);
    for (const quick_entry &entry : std::span(page->entries).first(count)) {
        if (!has_same_result(entry, begin)) {
            end_holder();
            break;
        }
        begin += entry.is_write ? entry.bytes : 0;
    }
    page->entry_count = page->output_bytes = 0;
}

// The program may have damaged the page.
void quick_calls::end_holder() const {
    report(
        "process %d is ended: it has answered a call as the board would not have; has it written "
        "to memory that is not its own?",
        static_cast<int>(holder));
    (void)kill(holder, SIGKILL);
}

bool quick_calls::has_same_result(const quick_entry &entry, size_t begin) const {
    if (entry.port >= ports.size() || entry.bytes > quick_page::OUTPUT_BYTES - begin)
        return false;
    line::port &port = ports[entry.port].second->model;
    line::outcome outcome;
    if (entry.is_write) {
        const auto bytes = std::span(page->output).subspan(begin, entry.bytes);
        line::write_call call{.bytes = bytes, .nonblocking = true};
        outcome = port.write(line_now(), call);
    } else {
        std::array<uint8_t, quick_port::INPUT_BYTES> input;
        const size_t bytes = std::min<size_t>(entry.bytes, input.size());
        line::read_call call{.bytes = std::span(input).first(bytes), .nonblocking = true};
        outcome = port.read(line_now(), call);
    }
    return !outcome.is_waiting && outcome.result == entry.bytes;
}

} // namespace simulator
