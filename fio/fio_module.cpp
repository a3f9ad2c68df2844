#include "fio/fio_module.h"

#include "fio/fio_exchange.h"
#include "runtime/clock.h"
#include "runtime/system_log.h"

namespace {

constexpr int32_t IDENTIFY_TRIES = 3;
constexpr int32_t READ_ATTEMPTS = 5;
constexpr int32_t ATTEMPTS_ENDED = 100;
constexpr int32_t SETTLE_US = 10000; // the harness settles before each read of the inputs

struct profile_row {
    uint8_t module_type;
    module_profile profile;
};

constexpr profile_row PROFILES[] = {
    // type  set  read  inputs  map
    {1, {19, 15, 8, IDENTITY_MAP.data()}},    {2, {29, 22, 15, MAP_A.data()}},
    {219, {35, 24, 14, MAP_A.data()}},        {220, {35, 24, 14, MAP_C.data()}},
    {221, {35, 24, 14, IDENTITY_MAP.data()}},
};

struct map_pass {
    int port;
    TestRecord &record;
    uint8_t address;
    fio_frame &reply;
    fio_frame &request;
    const module_profile &profile;
    int32_t step_index = 0;
};

// Clears the reply and exchanges the current request. Returns false on failure.
bool exchange(map_pass &pass, uint16_t length, uint16_t expected) {
    pass.reply.fill(0);
    return fio_exchange(std::span(pass.request).first(length), pass.reply, expected, pass.port,
                        pass.record) == 0;
}

// The counter as a signed word, as the log shows it.
int32_t outputs_set(const map_pass &pass) {
    return static_cast<int32_t>(pass.record.write_count);
}

bool ask_status(map_pass &pass) {
    build_status(pass.request, pass.address);
    if (exchange(pass, STATUS_LENGTH, STATUS_REPLY_LENGTH))
        return true;
    ++pass.record.errors3;
    log_format("<%d stat %d %d>", pass.address, pass.step_index, outputs_set(pass));
    return false;
}

bool set_output(map_pass &pass, const loop_step &step) {
    build_set(pass.request, pass.address, step);
    if (!exchange(pass, pass.profile.set_length, SET_REPLY_LENGTH)) {
        ++pass.record.errors3;
        log_format("<%d set %d %d>", pass.address, pass.step_index, outputs_set(pass));
        return false;
    }
    ++pass.record.write_count;
    return true;
}

bool read_inputs(map_pass &pass) {
    begin_request(pass.request, pass.address, READ_COMMAND);
    if (!exchange(pass, READ_LENGTH, pass.profile.read_reply_length)) {
        ++pass.record.errors3;
        log_format("<%d read %d %d>", pass.address, pass.step_index, outputs_set(pass));
        return false;
    }
    ++pass.record.read_count;
    ++pass.record.prev_read_count;
    return true;
}

bool check_inputs(map_pass &pass, const loop_step &step) {
    for (int32_t attempt = 0; attempt < READ_ATTEMPTS; ++attempt) {
        sleep_us(SETTLE_US);
        if (!read_inputs(pass))
            return false;
        attempt = compare_inputs(pass.record, pass.reply, step, pass.step_index,
                                 pass.profile.inputs, attempt);
    }
    return true;
}

// Bytes that the step does not name always match.
bool input_matches(const loop_step &step, uint8_t byte, uint8_t value) {
    if (byte == step.input_byte)
        return value == bit_pattern(step.input_bit);
    if ((step.second_byte != 0 || step.second_bit != 0) && byte == step.second_byte)
        return value == bit_pattern(step.second_bit);
    return true;
}

} // namespace

module_profile profile_of(uint8_t module_type) {
    for (const profile_row &row : PROFILES)
        if (row.module_type == module_type)
            return row.profile;
    return {};
}

int fio_identify(int port, TestRecord &record, uint8_t address, fio_frame &reply,
                 fio_frame &request, module_profile &profile) {
    begin_request(request, address, IDENTIFY_COMMAND);
    reply.fill(0);
    for (int32_t tries = 0; tries < IDENTIFY_TRIES; ++tries) {
        if (fio_exchange(std::span(request).first(IDENTIFY_LENGTH), reply, IDENTIFY_REPLY_LENGTH,
                         port, record) == 0)
            break;
        ++record.errors3;
    }
    profile = profile_of(reply[DATA_AT]);
    return profile.map == nullptr ? 1 : 0;
}

int fio_map_pass(int port, TestRecord &record, uint8_t address, fio_frame &reply,
                 fio_frame &request, const module_profile &profile) {
    map_pass pass = {port, record, address, reply, request, profile};
    if (!ask_status(pass))
        return 0;
    for (const loop_step *step = profile.map; step->output_bit != 0; ++step, ++pass.step_index)
        if (!set_output(pass, *step) || !check_inputs(pass, *step))
            return 0;
    return 1;
}

// Each byte that matches ends the attempts, also one that the step does not name: the inputs are
// read again only if every compared byte is wrong, and a wrong byte 0 counts only then. A wrong
// byte after one that matched counts immediately.
int32_t compare_inputs(TestRecord &record, const fio_frame &reply, const loop_step &step,
                       int32_t step_index, uint8_t inputs, int32_t attempt) {
    for (uint8_t byte = 0; byte < inputs; ++byte) {
        const uint8_t value = reply[DATA_AT + byte];
        if (input_matches(step, byte, value)) {
            attempt = ATTEMPTS_ENDED;
        } else if (attempt > READ_ATTEMPTS - 2) {
            ++record.errors2;
            record_sample(record, step_index, value);
            attempt = ATTEMPTS_ENDED;
        }
    }
    return attempt;
}
