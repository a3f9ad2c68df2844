#include "simulator/run_settings.h"

#include "simulator/base/message.h"
#include "simulator/base/text.h"
#include "simulator/world/board_name.h"

#include <cstdio>

namespace simulator {

namespace {

constexpr double RUN_SECONDS_MAX = 1e9;

constexpr unsigned GROUP_ADDRESS = 1; // in the first byte: an address of many stations

} // namespace

bool take_fault(run_settings &settings, const char *text) {
    settings.faults.emplace_back();
    return parse_fault(text, settings.faults.back());
}

bool take_mac(run_settings &settings, const char *text) {
    std::array<unsigned, std::tuple_size_v<mac_address>> bytes{};
    int length = 0;
    const int found = sscanf(text, "%2x:%2x:%2x:%2x:%2x:%2x%n", &bytes[0], &bytes[1], &bytes[2],
                             &bytes[3], &bytes[4], &bytes[5], &length);
    if (found != static_cast<int>(bytes.size()) || text[length] != '\0' ||
        (bytes[0] & GROUP_ADDRESS) != 0)
        return complain("--mac %s: this is no hardware address of a station; one is "
                        "02:00:00:00:12:34",
                        text);
    for (size_t i = 0; i < bytes.size(); i++)
        settings.mac[i] = static_cast<uint8_t>(bytes[i]);
    return true;
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
