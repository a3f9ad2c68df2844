// Faults that the operator puts into the board:
// --fault KIND:TARGET[:NUMBER]...[@FROM-TO][~RATE]. Each is offered to every device; the one that
// has the target takes it.
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

    // Whether the fault is present, as a state; nothing is counted. Times here are those of
    // `now_us`.
    bool is_active(int64_t now) const;
    // Whether it breaks the thing at hand, and counts it if it does.
    bool strikes(int64_t now) const;
    // The same for a fault of every Nth thing, N its first number; `thing` counts from 1.
    bool strikes_nth(int64_t now, uint32_t thing) const;
    // Counts what a state has broken.
    void count_strike() const;
    int64_t next_change(int64_t now) const;

    // When the run started; before, each time counts as its start.
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

    std::shared_ptr<course> shared = std::make_shared<course>(); // with all copies of the fault
};

// Whether the fault is one that such a thing ("port", "cable", "module") can have.
bool is_fault_of(const fault &wanted, std::string_view thing);

// Reads one --fault argument into the faults there are: the same fault with another window adds the
// window. Random moments follow `seed` and the fault's text. False when it is none, after saying on
// standard error which there are.
bool add_fault(const char *text, uint64_t seed, std::vector<fault> &faults);

// Writes the valid forms with their meanings, one a line, to descriptor `fd`.
void print_fault_kinds(int fd);

} // namespace simulator
