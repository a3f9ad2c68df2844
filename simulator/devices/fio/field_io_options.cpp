#include "simulator/devices/fio/field_io_options.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <unistd.h>

namespace simulator {

namespace {

constexpr int BYTE_MAX = 255; // of module addresses and types, which are never 0 here

// The whole text is a number from 1 to BYTE_MAX.
bool read_byte(const std::string &text, int &number) {
    char *end = nullptr;
    const long value = strtol(text.c_str(), &end, 10);
    number = static_cast<int>(value);
    return !text.empty() && *end == '\0' && value >= 1 && value <= BYTE_MAX;
}

bool take_module(field_io_options &options, const std::string &text) {
    const size_t sign = std::min(text.find('='), text.size());
    module_at module{};
    if (sign == text.size() || !read_byte(text.substr(0, sign), module.address) ||
        !read_byte(text.substr(sign + 1), module.type)) {
        dprintf(STDERR_FILENO,
                "hk_board: --fio takes modules as ADDRESS=TYPE, each 1 to 255, as in --fio "
                "20=221,16=2, not \"%s\"\n",
                text.c_str());
        return false;
    }
    for (const module_at &other : options.modules) {
        if (other.address == module.address) {
            dprintf(STDERR_FILENO, "hk_board: --fio: there is a module %d already\n",
                    module.address);
            return false;
        }
    }
    options.modules.push_back(module);
    return true;
}

} // namespace

bool take_modules(field_io_options &options, const char *text) {
    const std::string list = text;
    for (size_t begin = 0; begin <= list.size();) {
        const size_t end = std::min(list.find(',', begin), list.size());
        if (!take_module(options, list.substr(begin, end - begin)))
            return false;
        begin = end + 1;
    }
    return true;
}

bool take_spi(field_io_options &options, const char *text) {
    const std::string whole = text;
    const size_t sign = whole.find('=');
    const bool named = sign != std::string::npos;
    spi_plug plug{named ? whole.substr(0, sign) : "manufacturer", 0};
    const std::string what = named ? whole.substr(sign + 1) : whole;
    if ((plug.node != "manufacturer" && plug.node != "reserved") ||
        (what != "loop" && !read_byte(what, plug.module_type))) {
        dprintf(STDERR_FILENO,
                "hk_board: --spi takes \"loop\" or the type of a module (1 to 255), for "
                "/dev/manufacturer or after \"reserved=\" for /dev/reserved, not \"%s\"\n",
                text);
        return false;
    }
    for (const spi_plug &other : options.spi) {
        if (other.node == plug.node) {
            dprintf(STDERR_FILENO, "hk_board: --spi: /dev/%s is taken already\n",
                    plug.node.c_str());
            return false;
        }
    }
    options.spi.push_back(plug);
    return true;
}

bool take_datakey(field_io_options &options, const char *text) {
    const std::string_view state = text;
    if (state != "present" && state != "absent") {
        dprintf(STDERR_FILENO, "hk_board: --datakey is present or absent, not \"%s\"\n", text);
        return false;
    }
    options.datakey = state == "present" ? datakey_state::present : datakey_state::absent;
    return true;
}

bool take_eeprom(field_io_options &options, const char *text) {
    const std::string_view state = text;
    if (state != "good" && state != "short" && state != "missing") {
        dprintf(STDERR_FILENO, "hk_board: --eeprom is good, short or missing, not \"%s\"\n", text);
        return false;
    }
    options.eeprom = state == "good"    ? eeprom_state::good
                     : state == "short" ? eeprom_state::short_one
                                        : eeprom_state::missing;
    return true;
}

} // namespace simulator
