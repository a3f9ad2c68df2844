// The devices of one board.
#pragma once

#include "simulator/devices/device.h"
#include "simulator/line/cable.h"
#include "simulator/world/operator/terminal.h"

#include <memory>
#include <string>
#include <vector>

namespace simulator {

struct device_set {
    std::vector<std::unique_ptr<device>> devices;     // in the order in which they were added
    std::vector<std::unique_ptr<line::cable>> cables; // between the devices, destroyed before them
    operator_terminal terminal;                       // not open without --panel

    // The device of that kind and name; null if the board has none.
    template <typename Kind>
    Kind *find(const std::string &name = "") const {
        for (const std::unique_ptr<device> &each : devices)
            if (auto *found = dynamic_cast<Kind *>(each.get()); found && found->name == name)
                return found;
        return nullptr;
    }

    template <typename Kind, typename... Arguments>
    Kind &add(Arguments &&...arguments) {
        auto made = std::make_unique<Kind>(std::forward<Arguments>(arguments)...);
        Kind &added = *made;
        devices.push_back(std::move(made));
        return added;
    }

    // Does nothing if there is no such device.
    template <typename Kind>
    void remove(const std::string &name) {
        const device *unwanted = find<Kind>(name);
        std::erase_if(devices, [&](const auto &each) { return each.get() == unwanted; });
    }
};

} // namespace simulator
