#include "simulator/devices/serial/port_options.h"

#include "simulator/base/message.h"
#include "simulator/base/text.h"
#include "simulator/devices/serial/feed.h"

#include <regex>

namespace simulator {

namespace {

bool is_port(const std::string &name, const std::string &option) {
    static const std::regex form("[1-8]s?");
    return std::regex_match(name, form) ||
           complain("%s: port %s: ports are 1 to 8 (asynchronous, /dev/sp1 to /dev/sp8) and 1s to "
                    "8s (synchronous, /dev/sp1s to /dev/sp8s)",
                    option.c_str(), name.c_str());
}

} // namespace

serial_port &port_named(device_set &devices, const std::string &name) {
    serial_port *port = devices.find<serial_port>(name);
    return port != nullptr ? *port : devices.add<serial_port>(name);
}

bool plug(serial_port &port, line_partner &partner, const std::string &option) {
    if (port.partner != nullptr)
        return complain("%s: something is plugged into port %s already; a port has room for one "
                        "cable, loop, feed, panel or line of modules",
                        option.c_str(), port.name.c_str());
    port.partner = &partner;
    port.lines_wired = true;
    return true;
}

bool plug_cable(device_set &devices, const char *text) {
    const std::string option = "--cable " + std::string(text);
    const auto [one, other] = split_once(text, '-');
    if (other.empty())
        return complain("%s: a cable has two ports, as in --cable 2-8", option.c_str());
    if (!is_port(one, option) || !is_port(other, option))
        return false;
    if (one == other || one.size() != other.size())
        return complain("%s: a cable joins two different ports of one kind (--loop plugs a port "
                        "into itself)",
                        option.c_str());
    serial_port &first = port_named(devices, one);
    serial_port &second = port_named(devices, other);
    first.partner_name = other;
    second.partner_name = one;
    return plug(first, second, option) && plug(second, first, option);
}

bool plug_loop(device_set &devices, const char *text) {
    const std::string option = "--loop " + std::string(text);
    if (!is_port(text, option))
        return false;
    serial_port &port = port_named(devices, text);
    port.partner_name = port.name;
    return plug(port, port, option);
}

bool add_port(device_set &devices, const char *text) {
    if (!is_port(text, "--port " + std::string(text)))
        return false;
    (void)port_named(devices, text);
    return true;
}

bool plug_feed(device_set &devices, const char *text) {
    const std::string option = "--feed " + std::string(text);
    const auto [name, path] = split_once(text, ':');
    if (path.empty())
        return complain("%s: a feed has a port and a file, as in --feed 1:FILE", option.c_str());
    if (!is_port(name, option))
        return false;
    serial_port &port = port_named(devices, name);
    feed &source = devices.add<feed>(port);
    port.partner_name = source.name;
    return plug(port, source, option) && source.load(path.c_str());
}

} // namespace simulator
