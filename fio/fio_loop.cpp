// Drives two field I/O modules on one sync port through their loopback harnesses, one module after
// the other. A module that is not identified yet is asked what it is on each turn; one that is gets
// a pass over its whole map.
//
// The first record owns the stop and hold words of the test. Both records count, each for its own
// module; a port that cannot be opened counts in the first.

#include "fio/fio_loop.h"

#include <cstdlib>
#include <sched.h>
#include <unistd.h>

#include "fio/fio_module.h"
#include "runtime/runner.h"
#include "serial/port_access.h"

namespace {

struct fio_module {
    TestRecord &record;
    uint8_t address;
    module_profile profile = {};
};

struct fio_loop {
    const char *port_name;
    fio_module first;
    fio_module second;
    int port = 0; // 0 and below: not open
    fio_frame request = {};
    fio_frame reply = {};
};

void serve(fio_loop &test, fio_module &module) {
    if (module.profile.map != nullptr) {
        (void)fio_map_pass(test.port, module.record, module.address, test.reply, test.request,
                           module.profile); // a pass that ended early is counted and logged
        return;
    }
    module.record.unit = atoi(test.port_name);
    (void)fio_identify(test.port, module.record, module.address, test.reply, test.request,
                       module.profile);
}

// A descriptor 0 counts as not open and stays behind: the next turn gets another one.
void open_port(fio_loop &test) {
    test.port = open_sync_port(test.port_name);
    if (test.port < 0) {
        ++test.first.record.errors;
        set_shared_word(test.first.record.hold, HOLD_REQUESTED);
    }
}

// The first module is identified anew after a hold; the second goes on as it was.
void take_hold(fio_loop &test) {
    test.first.profile = {};
    set_shared_word(test.second.record.hold, HOLD_ACKNOWLEDGED);
    hold_nap(test.first.record, HOLD_NAP_US);
}

void run_fio_loop(fio_loop &test) {
    sched_param priority = {};
    (void)sched_getparam(0, &priority);
    priority.sched_priority = 4; // not applied: the process keeps the policy it inherited
    set_shared_word(test.second.record.pid, getpid());
    set_shared_word(test.first.record.pid, getpid());

    while (!told_to_stop(test.first.record)) {
        if (is_held(test.first.record)) {
            take_hold(test);
        } else if (test.port > 0) {
            serve(test, test.first);
            serve(test, test.second);
        } else {
            open_port(test);
        }
    }
    set_shared_word(test.second.record.pid, PID_FINISHED);
    mark_finished(test.first.record);
    if (test.port > 0)
        (void)close(test.port);
}

} // namespace

pid_t fio_loop_test(int no_fork, const char *port) {
    TestRecord &first = claim_record('F');
    TestRecord &second = claim_record('C');
    if (no_fork != 0)
        return no_fork;

    const pid_t child = start_test();
    if (child != 0)
        return child;
    fio_loop test = {port, {first, FIRST_MODULE}, {second, SECOND_MODULE}};
    run_fio_loop(test);
    exit(TEST_EXIT_STATUS);
}
