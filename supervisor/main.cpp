// hk_stress: the hardware stress test of the controller board. The command line is the test plan,
// see option_table.cpp; each test runs in its own process and counts into the status table.

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include "runtime/print.h"
#include "runtime/settings.h"
#include "runtime/system_log.h"
#include "supervisor/led.h"
#include "supervisor/mac_address.h"
#include "supervisor/plan/option_walk.h"
#include "supervisor/run_loop.h"
#include "supervisor/status_table.h"

namespace {

// If one of the three is closed, a device opened later would get its number and the program would
// write the report into the device.
void occupy_standard_descriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
        if (fcntl(fd, F_GETFD) < 0)
            (void)open("/dev/null", O_RDWR); // open returns the lowest free number: this one
}

bool create_table() {
    set_status_table(status_table_attach(TABLE_RECORDS));
    if (status_table == nullptr) {
        print(STDERR_FILENO, "hk_stress: no shared memory for the status table (see ipcs -lm "
                             "and ipcs -m), nothing started\n");
        return false;
    }
    *status_table = {};
    sync_owner = 0;
    status_table->records[0].pid = getpid();
    return true;
}

void prepare_board() {
    name_board();
    tx_buffer.fill(0xAA);
    (void)led_toggle();
    (void)mlockall(MCL_CURRENT); // best effort; each test repeats it after its fork
}

// Takes over the settings after the whole plan is read. Signals wait until the settings and the log
// are ready for the handler.
void close_plan() {
    const sigset_t before = block_handled_signals();
    install_signals();

    sched_param priority = {};
    (void)sched_getparam(0, &priority);
    priority.sched_priority = 2; // not applied: the supervisor keeps the default policy

    open_system_log();
    clamp_periods();
    process_count =
        record_count - bogus_count; // a stop kills records 1..process_count + bogus_count
    (void)sigprocmask(SIG_SETMASK, &before, nullptr);
}

void start_run() {
    print(STDERR_FILENO, "proc %d bogus %d\n", record_count, bogus_count);
    record_count = 1; // from here on the number of ended processes plus one
    start_timer();
    print(STDERR_FILENO, "numproc %d indx %d\n", process_count, record_count);
}

} // namespace

int main(int argc, char **argv) {
    occupy_standard_descriptors();
    restore_default_signals();
    if (!create_table())
        return 1;
    prepare_board();

    argc = std::min(argc, ARGUMENTS_MAX);
    if (argc == 1) {
        print_usage(argv[0]);
        return 0;
    }
    walk_options(argc, argv);

    close_plan();
    start_run();
    run_until_reaped();
    status_table_detach();
    return 0;
}
