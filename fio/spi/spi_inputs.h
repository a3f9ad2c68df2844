// The inputs that the field I/O module on SPI reads.

#pragma once

#include <cstdint>

#include "fio/fio_frame.h"

// Corrects a read-inputs reply for the module type: some inputs of type 219 are inverted, some of
// type 221 are not wired.
void correct_inputs(fio_frame &reply, uint8_t module_type);

// Returns true if the inputs follow the output of the step: its first input byte has only the
// input's bit set, and its second one, if any, is not 0.
bool inputs_follow(const fio_frame &reply, const loop_step &step);
