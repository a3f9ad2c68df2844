// Tests main memory: pass after pass maps three quarters of it in blocks of 64 KiB, fills each with
// 0xAA, reads every byte back and wipes it. A stop or a hold is seen between passes.

#include "storage/dram.h"

#include <cstdlib>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "runtime/runner.h"
#include "storage/dram_pass.h"

pid_t dram_test(int no_fork) {
    TestRecord &record = claim_record('D');
    if (no_fork != 0)
        return no_fork;
    const pid_t child = start_test();
    if (child != 0)
        return child;

    set_shared_word(record.pid, getpid());
    const uint32_t limit = dram_pass_limit(static_cast<uint64_t>(get_phys_pages()),
                                           static_cast<uint64_t>(getpagesize()));
    while (!told_to_stop(record)) {
        if (is_held(record)) {
            hold_nap(record, HOLD_NAP_US);
            continue;
        }
        dram_pass(record, limit);
    }
    mark_finished(record);
    exit(TEST_EXIT_STATUS);
}
