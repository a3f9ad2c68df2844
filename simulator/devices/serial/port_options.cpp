#include "simulator/devices/serial/port_options.h"

#include "simulator/base/message.h"
#include "simulator/base/text.h"
#include "simulator/devices/serial/feed.h"

namespace simulator {

namespace {

constexpr number_range FEED_SPEEDS = {50, 4'000'000};

bool is_port(const std::string &name, const std::string &option) {
    const bool has_number = !name.empty() && name[0] >= '1' && name[0] <= '8';
    return (has_number && (name.size() == 1 || name.substr(1) == "s")) ||
           complain("%s: port %s: ports are 1 to 8 (asynchronous, /dev/sp1 to /dev/sp8) and 1s to "
                    "8s (synchronous, /dev/sp1s to /dev/sp8s)",
                    option.c_str(), name.c_str());
}

bool is_free(const serial_port &port, const std::string &option) {
    return port.joint == nullptr ||
           complain("%s: something is plugged into port %s already; a port takes one "
                    "cable, loop, feed, panel or line of modules",
                    option.c_str(), port.name.c_str());
}

// Makes the cable and gives it the faults of the port's output.
void join(device_set &devices, serial_port &port, line::line_end &other) {
    devices.cables.push_back(std::make_unique<line::cable>(port.model, other));
    port.joint = devices.cables.back().get();
    port.joint->set_faults(port.model, port.faults);
    port.faults.count_in(port.hangup);
}

void receive(serial_port &port, direction_faults &arriving) {
    port.arriving = &arriving;
    arriving.count_in(port.hangup);
}

} // namespace

serial_port &port_named(device_set &devices, const std::string &name) {
    serial_port *port = devices.find<serial_port>(name);
    return port != nullptr ? *port : devices.add<serial_port>(name);
}

bool plug_device(device_set &devices, serial_port &port, line::line_end &end,
                 direction_faults &faults, const std::string &option) {
    if (!is_free(port, option))
        return false;
    join(devices, port, end);
    port.joint->set_faults(end, faults);
    receive(port, faults);
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
    if (!is_free(first, option) || !is_free(second, option))
        return false;
    join(devices, first, second.model);
    second.joint = first.joint;
    second.joint->set_faults(second.model, second.faults);
    second.faults.count_in(second.hangup);
    receive(first, second.faults);
    receive(second, first.faults);
    return true;
}

bool plug_loop(device_set &devices, const char *text) {
    const std::string option = "--loop " + std::string(text);
    if (!is_port(text, option))
        return false;
    serial_port &port = port_named(devices, text);
    if (!is_free(port, option))
        return false;
    port.partner_name = port.name;
    join(devices, port, port.model);
    receive(port, port.faults);
    return true;
}

bool add_port(device_set &devices, const char *text) {
    if (!is_port(text, "--port " + std::string(text)))
        return false;
    (void)port_named(devices, text);
    return true;
}

bool plug_feed(device_set &devices, const char *text) {
    const std::string option = "--feed " + std::string(text);
    const auto [where, path] = split_once(text, ':');
    const auto [name, speed] = split_once(where, '=');
    int bps = 0;
    if (path.empty() || (!speed.empty() && !read_number(speed, FEED_SPEEDS, bps)))
        return complain("%s: a feed has a port and a file, as in --feed 1:FILE, and may have a "
                        "speed of %d to %d, as in --feed 1=9600:FILE",
                        option.c_str(), FEED_SPEEDS.least, FEED_SPEEDS.most);
    if (!is_port(name, option))
        return false;
    serial_port &port = port_named(devices, name);
    if (port.is_synchronous() && !speed.empty())
        return complain("%s: a synchronous port has one speed; leave out =%s", option.c_str(),
                        speed.c_str());
    feed &source = devices.add<feed>(port);
    if (!speed.empty())
        source.set_speed(static_cast<uint32_t>(bps));
    return plug_device(devices, port, source.end, source.faults, option) &&
           source.load(path.c_str());
}

bool serve_emulated(device_set &devices, const char *) {
    for (const auto &each : devices.devices)
        if (auto *port = dynamic_cast<serial_port *>(each.get()))
            port->is_emulated = true;
    return true;
}

} // namespace simulator
