#include "simulator/run_settings.h"

#include "simulator/base/message.h"
#include "simulator/base/text.h"
#include "simulator/world/board_name.h"

namespace simulator {

namespace {

constexpr double RUN_SECONDS_MAX = 1e9;
constexpr number_range SEED = {0, SEED_COUNT - 1};

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

bool take_log(run_settings &settings, const char *path) {
    settings.log_path = path;
    return true;
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

bool take_release(run_settings &settings, const char *) {
    return settings.release = true;
}

} // namespace simulator
