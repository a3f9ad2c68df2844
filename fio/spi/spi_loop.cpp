// Drives the field I/O module on an SPI device through its loopback harness, step by step. It asks
// for the module's type once: it tests types 219 and 221; for any other it holds itself until the
// supervisor releases it. A hold takes effect between two passes over the map.

#include "fio/start.h"

#include <fcntl.h>

#include "fio/loopback_maps.h"
#include "fio/spi/spi_exchange.h"
#include "fio/spi/spi_inputs.h"
#include "runtime/clock.h"
#include "runtime/runner.h"
#include "runtime/unique_fd.h"

namespace {

constexpr int32_t UNIT_B = 'B'; // the lists print it as a letter: "spBs"
constexpr size_t SET_LENGTH = 35;
constexpr int32_t IDENTIFIED_US = 4000;
constexpr int32_t STATUS_TAKEN_US = 20000;
constexpr int32_t OUTPUTS_SETTLE_US = 30000;

struct spi_loop {
    static constexpr bool NAP_BEFORE_MARK = true;

    TestRecord &record;
    const char *device_path;
    unique_fd device = {};
    uint8_t module_type = 0;
    const loop_step *map = IDENTITY_MAP.data();
    int32_t step_index = 0;
    fio_frame request = {};
    fio_frame reply = {};

    void set_up();
    void turn();
    void after_nap();
    void release();
};

// Exchanges the first `length` bytes of the current request and counts a failure.
bool exchange(spi_loop &test, size_t length) {
    test.reply.fill(0);
    const auto request = std::span(test.request).first(length);
    if (spi_fio_exchange(request, test.reply, test.device.get()) == 0)
        return true;
    ++test.record.errors3;
    return false;
}

// Without the device the test continues: every exchange fails and counts.
void open_device(spi_loop &test) {
    test.device.reset(open(test.device_path, O_RDWR | O_NONBLOCK));
    if (test.device)
        test.record.unit = UNIT_B;
    else
        ++test.record.errors;
}

void identify(spi_loop &test) {
    begin_request(test.request, FIRST_MODULE, IDENTIFY_COMMAND);
    ++test.record.write_count;
    (void)exchange(test, IDENTIFY_LENGTH); // without a reply the type is 0
    test.module_type = test.reply[DATA_AT];
    const bool tested = test.module_type == 219 || test.module_type == 221;
    set_shared_word(test.record.hold, tested ? HOLD_NONE : HOLD_REQUESTED);
    if (test.module_type == 219)
        test.map = MAP_S.data();
    sleep_us(IDENTIFIED_US);
}

void ask_status(spi_loop &test) {
    build_status(test.request, FIRST_MODULE);
    ++test.record.write_count;
    (void)exchange(test, STATUS_LENGTH);
    sleep_us(STATUS_TAKEN_US);
}

bool set_output(spi_loop &test, const loop_step &step) {
    build_set(test.request, FIRST_MODULE, step);
    ++test.record.write_count;
    const bool done = exchange(test, SET_LENGTH);
    sleep_us(OUTPUTS_SETTLE_US);
    return done;
}

// Reads the inputs only if the output was set; otherwise the step counts a second failure.
bool read_inputs(spi_loop &test, bool output_set) {
    begin_request(test.request, FIRST_MODULE, READ_COMMAND);
    ++test.record.write_count;
    if (!output_set) {
        ++test.record.errors3;
        return false;
    }
    if (!exchange(test, READ_LENGTH))
        return false;
    ++test.record.read_count;
    return true;
}

void run_step(spi_loop &test, const loop_step &step) {
    const bool output_set = set_output(test, step);
    if (!read_inputs(test, output_set))
        return;
    correct_inputs(test.reply, test.module_type);
    if (!inputs_follow(test.reply, step)) {
        ++test.record.errors2;
        record_sample(test.record, test.step_index, step.input_byte);
    }
}

void spi_loop::set_up() {
    open_device(*this);
    identify(*this);
    ask_status(*this);
}

void spi_loop::turn() {
    for (step_index = 0; map[step_index].output_bit != 0; ++step_index)
        run_step(*this, map[step_index]);
}

// Keeps the exchanges going while the test is held; counts nothing.
void spi_loop::after_nap() {
    build_status(request, FIRST_MODULE);
    (void)spi_fio_exchange(std::span(request).first(STATUS_LENGTH), reply, device.get());
}

void spi_loop::release() {
    device.reset();
}

} // namespace

pid_t spi_fio_loop_test(int no_fork, const char *device_path) {
    return start_test(no_fork, spi_loop{claim_record(record_letter::SPI_FIO), device_path});
}
