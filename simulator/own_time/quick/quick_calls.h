// Calls on ports that a program need not make.
//
// A stopped call costs two switches between the program and the board. Most calls on ports return
// at once: a poll that finds input, the read of it, a write for which there is room, a tcdrain(3)
// with nothing to wait for. Before a thread goes on, the board knows what these would return, since
// its clock does not move while the thread runs. It writes that into memory that it shares with the
// program (shared_memory.h), and code that it lends to the program answers such a call there. The
// code notes what was read and written. When the thread is stopped again, or has ended, the board
// does the same with its ports before anything else happens. So a run is the same with and without
// quick calls.
//
// The way there. The first call from each place in a program is stopped. If the instructions there
// are those of the C library, the board changes the one that loads the number of the call
// into a jump to a path in the shared memory, which leads to the lent code and back. The path has
// to be within 1 GiB of the place, as it is for a shared library. All other calls, such as those of
// an emulator, are stopped as ever. So is every call that the lent code does not answer, for
// instance one that would wait or fail, that follows a read of the same port, or whose bytes are
// neither in the data, with the heap, nor on the first stack of the program.
//
// A quick call counts as a read of the time does, see clock_stub.h: it takes one off the same
// number, which is 0 whenever something else could run meanwhile and for --calls. With --calls no
// such place is changed.
//
// What differs. A program's own filter (seccomp(2)) and syscall user dispatch do not see its quick
// calls. Each call needs some 300 bytes of the stack. getrusage(2) shows fewer waits. A quick call
// on a guard page made by madvise(2) ends the program.
#pragma once

#include "simulator/devices/serial/port_calls.h"
#include "simulator/own_time/clock_stub.h"
#include "simulator/own_time/processes.h"
#include "simulator/own_time/quick/call_sites.h"
#include "simulator/own_time/shared_memory.h"
#include "simulator/own_time/task_view.h"

#include <map>
#include <set>
#include <utility>
#include <vector>

namespace simulator {

class quick_calls {
public:
    quick_calls(const program_clock &shared, const port_calls &all_calls);

    // A thread has been stopped in a call: from now on its process may make that call quickly.
    void learn(const thread &stopped);
    // The process has ended, or has another program.
    void forget(pid_t process) {
        users.erase(process);
    }

    // Before a thread goes on: what its calls on ports would return. Nothing if it may not make
    // quick calls, or if the call that it has made changes the memory of its process.
    void offer(const thread &of, bool may_use);
    // When it does not run any more: does to the ports what it has done.
    void take_over();

private:
    struct user {
        std::set<uint64_t> known; // the places of calls that have been looked at
        bool has_paths = false;
        bool knows_areas = false; // false: look at them again
        writable_areas areas;
    };

    void forget_areas(pid_t process);
    bool change(const thread &stopped, const call_site &site, uint64_t memory);
    uint64_t path_to(const call_site &site);
    void end_holder() const;
    bool has_same_result(const quick_entry &entry, size_t begin) const;

    const program_clock &clock;
    const port_calls &calls;
    quick_page *page = nullptr; // none: there are no quick calls
    pid_t holder = 0;           // the process to which the page was offered last
    std::map<pid_t, user> users;
    std::map<std::pair<uint64_t, uint32_t>, uint64_t> paths; // by address and number of the call
    uint64_t paths_end = QUICK_PATHS_OFFSET;
    std::vector<std::pair<int, serial_port *>> ports; // in the page, with their descriptors
};

} // namespace simulator
