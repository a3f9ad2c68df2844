// Drives two field I/O modules on one sync port through their loopback harnesses, one module after
// the other. On each turn, a module that is not identified yet is asked for its type; an identified
// one gets a pass over its whole map.
//
// The stop and hold words are those of the first record. Each record counts for its own module; a
// failed open of the port counts in the first.

#include "fio/start.h"

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
    TestRecord &record;
    TestRecord &second_record;
    const char *port_name;
    fio_module first = {record, FIRST_MODULE};
    fio_module second = {second_record, SECOND_MODULE};
    int port = 0; // 0 and below: not open
    fio_frame request = {};
    fio_frame reply = {};

    void set_up() const;
    void turn();
    void before_nap();
    void release();
};

void serve(fio_loop &test, fio_module &module) {
    if (module.profile.map != nullptr) {
        (void)fio_map_pass(test.port, module.record, module.address, test.reply, test.request,
                           module.profile); // it counts and logs an early end
        return;
    }
    module.record.unit = atoi(test.port_name);
    (void)fio_identify(test.port, module.record, module.address, test.reply, test.request,
                       module.profile);
}

// Descriptor 0 counts as not open and stays open: the next turn opens another one.
void open_port(fio_loop &test) {
    test.port = open_sync_port(test.port_name);
    if (test.port < 0) {
        ++test.record.errors;
        set_shared_word(test.record.hold, HOLD_REQUESTED);
    }
}

void fio_loop::set_up() const {
    sched_param priority = {};
    (void)sched_getparam(0, &priority);
    priority.sched_priority = 4; // not applied: the process keeps the policy it inherited
}

void fio_loop::turn() {
    if (port > 0) {
        serve(*this, first);
        serve(*this, second);
    } else {
        open_port(*this);
    }
}

// After a hold the first module is identified again; the second keeps its type.
void fio_loop::before_nap() {
    first.profile = {};
    set_shared_word(second_record.hold, HOLD_ACKNOWLEDGED);
}

void fio_loop::release() {
    if (port > 0)
        (void)close(port);
}

} // namespace

pid_t fio_loop_test(int no_fork, const char *port) {
    TestRecord &first = claim_record(record_letter::FIO);
    TestRecord &second = claim_record(record_letter::RECEIVER); // the lists show it as one
    return start_test(no_fork, fio_loop{first, second, port});
}
