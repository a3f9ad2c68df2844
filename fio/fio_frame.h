// The frames that field I/O modules exchange with the board, on the sync port and over SPI.
//
//     request: address, 0x83, command, payload
//     reply:   address, 0x83, command + 0x80, data
//
// A set-outputs request contains the output bytes, a read-inputs reply the input bytes, both from
// byte 3 on. The transport adds line framing and check bytes.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "fio/loopback_maps.h"

constexpr size_t FRAME_BYTES = 42; // room for every request and reply: the longest has 35 bytes
using fio_frame = std::array<uint8_t, FRAME_BYTES>;

constexpr uint8_t FIRST_MODULE = 20; // addresses
constexpr uint8_t SECOND_MODULE = 16;

constexpr uint8_t STATUS_COMMAND = '1';
constexpr uint8_t READ_COMMAND = '4';
constexpr uint8_t SET_COMMAND = '7';
constexpr uint8_t IDENTIFY_COMMAND = '<';

constexpr uint16_t STATUS_LENGTH = 4; // of the requests, bytes
constexpr uint16_t READ_LENGTH = 3;
constexpr uint16_t IDENTIFY_LENGTH = 3;

constexpr uint16_t STATUS_REPLY_LENGTH = 10; // on the sync port, bytes
constexpr uint16_t SET_REPLY_LENGTH = 4;
constexpr uint16_t IDENTIFY_REPLY_LENGTH = 4;

constexpr size_t COMMAND_AT = 2; // byte of a request, and of the marker in a reply
constexpr size_t DATA_AT = 3;    // first byte of payload or data

// The byte that identifies a reply to `command`.
constexpr uint8_t reply_marker(uint8_t command) {
    return static_cast<uint8_t>(command + 0x80);
}

// Returns a byte with this bit alone. Bits count from 1 to 8; bit 0 gives 0.
constexpr uint8_t bit_pattern(uint8_t bit) {
    return static_cast<uint8_t>((1U << bit) >> 1);
}

// Clears the frame and writes the address, 0x83 and the command.
void begin_request(fio_frame &request, uint8_t address, uint8_t command);

// Builds a status request of STATUS_LENGTH bytes.
void build_status(fio_frame &request, uint8_t address);

// Builds a set-outputs request that drives only the output of one step.
void build_set(fio_frame &request, uint8_t address, const loop_step &step);
