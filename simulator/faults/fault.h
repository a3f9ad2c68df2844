// Faults that the operator puts into the board: --fault KIND:TARGET[:NUMBER]...[@FROM-TO][~RATE].
// The board asks every device to take each fault; the device that has the target does.
#pragma once

#include "simulator/faults/fault_clock.h"
#include "simulator/faults/fault_kinds.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

struct fault {
    const fault_kind *kind = nullptr;
    std::string text;         // without times, for messages
    std::string target;       // a port, a cable, a module address, the name of a part
    std::vector<int> numbers; // each in its range

    // True while the fault is present as a state. Counts nothing. Times are those of `now_us`.
    bool is_active(int64_t now) const;
    // True if the fault strikes now; counts the strike.
    bool strikes(int64_t now) const;
    // The same for a fault of every Nth thing, where N is its first number. `thing` counts from 1.
    bool strikes_nth(int64_t now, uint32_t thing) const;
    // Counts one strike of a state.
    void count_strike() const;
    int64_t next_change(int64_t now) const;

    // Sets the start of the run. Before this call, every time counts as the start.
    void start(int64_t now) const;
    uint64_t strike_count() const;
    fault_clock &clock() const;

private:
    struct course {
        fault_clock clock;
        int64_t start_us = NOT_STARTED;
        uint64_t strikes = 0;
    };
    static constexpr int64_t NOT_STARTED = INT64_MAX;

    int64_t run_time(int64_t now) const;

    std::shared_ptr<course> shared = std::make_shared<course>(); // by all copies of the fault
};

// True if such a thing ("port", "cable", "module") can have the fault.
bool is_fault_of(const fault &wanted, std::string_view thing);

// Reads one --fault argument and adds it to `faults`; a fault that is already there gets the new
// window too. `seed` and the fault's text determine the random moments. If the argument is not
// valid, writes what is valid to standard error and returns false.
bool add_fault(const char *text, uint64_t seed, std::vector<fault> &faults);

// Writes the valid forms with their meanings, one a line, to descriptor `fd`.
void print_fault_kinds(int fd);

} // namespace simulator
