#include "simulator/faults/fault.h"

#include "simulator/base/message.h"
#include "simulator/time/clock.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace simulator {

namespace {

constexpr double WINDOW_SECONDS_MAX = 1e9;
constexpr double RATE_MAX = 1e6; // events per hour

// The parts of "KIND:TARGET:N.N": the numbers are separated by colons or points.
std::vector<std::string> fault_parts(const std::string &text) {
    std::vector<std::string> parts;
    for (const std::string &part : split(text, ':')) {
        const bool is_number = parts.size() >= 2;
        for (const std::string &piece : is_number ? split(part, '.') : std::vector{part})
            parts.push_back(piece);
    }
    return parts;
}

const fault_kind *find_kind(const std::string &name) {
    for (const fault_kind &kind : FAULT_KINDS)
        if (name == kind.name)
            return &kind;
    return nullptr;
}

bool read_parts(const std::vector<std::string> &parts, fault &parsed) {
    parsed.kind = find_kind(parts[0]);
    if (parsed.kind == nullptr || parts.size() != 2 + parsed.kind->numbers || parts[1].empty())
        return false;
    parsed.target = parts[1];
    parsed.numbers.resize(parsed.kind->numbers);
    for (size_t i = 0; i < parsed.numbers.size(); i++)
        if (!read_number(parts[2 + i], i == 0 ? parsed.kind->first : parsed.kind->second,
                         parsed.numbers[i]))
            return false;
    const bool is_no_change = parsed.kind->id == fault_id::speed && parsed.numbers[0] == 0;
    return !is_no_change;
}

// "FROM-TO" or "FROM-".
bool read_window(const std::string &text, fault_window &window) {
    const auto [from, to] = split_once(text, '-');
    window.to_us = NEVER;
    return text.find('-') != std::string::npos &&
           read_seconds(from, WINDOW_SECONDS_MAX, window.from_us) &&
           (to.empty() || read_seconds(to, WINDOW_SECONDS_MAX, window.to_us)) &&
           window.from_us < window.to_us;
}

bool read_rate(const std::string &text, double &per_hour) {
    char *end = nullptr;
    per_hour = strtod(text.c_str(), &end);
    return *end == '\0' && per_hour > 0 && per_hour <= RATE_MAX; // false for "nan" as well
}

// The texts after the numbers: a window, a rate, or both.
struct fault_times {
    std::string window;
    std::string rate;
};

fault_times cut_off_times(std::string &text) {
    fault_times times;
    if (const size_t at = text.find('~'); at != std::string::npos) {
        times.rate = text.substr(at);
        text.resize(at);
    }
    if (const size_t at = text.find('@'); at != std::string::npos) {
        times.window = text.substr(at);
        text.resize(at);
    }
    return times;
}

// Gives each fault a seed of its own, so that faults do not strike together.
uint64_t seed_of(const std::string &text, uint64_t seed) {
    constexpr uint64_t FNV_PRIME = 0x100000001B3; // the FNV-1a hash
    uint64_t hash = seed ^ 0xCBF29CE484222325;
    for (const char letter : text)
        hash = (hash ^ static_cast<unsigned char>(letter)) * FNV_PRIME;
    return hash;
}

bool add_times(const fault_times &times, uint64_t seed, const fault &wanted) {
    fault_window window{};
    double per_hour = 0;
    if (!times.window.empty() && !read_window(times.window.substr(1), window))
        return complain(
            "--fault %s%s: a window is seconds from the start of the run, @FROM-TO with "
            "FROM below TO, or @FROM- for good",
            wanted.text.c_str(), times.window.c_str());
    if (!times.rate.empty() && !read_rate(times.rate.substr(1), per_hour))
        return complain("--fault %s%s: a rate is events per hour, above 0 and up to 1000000, as in "
                        "~60",
                        wanted.text.c_str(), times.rate.c_str());
    if (!times.window.empty())
        wanted.clock().add_window(window);
    if (!times.rate.empty())
        wanted.clock().set_rate(per_hour, seed_of(wanted.text, seed));
    return true;
}

std::string range_text(const number_range &range) {
    return std::to_string(range.least) + " to " + std::to_string(range.most);
}

bool refuse_form(const char *text, const fault_kind *kind) {
    if (kind == nullptr) {
        report("--fault %s: there is no such fault; faults are (N is 1 or more):", text);
        print_fault_kinds(STDERR_FILENO);
        return false;
    }
    std::string numbers = kind->numbers > 0 ? ", with " + range_text(kind->first) : "";
    if (kind->numbers > 1)
        numbers += " and " + range_text(kind->second);
    return complain("--fault %s: the form is %s%s: %s", text, kind->form, numbers.c_str(),
                    kind->meaning);
}

} // namespace

fault_clock &fault::clock() const {
    return shared->clock;
}

void fault::start(int64_t now) const {
    shared->start_us = now;
}

int64_t fault::run_time(int64_t now) const {
    return now < shared->start_us ? 0 : now - shared->start_us;
}

bool fault::is_active(int64_t now) const {
    return shared->clock.is_active(run_time(now));
}

bool fault::strikes(int64_t now) const {
    const bool struck = shared->clock.strikes(run_time(now));
    shared->strikes += struck ? 1 : 0;
    return struck;
}

bool fault::strikes_nth(int64_t now, uint32_t thing) const {
    return thing % static_cast<uint32_t>(numbers[0]) == 0 && strikes(now);
}

void fault::count_strike() const {
    shared->strikes++;
}

uint64_t fault::strike_count() const {
    return shared->strikes;
}

int64_t fault::next_change(int64_t now) const {
    const int64_t next = shared->clock.next_change(run_time(now));
    if (next == NEVER || shared->start_us == NOT_STARTED)
        return NEVER;
    return shared->start_us + next;
}

bool is_fault_of(const fault &wanted, std::string_view thing) {
    return wanted.kind->thing == thing;
}

bool add_fault(const char *text, uint64_t seed, std::vector<fault> &faults) {
    fault parsed;
    parsed.text = text;
    const fault_times times = cut_off_times(parsed.text);
    if (!read_parts(fault_parts(parsed.text), parsed))
        return refuse_form(text, parsed.kind);
    const auto same = std::ranges::find(faults, parsed.text, &fault::text);
    if (same == faults.end()) {
        faults.push_back(parsed);
        return add_times(times, seed, parsed);
    }
    if (times.window.empty() || !same->clock().has_window())
        return complain("--fault %s: this fault is given twice; give each one a window", text);
    return add_times(times, seed, *same);
}

void print_fault_kinds(int fd) {
    for (const fault_kind &kind : FAULT_KINDS)
        dprintf(fd, "  %-22s %-14s %s\n", kind.form, kind.thing, kind.meaning);
    dprintf(fd,
            "Each may end with a window, @FROM-TO in seconds from the start of the run (@FROM-: "
            "to its\nend), a rate, ~RATE in random events per hour, or both. A fault given several "
            "times has\nall its windows.\n");
}

} // namespace simulator
