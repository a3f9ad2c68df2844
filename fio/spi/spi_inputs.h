// What the field I/O module behind SPI reads back.

#pragma once

#include <cstdint>

#include "fio/fio_frame.h"

// Puts a read-inputs reply right for what the module type's inputs are known to do: some of 219's
// are inverted, some of 221's are not wired.
void correct_inputs(fio_frame &reply, uint8_t module_type);

// True when the inputs follow the output of the step: its first input byte holds the input's bit
// and no other, its second one, if any, is not 0.
bool inputs_follow(const fio_frame &reply, const loop_step &step);
