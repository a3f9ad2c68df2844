#include "simulator/field_io_options.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
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
        if (!take_module(options, list.substr(begin, end - begin))) {
            return false;
        }
        begin = end + 1;
    }
    return true;
}

} // namespace simulator
