// The options of hk_board for field I/O modules and SPI devices.
#pragma once

#include <string>
#include <vector>

namespace simulator {

struct module_at {
    int address;
    int type;
};

struct spi_plug {
    std::string node;
    int module_type; // 0: a loopback
};

enum class datakey_state { none, absent, present }; // none: the board has no holder for it
enum class eeprom_state { missing, short_one, good };

struct field_io_options {
    std::vector<module_at> modules; // on the synchronous port
    std::vector<spi_plug> spi;
    datakey_state datakey = datakey_state::none;
    eeprom_state eeprom = eeprom_state::missing;
};

// Each reads the argument of one option. False after a message that says what is valid.
bool take_modules(field_io_options &options, const char *text); // --fio
bool take_spi(field_io_options &options, const char *text);     // --spi
bool take_datakey(field_io_options &options, const char *text); // --datakey
bool take_eeprom(field_io_options &options, const char *text);  // --eeprom

} // namespace simulator
