#include "simulator/time/calls/child_calls.h"

#include <cstdint>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace simulator {

namespace {

// The process that waitid is for, as wait4 has it.
pid_t wanted_by_waitid(const request &asked) {
    const auto id = static_cast<pid_t>(asked.arguments[1]);
    switch (asked.arguments[0]) {
    case P_PID:
        return id;
    case P_PGID:
        return id == 0 ? 0 : -id;
    default:
        return -1;
    }
}

struct wait_for_child final : stopped_call {
    wait_for_child(const request &of, const thread &caller, process_table &table)
        : stopped_call(of),
          process(caller.owner->id),
          wanted(of.call == SYS_waitid ? wanted_by_waitid(of)
                                       : static_cast<pid_t>(of.arguments[0])),
          options(static_cast<int>(of.arguments[of.call == SYS_waitid ? 3 : 2])),
          processes(table) {}

    verdict attempt() override {
        using children = process_table::children;
        const children found = processes.look_for_children(process, wanted);
        const bool waits =
            found == children::alive || (found == children::stopped && (options & WUNTRACED) == 0);
        return waits && (options & WNOHANG) == 0 ? verdict::blocked(NEVER) : verdict::passed_on();
    }
    uint64_t changes() const override {
        return processes.changes;
    }
    verdict interrupt() override {
        return verdict::passed_on();
    }

private:
    const pid_t process;
    const pid_t wanted;
    const int options;
    process_table &processes;
};

} // namespace

std::unique_ptr<stopped_call> make_wait_for_child(const request &asked, const thread &caller,
                                                  process_table &processes) {
    return std::make_unique<wait_for_child>(asked, caller, processes);
}

} // namespace simulator
