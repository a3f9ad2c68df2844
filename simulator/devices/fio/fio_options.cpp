#include "simulator/devices/fio/fio_options.h"

#include "simulator/base/message.h"
#include "simulator/base/text.h"
#include "simulator/devices/fio/fio_line.h"
#include "simulator/devices/serial/port_options.h"

namespace simulator {

namespace {

constexpr const char *FIO_PORT_NAME = "5s";

bool add_module(fio_line &line, const std::string &option, const std::string &text) {
    const auto [address_text, type_text] = split_once(text, '=');
    int address = 0;
    int type = 0;
    if (!read_number(address_text, MODULE_BYTE, address) ||
        !read_number(type_text, MODULE_BYTE, type))
        return complain("%s: module \"%s\": modules are ADDRESS=TYPE, each 1 to 255, as in --fio "
                        "20=221,16=2",
                        option.c_str(), text.c_str());
    return line.add_module(address, type) ||
           complain("%s: there is a module %d already; give each module another address",
                    option.c_str(), address);
}

} // namespace

bool plug_modules(device_set &devices, const char *text) {
    const std::string option = "--fio " + std::string(text);
    fio_line *line = devices.find<fio_line>();
    if (line == nullptr) {
        serial_port &port = port_named(devices, FIO_PORT_NAME);
        line = &devices.add<fio_line>();
        if (!plug_device(devices, port, line->end, line->faults, option))
            return false;
    }
    for (const std::string &module : split(text, ','))
        if (!add_module(*line, option, module))
            return false;
    return true;
}

} // namespace simulator
