#include "simulator/option_table.h"

#include "simulator/devices/fio/fio_options.h"
#include "simulator/devices/led.h"
#include "simulator/devices/network_interface.h"
#include "simulator/devices/panel/panel_options.h"
#include "simulator/devices/serial/port_options.h"
#include "simulator/devices/spi/spi_options.h"
#include "simulator/devices/store.h"
#include "simulator/devices/system_log.h"

namespace simulator {

namespace {

constexpr option_row OPTIONS[] = {
    {"cable", "PORT-PORT", "--cable 2-8",
     "join two ports by a crossed cable (2s-8s: synchronous ones)", plug_cable},
    {"loop", "PORT", "--loop 5s", "plug a port into itself", plug_loop},
    {"port", "PORT", "--port 3", "have a port with nothing connected", add_port},
    {"fio", "ADDRESS=TYPE,...", "--fio 20=221,16=2",
     "put field I/O modules with loopback harnesses on port 5s", plug_modules},
    {"spi", "[reserved=]TYPE|loop", "--spi 219",
     "put a field I/O module, or a loopback, behind /dev/manufacturer (or /dev/reserved)",
     add_spi_device},
    {"datakey", "present|absent", "--datakey present", "have a holder for the datakey",
     add_datakey},
    {"eeprom", "good|short|missing", "--eeprom good", "have an eeprom", add_eeprom},
    {"feed", "PORT[=BPS]:FILE", "--feed 1:data",
     "send the bytes of a file into a port, over and over: 16 every 10 ms, at 115200 bit/s",
     plug_feed},
    {"seed", "NUMBER", "--seed 7", "repeat the random faults of the run that printed this seed",
     take_seed},
    {"fault", "FAULT", "--fault flip:2:10@5-9", "break something, see the list below", take_fault},
    {"panel", nullptr, "--panel", "make this terminal the front panel on port 6; Ctrl-C ends",
     plug_terminal},
    {"keys", "SCRIPT", "--keys 's \\e[A @2.5 \\r'",
     "press keys of the front panel, see the script below", press_keys},
    {"emulated", nullptr, "--emulated",
     "let ports take the speed and mode they are made for where an emulator leaves them out",
     serve_emulated},
    {"release", nullptr, "--release", "let held tests run, by hk_ctl", take_release},
#ifdef HK_BOARD_FILES
    {"board", "FILE", "--board bench.toml", "have what a file describes, beside the options",
     board_file_option{}},
#endif
    {"name", "NAME", "--name left", "name the board, so that --enter finds it", take_name},
    {"enter", "NAME", "--enter left", "run the program on a board that is running", enter_option{}},
    {"mac", "ADDRESS", "--mac 02:00:00:00:12:34", "hardware address of the network interface",
     set_hardware_address},
    {"for", "SECONDS", "--for 60", "send SIGTERM to the program after that time", take_for},
    {"clock", "virtual|real", "--clock virtual",
     "run in the board's own time, as fast as the machine can and the same each time", take_clock},
    {"speed", "TIMES", "--speed 10", "let the board's own time pass that much faster than ours",
     take_speed},
    {"start", "DATE", "--start 2026-01-01", "the date at which the board's own time starts",
     take_start},
    {"log", "FILE", "--log run.log",
     "write everything the board prints into FILE as well; FILE is overwritten", take_log},
    {"forward", "SOCKET", "--forward /dev/log", "pass the log on to that datagram socket",
     forward_log},
    {"quiet", nullptr, "--quiet", "hide everything of the board: log, LED, panel", take_quiet},
    {"show-led", nullptr, "--show-led", "show each change of the heartbeat LED", show_led_changes},
    {"help", nullptr, "--help", "show this text", help_option{}},
};

} // namespace

std::span<const option_row> option_table() {
    return OPTIONS;
}

void add_devices_of_every_board(device_set &devices) {
    add_system_log(devices);
    add_led(devices);
    add_network_interface(devices);
    add_store(devices);
}

} // namespace simulator
