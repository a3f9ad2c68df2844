// The test plan: one row for each option of the command line. option_walk.cpp reads the command
// line by this table.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "supervisor/plan/kind_codes.h"

// The option letters, each with a colon if it takes an argument; see getopt(3). The usage text
// prints them in this order. A new letter goes to the end.
constexpr char OPTION_STRING[] = "eihb:d:f:l:E:P:C:I:S:Y:M:FDLK";

// The letters of the options. Records have other letters, see record_letter.
enum class option_letter : char {
    RECEIVER = 'C',
    DRAM = 'D',
    CROSSOVER = 'E',
    FIO = 'F',
    LOG_IDENT = 'I',
    PANEL = 'K',
    SPI_FIO = 'L',
    FILE_COPY = 'M',
    PRODUCER = 'P',
    SPI_DEVICE = 'S',
    FILESYSTEM = 'Y',
    SPEED = 'b',
    LED_PERIOD = 'd',
    SET_ERROR_FLAG = 'e',
    TRANSFER_LENGTH = 'f',
    HDLC = 'h',
    CLEAR_ERROR_FLAG = 'i',
    LOG_PERIOD = 'l',
};

// The form of an option's argument. Numbers are decimal; a text that does not begin with a number
// is 0.
enum class argument_form : uint8_t {
    NONE,
    PORT,      // the name of a port; its leading digits are the number
    PORT_PAIR, // one or two digits, ports x and y
    SELECTOR,  // number of an SPI device
    PATHS,     // a source, a destination and a number, separated by colons
    DIRECTORY,
    TEXT,
    BITS_PER_S,
    SECONDS,
    BYTES,
};

// The names of the arguments in documents, by form.
constexpr std::array<const char *, 10> ARGUMENT_NAMES = {
    "", "PORT", "XY", "NUMBER", "SRC:DST:N", "DIR", "TEXT", "BITS/S", "SECONDS", "BYTES",
};
static_assert(ARGUMENT_NAMES.size() == static_cast<size_t>(argument_form::BYTES) + 1);

// Which of an option's kind codes goes into which record.
enum class kind_rule : uint8_t {
    NONE,        // writes none
    LAST_RECORD, // the first one into the record claimed last
    EACH_RECORD, // one into each of the two records
    BY_SELECTOR, // the first one for device 1, the second for any other
    BY_PORT,     // by the table of ports, see serial_plan.h
};

enum class start_state : uint8_t {
    RUNNING,
    HELD, // no option releases it: while it runs, it loads the board's memory or file store
};

enum class start_pause : uint8_t {
    NONE,
    AFTER_START, // 50 ms: the new test opens its device before the next test starts
    ALWAYS,      // also if nothing was started
};

struct option_row {
    option_letter letter;
    argument_form argument = argument_form::NONE;
    int8_t records = 0; // of the status table, at most; 0 for a setting
    kind_rule rule = kind_rule::NONE;
    std::array<kind_code, 2> kinds = {}; // the rule says how many it uses
    start_state state = start_state::RUNNING;
    start_pause pause = start_pause::NONE;
    // Starts the test or takes the setting. With `no_fork` not 0 a test claims its records alone.
    void (*routine)(int no_fork, const char *argument);
    // Returns the records that the option needs with this argument, 0 if it starts no test, NOT_NOW
    // if the option has no effect at all. Null: always `records`.
    int32_t (*needs)(const char *argument) = nullptr;
    const char *help = "";
};

constexpr int32_t NOT_NOW = -1;

// Returns every option: first the tests, then the settings, each sorted by letter.
std::span<const option_row> option_table();
