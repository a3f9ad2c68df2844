// Tests main memory: each pass maps three quarters of it in blocks of 64 KiB, fills each block with
// 0xAA, reads every byte back and wipes it. A stop or a hold takes effect between passes.

#include "storage/start.h"

#include <sys/sysinfo.h>
#include <unistd.h>

#include "runtime/runner.h"
#include "storage/dram_pass.h"

namespace {

struct dram {
    TestRecord &record;
    uint32_t limit = 0; // bytes in each pass

    void set_up() {
        limit = dram_pass_limit(static_cast<uint64_t>(get_phys_pages()),
                                static_cast<uint64_t>(getpagesize()));
    }

    void turn() {
        dram_pass(record, limit);
    }
};

} // namespace

pid_t dram_test(int no_fork) {
    return start_test(no_fork, dram{claim_record(record_letter::DRAM)});
}
