#include "simulator/board.h"

#include "simulator/base/message.h"
#include "simulator/run_record.h"

#include <memory>
#include <set>
#include <string_view>
#include <variant>

namespace simulator {

namespace {

bool carry_out(const given_option &given, board &built) {
    const message_place here(given.place);
    const auto &how = given.row->carry_out;
    if (const auto *add = std::get_if<device_option>(&how))
        return (*add)(built.devices, given.text.c_str());
    if (const auto *set = std::get_if<run_option>(&how))
        return (*set)(built.settings, given.text.c_str());
    return true;
}

bool carry_out_options(const command_line &given, board &built) {
    for (const option_row &row : option_table())
        for (const given_option &each : given.options)
            if (each.row == &row && !carry_out(each, built))
                return false;
    return true;
}

// Reports that no device takes the fault, and which targets or numbers are possible.
bool refuse_fault(const fault &wanted, const device_set &devices) {
    for (const std::unique_ptr<device> &each : devices.devices)
        if (const std::string possible = each->possible_instead(wanted); !possible.empty())
            return complain("--fault %s: it could never strike; possible on %s %s: %s",
                            wanted.text.c_str(), wanted.kind->thing, wanted.target.c_str(),
                            possible.c_str());
    std::set<std::string> targets;
    for (const std::unique_ptr<device> &each : devices.devices)
        each->list_targets(wanted.kind->thing, targets);
    std::string possible;
    for (const std::string &target : targets)
        possible += " " + target;
    const char *thing = wanted.kind->thing;
    return complain("--fault %s: this board has no %s %s that can have it; its %ss are:%s",
                    wanted.text.c_str(), thing, wanted.target.c_str(), thing,
                    targets.empty() ? " none" : possible.c_str());
}

// The "FILE:LINE" of a fault in a board file; empty for one on the command line.
std::string place_of(const command_line &given, const fault &wanted) {
    for (const given_option &each : given.options)
        if (each.text == wanted.text && each.row->name == std::string_view("fault"))
            return each.place;
    return "";
}

bool assign_faults(const command_line &given, const board &built) {
    for (const fault &wanted : built.settings.faults) {
        bool taken = false;
        for (const std::unique_ptr<device> &candidate : built.devices.devices)
            taken = candidate->take_fault(wanted) || taken; // a cable has two ends
        const message_place here(place_of(given, wanted));
        if (!taken)
            return refuse_fault(wanted, built.devices);
    }
    return true;
}

} // namespace

bool build_board(const command_line &given, board &built) {
    add_devices_of_every_board(built.devices);
    if (!carry_out_options(given, built) || !assign_faults(given, built))
        return false;
    if (built.settings.own_time && built.settings.speed <= 0 &&
        built.devices.terminal.board_end() >= 0)
        built.settings.speed = 1; // so that a person can press keys
    built.command = command_words(given, built.settings);
    return true;
}

} // namespace simulator
