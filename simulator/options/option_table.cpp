#include "simulator/options/option_table.h"

#include "simulator/devices/fio/fio_options.h"
#include "simulator/devices/led.h"
#include "simulator/devices/network_interface.h"
#include "simulator/devices/panel/panel_options.h"
#include "simulator/devices/process_limit.h"
#include "simulator/devices/serial/port_options.h"
#include "simulator/devices/spi/spi_options.h"
#include "simulator/devices/store.h"
#include "simulator/devices/system_log.h"

namespace simulator {

namespace {

constexpr option_row OPTIONS[] = {
    {"cable", "PORT-PORT", "--cable 2-8",
     "join two ports with a crossed cable (2s-8s: synchronous ports)", plug_cable},
    {"loop", "PORT", "--loop 5s", "plug a port into itself", plug_loop},
    {"port", "PORT", "--port 3", "add a port with nothing connected", add_port},
    {"fio", "ADDRESS=TYPE,...", "--fio 20=221,16=2",
     "put field I/O modules with loopback harnesses on port 5s", plug_modules},
    {"spi", "[manufacturer=|reserved=]TYPE|loop", "--spi 219",
     "put a field I/O module, or a loopback, on /dev/manufacturer (or /dev/reserved)",
     add_spi_device},
    {"datakey", "present|absent", "--datakey present", "add a datakey holder", add_datakey},
    {"eeprom", "good|short|missing", "--eeprom good", "add an eeprom", add_eeprom},
    {"feed", "PORT[=BPS]:FILE", "--feed 1:data",
     "send a file into a port, over and over: 16 bytes every 10 ms, at 115200 bit/s", plug_feed},
    {"clock", "virtual|real", "--clock virtual",
     "run in the board's own time, as fast as the machine can and the same each time", take_clock},
    {"seed", "NUMBER", "--seed 7", "repeat the random faults of the run that printed this seed",
     take_seed},
    {"fault", "FAULT", "--fault flip:2:10@5-9", "add a fault, see the list below", take_fault},
    {"panel", nullptr, "--panel", "make this terminal the front panel on port 6; Ctrl-C ends",
     plug_terminal},
    {"keys", "SCRIPT", "--keys 's \\e[A @2.5 \\r'",
     "press keys of the front panel, see the script below", press_keys},
    {"emulated", nullptr, "--emulated",
     "set each port's own speed and mode where an emulator drops the request", serve_emulated},
    {"release", nullptr, "--release", "release held tests with hk_ctl", take_release},
#ifdef HK_BOARD_FILES
    {"board", "FILE", "--board bench.toml", "add the options in a file", board_file_option{}},
#endif
    {"name", "NAME", "--name left", "name the board for --enter", take_name},
    {"enter", "NAME", "--enter left", "run the program on a board that is running", enter_option{}},
    {"mac", "ADDRESS", "--mac 02:00:00:00:12:34",
     "set the hardware address of the network interface", set_hardware_address},
    {"for", "SECONDS", "--for 60", "send SIGTERM to the program after SECONDS", take_for},
    {"speed", "TIMES", "--speed 10",
     "let the board's own time pass at most that many times as fast as ours", take_speed},
    {"start", "DATE", "--start 2026-01-01", "the date at which the board's own time starts",
     take_start},
    {"clock-costs", "CALL=US,...", "--clock-costs open=100,sync=5000",
     "what open, mmap and sync cost in the board's own time, in microseconds", take_clock_costs},
    {"calls", "FILE", "--calls run.calls", "write the system calls that the board stops to FILE",
     take_calls},
    {"strict", nullptr, "--strict", "fail if a call sleeps that the board's own time does not know",
     take_strict},
    {"replay", "LOG", "--replay run.log",
     "repeat the run of a log in the board's own time, and report where the new log differs",
     replay_option{}},
    {"log", "FILE", "--log run.log",
     "also write everything the board prints to FILE, which is overwritten", take_log},
    {"forward", "SOCKET", "--forward /dev/log", "forward the log to a datagram socket",
     forward_log},
    {"quiet", nullptr, "--quiet", "show nothing of the board: no log, LED or panel lines",
     take_quiet},
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
    add_process_limit(devices);
}

} // namespace simulator
