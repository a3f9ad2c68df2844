#include "simulator/options/run_settings.h"

#include "simulator/base/message.h"
#include "simulator/base/text.h"
#include "simulator/requests/timed_calls.h"
#include "simulator/world/namespaces.h"
#include "simulator/world/operator/board_name.h"

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <unistd.h>

namespace simulator {

namespace {

constexpr double RUN_SECONDS_MAX = 1e9;
constexpr double SPEED_MAX = 1e6;
constexpr number_range SEED = {0, SEED_COUNT - 1};

bool can_have_own_time() {
    return (HAS_OWN_TIME ||
            complain("--clock virtual: the board's own time works on x86-64 alone")) &&
           kernel_is_at_least(OWN_TIME_KERNEL, "--clock virtual");
}

// --clock is carried out before the options that need it, see option_table.cpp.
bool has_own_time(const run_settings &settings, const char *option) {
    return settings.own_time || complain("%s: it needs --clock virtual", option);
}

} // namespace

bool take_fault(run_settings &settings, const char *text) {
    return add_fault(text, static_cast<uint64_t>(settings.seed), settings.faults);
}

bool take_seed(run_settings &settings, const char *text) {
    return read_number(text, SEED, settings.seed) ||
           complain("--seed %s: a seed is a number, 0 to %d", text, SEED.most);
}

bool take_for(run_settings &settings, const char *text) {
    return (read_seconds(text, RUN_SECONDS_MAX, settings.run_us) && settings.run_us > 0) ||
           complain("--for %s: --for takes seconds above 0, as in --for 60 or --for 2.5", text);
}

// The file is opened when all options are known to be good; that fails here, with the place of the
// option, for most reasons.
bool take_log(run_settings &settings, const char *path) {
    settings.log_path = path;
    if (access(path, W_OK) == 0)
        return true;
    const std::string folder = std::filesystem::path(path).parent_path();
    const bool can_be_made =
        errno == ENOENT && access(folder.empty() ? "." : folder.c_str(), W_OK) == 0;
    return can_be_made || cannot("write", path);
}

bool take_name(run_settings &settings, const char *name) {
    settings.name = name;
    return is_board_name(name) ||
           complain(
               "--name %s: a name has 1 to %zu letters, digits, points, hyphens or underscores",
               name, NAME_LENGTH_MAX);
}

bool take_quiet(run_settings &settings, const char *) {
    return settings.quiet = true;
}

bool take_clock(run_settings &settings, const char *text) {
    settings.own_time = text == std::string_view("virtual");
    settings.seed = settings.own_time ? 1 : run_settings{}.seed; // unless --seed gives another
    if (settings.own_time)
        return can_have_own_time();
    return text == std::string_view("real") ||
           complain("--clock %s: a clock is virtual or real", text);
}

bool take_speed(run_settings &settings, const char *text) {
    if (!has_own_time(settings, "--speed"))
        return false;
    int64_t thousandths = 0;
    const bool is_number = read_seconds(text, SPEED_MAX, thousandths) && thousandths > 0;
    settings.speed = static_cast<double>(thousandths) / US_PER_SECOND;
    return is_number || complain("--speed %s: a speed is a number above 0, at most %.0f, as in "
                                 "--speed 1 or --speed 10",
                                 text, SPEED_MAX);
}

// "YYYY-MM-DD" or "YYYY-MM-DD HH:MM:SS", in UTC.
bool take_start(run_settings &settings, const char *text) {
    if (!has_own_time(settings, "--start"))
        return false;
    tm start{};
    const char *rest = strptime(text, "%Y-%m-%d", &start);
    if (rest != nullptr && *rest != '\0')
        rest = strptime(rest, " %H:%M:%S", &start);
    const tm read = start;
    const time_t seconds = timegm(&start); // makes a day beyond its month one of the next
    const bool is_date = start.tm_mday == read.tm_mday && start.tm_sec == read.tm_sec;
    settings.start_us = int64_t{seconds} * US_PER_SECOND;
    return (rest != nullptr && *rest == '\0' && is_date && seconds > 0) ||
           complain("--start %s: a start is a date, as 2026-01-01 or '2026-01-01 08:30:00'", text);
}

bool take_clock_costs(run_settings &settings, const char *text) {
    return take_work_costs(settings.costs, text);
}

bool take_calls(run_settings &settings, const char *path) {
    settings.calls_path = path;
    return has_own_time(settings, "--calls");
}

bool take_strict(run_settings &settings, const char *) {
    settings.strict = true;
    return has_own_time(settings, "--strict");
}

bool take_release(run_settings &settings, const char *) {
    return settings.release = true;
}

} // namespace simulator
