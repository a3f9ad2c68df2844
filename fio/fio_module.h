// One field I/O module on a sync port: what it is, and one pass over its loopback harness.

#pragma once

#include <cstdint>

#include "fio/fio_frame.h"
#include "fio/loopback_maps.h"
#include "runtime/record.h"

// What a module's type decides. Without a map the module is not identified.
struct module_profile {
    uint8_t set_length;        // of a set-outputs request, bytes
    uint8_t read_reply_length; // of a read-inputs reply, bytes
    uint8_t inputs;            // input bytes that are compared
    const loop_step *map;
};

// The profile of a module type code; one without a map for a type that is not known.
module_profile profile_of(uint8_t module_type);

// Asks the module what it is, three times at most, and fills the profile. Returns 0 when the module
// is identified, else 1. Each exchange that fails counts in `errors3`.
int fio_identify(int port, TestRecord &record, uint8_t address, fio_frame &reply,
                 fio_frame &request, module_profile &profile);

// Asks for the module's status, then drives each output of its map and compares the inputs wired to
// it. Returns 1 after the last step, 0 as soon as an exchange fails, which is logged and counted in
// `errors3`. The profile has a map. Counts outputs set in `write_count`, inputs read in
// `read_count` and `prev_read_count`, mismatches in `errors2` with a sample of (step, byte read).
int fio_map_pass(int port, TestRecord &record, uint8_t address, fio_frame &reply,
                 fio_frame &request, const module_profile &profile);

// Compares the first `inputs` input bytes of a reply with what the step asks for, at the given
// attempt (0..4) to read them. Returns the attempt number to go on from; the attempts end above 4.
int32_t compare_inputs(TestRecord &record, const fio_frame &reply, const loop_step &step,
                       int32_t step_index, uint8_t inputs, int32_t attempt);
