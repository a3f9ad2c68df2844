// One field I/O module on a sync port: its identification, and one pass over its loopback harness.

#pragma once

#include <cstdint>

#include "fio/fio_frame.h"
#include "fio/loopback_maps.h"
#include "runtime/record.h"

// The properties of a module type. Without a map the module is not identified.
struct module_profile {
    uint8_t set_length;        // of a set-outputs request, bytes
    uint8_t read_reply_length; // of a read-inputs reply, bytes
    uint8_t inputs;            // input bytes that are compared
    const loop_step *map;
};

// Returns the profile of a module type code, without a map for an unknown type.
module_profile profile_of(uint8_t module_type);

// Asks the module for its type, at most three times, and fills the profile. Returns 0 if the module
// is identified, else 1. Each failed exchange counts in `errors3`.
int fio_identify(int port, TestRecord &record, uint8_t address, fio_frame &reply,
                 fio_frame &request, module_profile &profile);

// Asks for the module's status, then drives each output of its map and compares the inputs wired to
// it. Returns 1 after the last step, 0 after a failed exchange, which it logs and counts in
// `errors3`. The profile must have a map. Counts outputs set in `write_count`, inputs read in
// `read_count` and `prev_read_count`, mismatches in `errors2` with a sample of (step, byte read).
int fio_map_pass(int port, TestRecord &record, uint8_t address, fio_frame &reply,
                 fio_frame &request, const module_profile &profile);

// Compares the first `inputs` input bytes of a reply with the step, at the given attempt (0..4) to
// read them. Returns the number from which the attempts continue; above 4 they end.
int32_t compare_inputs(TestRecord &record, const fio_frame &reply, const loop_step &step,
                       int32_t step_index, uint8_t inputs, int32_t attempt);
