#include "simulator/own_time/calls/work_costs.h"

#include "simulator/base/message.h"
#include "simulator/base/text.h"
#include "simulator/requests/stopped_calls.h"

#include <algorithm>
#include <iterator>
#include <sys/mman.h>
#include <sys/syscall.h>

namespace simulator {

namespace {

constexpr number_range COST_US = {0, 1'000'000};

struct named_cost {
    const char *name;
    int work_costs::*cost_us;
};

constexpr named_cost NAMED_COSTS[] = {
    {"open", &work_costs::open_us},
    {"mmap", &work_costs::mmap_us},
    {"sync", &work_costs::sync_us},
};

} // namespace

int64_t work_costs::of(const request &asked) const {
    if (opens_file(asked.call))
        return open_us;
    switch (asked.call) {
    case SYS_mmap: // addresses without memory, as an emulator keeps them free, are no work
        return asked.arguments[2] != PROT_NONE ? mmap_us : 0;
    case SYS_sync:
    case SYS_fsync:
    case SYS_fdatasync:
        return sync_us;
    default:
        return 0;
    }
}

bool take_work_costs(work_costs &costs, const char *text) {
    for (const std::string &each : split(text, ',')) {
        const auto [name, number] = split_once(each, '=');
        const auto *found = std::ranges::find(NAMED_COSTS, name, &named_cost::name);
        if (found == std::end(NAMED_COSTS) || !read_number(number, COST_US, costs.*found->cost_us))
            return complain("--clock-costs %s: %s: a cost is open=, mmap= or sync= and 0 to %d "
                            "microseconds, as in --clock-costs open=100,sync=5000",
                            text, each.c_str(), COST_US.most);
    }
    return true;
}

} // namespace simulator
