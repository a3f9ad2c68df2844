// The options of hk_board for field I/O modules.
#pragma once

#include <vector>

namespace simulator {

struct module_at {
    int address;
    int type;
};

struct field_io_options {
    std::vector<module_at> modules; // on the synchronous port
};

// Each reads the argument of one option. False after a message that says what is valid.
bool take_modules(field_io_options &options, const char *text); // --fio

} // namespace simulator
