#include "supervisor/plan/option_table.h"

#include <algorithm>
#include <iterator>

#include "fio/start.h"
#include "panel/front_panel.h"
#include "runtime/number.h"
#include "runtime/settings.h"
#include "runtime/system_log.h"
#include "serial/patterns.h"
#include "serial/port_access.h"
#include "serial/port_settings.h"
#include "serial/start.h"
#include "storage/start.h"
#include "supervisor/plan/serial_plan.h"
#include "supervisor/status_table.h"

namespace {

bool names_two_ports(const char *argument) {
    return argument[0] != '\0' && argument[1] != '\0' && argument[1] != argument[0];
}

int32_t crossover_needs(const char *argument) {
    return names_two_ports(argument) ? 2 : 1;
}

void start_crossover(int no_fork, const char *argument) {
    const char x[2] = {argument[0], '\0'};
    const char y[2] = {names_two_ports(argument) ? argument[1] : x[0], '\0'};
    (void)crossover_test(no_fork, x, y, frame_sample_pattern);
}

int32_t fio_loop_needs(const char *) {
    return sync_owner == 0 ? 2 : NOT_NOW;
}

void start_fio_loop(int no_fork, const char *) {
    if (fio_loop_test(no_fork, "5") >= 0)
        sync_owner = record_count;
}

void start_spi_fio_loop(int no_fork, const char *) {
    (void)spi_fio_loop_test(no_fork, "/dev/manufacturer");
}

void start_spi_device(int no_fork, const char *argument) {
    (void)spi_device_test(no_fork, number_of(argument));
}

int32_t serial_needs(const char *argument) {
    return sync_port_permits(argument) ? 1 : 0;
}

void start_receiver(int no_fork, const char *argument) {
    (void)consume_dispatch(argument, no_fork, paren_pattern);
}

void start_producer(int no_fork, const char *argument) {
    (void)produce_dispatch(argument, no_fork, paren_pattern);
}

void start_dram(int no_fork, const char *) {
    (void)dram_test(no_fork);
}

int32_t file_copy_needs(const char *argument) {
    return is_file_copy_argument(argument) ? 1 : 0;
}

void start_file_copy(int no_fork, const char *argument) {
    file_copy_option(no_fork, argument);
}

void start_filesystem(int no_fork, const char *argument) {
    filesystem_test(no_fork, argument);
}

void start_front_panel(int no_fork, const char *) {
    (void)front_panel_test(no_fork);
}

void name_run(int, const char *argument) {
    set_log_ident(argument);
}

void set_speed(int, const char *argument) {
    port_speed_code = baud_to_speed_code(number_of(argument));
}

void set_led_period(int, const char *argument) {
    led_period = number_of(argument);
}

void set_log_period(int, const char *argument) {
    log_period = number_of(argument);
}

void set_transfer_length(int, const char *argument) {
    xfer_length = number_of(argument);
}

void set_error_flag(int, const char *) {
    error_flag = 1;
}

void clear_error_flag(int, const char *) {
    error_flag = 0;
}

void toggle_hdlc_mode(int, const char *) {
    hdlc_mode = hdlc_mode == 0 ? 1 : 0;
}

constexpr option_row OPTIONS[] = {
    {.letter = option_letter::RECEIVER,
     .argument = argument_form::PORT,
     .records = 1,
     .rule = kind_rule::BY_PORT,
     .pause = start_pause::ALWAYS,
     .routine = start_receiver,
     .needs = serial_needs,
     .help = "serial receiver on a port"},
    {.letter = option_letter::DRAM,
     .records = 1,
     .rule = kind_rule::LAST_RECORD,
     .kinds = {KIND_DRAM},
     .state = start_state::HELD,
     .pause = start_pause::AFTER_START,
     .routine = start_dram,
     .help = "DRAM"},
    {.letter = option_letter::CROSSOVER,
     .argument = argument_form::PORT_PAIR,
     .records = 2,
     .rule = kind_rule::LAST_RECORD,
     .kinds = {KIND_CROSSOVER},
     .pause = start_pause::AFTER_START,
     .routine = start_crossover,
     .needs = crossover_needs,
     .help = "crossover between ports X and Y, or loopback on one port"},
    {.letter = option_letter::FIO,
     .records = 2,
     .rule = kind_rule::EACH_RECORD,
     .kinds = {KIND_FIO_FIRST, KIND_FIO_SECOND},
     .routine = start_fio_loop,
     .needs = fio_loop_needs,
     .help = "field I/O modules on the sync port"},
    {.letter = option_letter::PANEL,
     .records = 1,
     .routine = start_front_panel,
     .help = "front panel"},
    {.letter = option_letter::SPI_FIO,
     .records = 1,
     .rule = kind_rule::LAST_RECORD,
     .kinds = {KIND_SPI_FIO},
     .routine = start_spi_fio_loop,
     .help = "field I/O module on SPI"},
    {.letter = option_letter::FILE_COPY,
     .argument = argument_form::PATHS,
     .records = 1,
     .rule = kind_rule::LAST_RECORD,
     .kinds = {KIND_FILE_COPY},
     .state = start_state::HELD,
     .routine = start_file_copy,
     .needs = file_copy_needs,
     .help = "battery-backed file copy"},
    {.letter = option_letter::PRODUCER,
     .argument = argument_form::PORT,
     .records = 1,
     .rule = kind_rule::BY_PORT,
     .routine = start_producer,
     .needs = serial_needs,
     .help = "serial producer on a port"},
    {.letter = option_letter::SPI_DEVICE,
     .argument = argument_form::SELECTOR,
     .records = 1,
     .rule = kind_rule::BY_SELECTOR,
     .kinds = {KIND_DATAKEY, KIND_EEPROM},
     .routine = start_spi_device,
     .help = "datakey (1), eeprom (2) or SPI loopback (4, 8)"},
    {.letter = option_letter::FILESYSTEM,
     .argument = argument_form::DIRECTORY,
     .records = 1,
     .rule = kind_rule::LAST_RECORD,
     .kinds = {KIND_FILESYSTEM},
     .state = start_state::HELD,
     .routine = start_filesystem,
     .help = "files in a directory"},

    {.letter = option_letter::LOG_IDENT,
     .argument = argument_form::TEXT,
     .routine = name_run,
     .help = "name of the run in the system log"},
    {.letter = option_letter::SPEED,
     .argument = argument_form::BITS_PER_S,
     .routine = set_speed,
     .help = "speed of asynchronous ports"},
    {.letter = option_letter::LED_PERIOD,
     .argument = argument_form::SECONDS,
     .routine = set_led_period,
     .help = "time between two changes of the LED"},
    {.letter = option_letter::SET_ERROR_FLAG,
     .routine = set_error_flag,
     .help = "sets the error flag, which nothing reads"},
    {.letter = option_letter::TRANSFER_LENGTH,
     .argument = argument_form::BYTES,
     .routine = set_transfer_length,
     .help = "bytes that a receiver clears before each read"},
    {.letter = option_letter::HDLC,
     .routine = toggle_hdlc_mode,
     .help = "HDLC mode on, off, on, ..."},
    {.letter = option_letter::CLEAR_ERROR_FLAG,
     .routine = clear_error_flag,
     .help = "clears the error flag"},
    {.letter = option_letter::LOG_PERIOD,
     .argument = argument_form::SECONDS,
     .routine = set_log_period,
     .help = "time between two results lists"},
};

constexpr bool is_option(const option_row &row, const char *letter) {
    const bool takes_argument = letter[1] == ':';
    return static_cast<char>(row.letter) == letter[0] &&
           (row.argument != argument_form::NONE) == takes_argument;
}

constexpr bool every_letter_has_a_row() {
    size_t letters = 0;
    for (const char *letter = OPTION_STRING; *letter != '\0'; ++letter) {
        if (*letter == ':')
            continue;
        ++letters;
        const auto same = [letter](const option_row &row) { return is_option(row, letter); };
        if (std::count_if(std::begin(OPTIONS), std::end(OPTIONS), same) != 1)
            return false;
    }
    return letters == std::size(OPTIONS);
}
static_assert(
    every_letter_has_a_row(),
    "each letter of OPTION_STRING has one row in OPTIONS, and a colon if it takes an argument");

// The check for free records uses `records`: with 0 a test could claim a record beyond the table.
constexpr bool every_test_claims_records() {
    return std::all_of(
        std::begin(OPTIONS), std::end(OPTIONS),
        [](const option_row &row) { return row.rule == kind_rule::NONE || row.records > 0; });
}
static_assert(every_test_claims_records(), "a row with a kind code has `records`");

} // namespace

std::span<const option_row> option_table() {
    return OPTIONS;
}
