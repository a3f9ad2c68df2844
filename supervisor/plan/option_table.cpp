// The test plan: what each option of the command line does.

#include "supervisor/plan/option_table.h"

#include <cstdint>
#include <cstdio>
#include <unistd.h>

#include "fio/fio_loop.h"
#include "fio/spi/spi_device.h"
#include "fio/spi/spi_loop.h"
#include "panel/front_panel.h"
#include "runtime/number.h"
#include "runtime/settings.h"
#include "runtime/system_log.h"
#include "serial/crossover.h"
#include "serial/patterns.h"
#include "serial/port_access.h"
#include "storage/dram.h"
#include "storage/file_copy.h"
#include "storage/files.h"
#include "supervisor/plan/serial_plan.h"
#include "supervisor/status_table.h"

namespace {

constexpr useconds_t START_PAUSE_US = 50000; // lets a new test write its pid before the next starts

// True when `records` more records fit into the table. If not, says which option is dropped.
bool records_fit(int32_t records, char letter, const char *argument) {
    if (records_left() >= records)
        return true;
    char line[160];
    const int length = snprintf(line, sizeof line,
                                "hk_stress: -%c%.80s dropped: needs %d record(s) of the status "
                                "table, %d left\n",
                                letter, argument, records, records_left());
    (void)!write(STDERR_FILENO, line, static_cast<size_t>(length));
    return false;
}

void set_kind(int32_t kind_code) {
    last_claimed_record().kind_code = kind_code;
}

void start_crossover(const char *argument) {
    const char x[2] = {argument[0], '\0'};
    const bool two_ports = x[0] != '\0' && argument[1] != '\0' && argument[1] != x[0];
    const char y[2] = {two_ports ? argument[1] : x[0], '\0'};
    if (!records_fit(two_ports ? 2 : 1, 'E', argument))
        return;
    if (two_ports)
        ++bogus_count;
    (void)crossover_test(0, x, y, frame_sample_pattern);
    set_kind(5);
    (void)usleep(START_PAUSE_US);
}

void start_fio_loop(const char *argument) {
    if (sync_owner != 0 || !records_fit(2, 'F', argument))
        return;
    (void)fio_loop_test(0, "5");
    sync_owner = record_count;
    status_table->records[static_cast<size_t>(record_count - 1)].kind_code = 10;
    set_kind(1);
    ++bogus_count;
}

void start_spi_fio_loop(const char *argument) {
    if (!records_fit(1, 'L', argument))
        return;
    (void)spi_fio_loop_test(0, "/dev/manufacturer");
    set_kind(9);
}

void start_spi_device(const char *argument) {
    if (!records_fit(1, 'S', argument))
        return;
    const int32_t selector = number_of(argument);
    (void)spi_device_test(0, selector);
    set_kind(selector == 1 ? 6 : 7);
}

// The pause comes after a skipped receiver too.
void start_receiver(const char *argument) {
    if (!sync_port_permits(argument) || records_fit(1, 'C', argument))
        (void)consume_dispatch(argument, 0, paren_pattern);
    (void)usleep(START_PAUSE_US);
}

void start_producer(const char *argument) {
    if (!sync_port_permits(argument) || records_fit(1, 'P', argument))
        (void)produce_dispatch(argument, 0, paren_pattern);
}

void hold(TestRecord &record) {
    if (shared_word(record.hold) == HOLD_NONE)
        set_shared_word(record.hold, HOLD_REQUESTED);
}

// The storage and memory tests start held; nothing on the command line releases them. The word is
// written ahead of the start: a test that came first would run a whole turn, for DRAM seconds.
bool hold_next_test(char letter, const char *argument) {
    if (!records_fit(1, letter, argument))
        return false;
    hold(status_table->records[static_cast<size_t>(record_count) + 1]);
    return true;
}

void start_dram(const char *) {
    if (!hold_next_test('D', ""))
        return;
    (void)dram_test(0);
    set_kind(8);
    (void)usleep(START_PAUSE_US);
}

// An argument that starts nothing still holds and marks the test before it.
void start_file_copy(const char *argument) {
    if (is_file_copy_argument(argument) && !hold_next_test('M', argument))
        return;
    file_copy_option(0, argument);
    hold(last_claimed_record());
    set_kind(5);
}

void start_filesystem(const char *argument) {
    if (!hold_next_test('Y', argument))
        return;
    filesystem_test(0, argument);
    set_kind(11);
}

void start_front_panel(const char *argument) {
    if (records_fit(1, 'K', argument))
        (void)front_panel_test(0);
}

void set_speed(const char *argument) {
    port_speed_code = baud_to_speed_code(number_of(argument));
}

void set_led_period(const char *argument) {
    led_period = number_of(argument);
}

void set_log_period(const char *argument) {
    log_period = number_of(argument);
}

void set_transfer_length(const char *argument) {
    xfer_length = number_of(argument);
}

void set_error_flag(const char *) {
    error_flag = 1;
}

void clear_error_flag(const char *) {
    error_flag = 0;
}

void toggle_hdlc_mode(const char *) {
    hdlc_mode = hdlc_mode == 0 ? 1 : 0;
}

struct option_row {
    char letter;
    void (*run)(const char *argument); // null: nothing is started
};

constexpr option_row OPTIONS[] = {
    {'C', start_receiver},      // PORT      serial receiver
    {'D', start_dram},          //           DRAM
    {'E', start_crossover},     // XY        crossover between ports X and Y
    {'F', start_fio_loop},      //           field I/O modules on the sync port
    {'I', set_log_ident},       // TEXT      name of the run in the system log
    {'K', start_front_panel},   //           front panel
    {'L', start_spi_fio_loop},  //           field I/O module on SPI
    {'M', start_file_copy},     // SRC:DST:N battery-backed file copy
    {'P', start_producer},      // PORT      serial producer
    {'S', start_spi_device},    // NUMBER    datakey, eeprom, SPI loopback
    {'Y', start_filesystem},    // DIR       filesystem
    {'b', set_speed},           // BITS/S    speed of asynchronous ports
    {'d', set_led_period},      // SECONDS   LED period
    {'e', set_error_flag},      //
    {'f', set_transfer_length}, // BYTES     transfer length
    {'h', toggle_hdlc_mode},    //           HDLC on, off, on, ...
    {'i', clear_error_flag},    //
    {'l', set_log_period},      // SECONDS   period of the results list
};

constexpr const option_row *find_option(int letter) {
    for (const option_row &row : OPTIONS)
        if (row.letter == letter)
            return &row;
    return nullptr;
}

constexpr bool every_letter_has_a_row() {
    size_t letters = 0;
    for (const char *letter = OPTION_STRING; *letter != '\0'; ++letter) {
        if (*letter == ':')
            continue;
        ++letters;
        if (find_option(*letter) == nullptr)
            return false;
    }
    return letters == sizeof OPTIONS / sizeof OPTIONS[0];
}
static_assert(every_letter_has_a_row());

} // namespace

void print_usage(const char *program) {
    char text[1024];
    const int length = snprintf(text, sizeof text,
                                "Options...<%s>\n"
                                "-L for spifio   -F for fio\n"
                                "-h for hdlc -b9600 for 9600 baud\n"
                                "-S1 datakey  -S2 eeprom -D dram -K keyboard/display \n"
                                "-Exy serial test for port x to y and y to x\n"
                                "---------example:\n"
                                "set led to 1sec, logging to 10sec\n"
                                "crossover for SP2 and SP8, hdlc loopback on SP5s\n"
                                "%.400s -d1 -l10 -E28 -h -E55\n",
                                OPTION_STRING, program);
    (void)!write(STDOUT_FILENO, text, static_cast<size_t>(length));
}

void walk_options(int argc, char **argv) {
    for (int letter; (letter = getopt(argc, argv, OPTION_STRING)) != -1;) {
        const option_row *row = find_option(letter);
        if (row != nullptr && row->run != nullptr)
            row->run(optarg != nullptr ? optarg : "");
    }
}
