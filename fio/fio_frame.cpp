#include "fio/fio_frame.h"

namespace {

constexpr uint8_t FUNCTION_CODE = 0x83;
constexpr uint8_t STATUS_PAYLOAD = 0xFF;

} // namespace

void begin_request(fio_frame &request, uint8_t address, uint8_t command) {
    request = {address, FUNCTION_CODE, command};
}

void build_status(fio_frame &request, uint8_t address) {
    begin_request(request, address, STATUS_COMMAND);
    request[DATA_AT] = STATUS_PAYLOAD;
}

void build_set(fio_frame &request, uint8_t address, const loop_step &step) {
    begin_request(request, address, SET_COMMAND);
    request[DATA_AT + step.output_byte] = bit_pattern(step.output_bit);
}
