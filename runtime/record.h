// One record of the status table: what a test sees of it, and how it takes one.
//
// The table is shared memory. There is no lock: each word is a whole aligned 32-bit word with one
// writer at a time.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "runtime/record_letter.h"

constexpr int32_t TABLE_RECORDS = 50; // record 0 is the supervisor's, 1..49 are the tests'
constexpr int32_t TEST_RECORDS = TABLE_RECORDS - 1;

// Markers in `pid` in place of a process id.
constexpr int32_t PID_NONE = 0;      // no process yet
constexpr int32_t PID_STOP = -1;     // written by a test on a fatal error: its loop ends
constexpr int32_t PID_FINISHED = -3; // written by a test that left its loop, before it exits
constexpr int32_t PID_REAPED = -7;   // written by the supervisor: counted as ended

// Values of `hold`.
constexpr int32_t HOLD_NONE = 0;
constexpr int32_t HOLD_REQUESTED = 1;
constexpr int32_t HOLD_ACKNOWLEDGED = 2; // the test idles

constexpr int32_t RING_SLOTS = 8;

// One slot of the error-sample ring. What the two words mean is the test's own: a position or size,
// then the wrong byte or value.
struct ErrorSample {
    int32_t position;
    int32_t value;
};

// 29 words in host byte order. Unless said otherwise a word is written by the test process alone.
struct TestRecord {
    int32_t pid;               // process id, PID_STOP or PID_FINISHED; PID_REAPED by the supervisor
    int32_t unit;              // what is under test: port number, SPI selector, ...
    int32_t test_letter;       // ASCII, see record_letter; written before the fork
    uint32_t read_count;       // data read or verified, in the test's own unit
    uint32_t write_count;      // data written, in the test's own unit
    uint32_t prev_write_count; // write_count at the previous status report; the report's
    uint32_t prev_read_count;  // read_count at the previous status report; the report's. The serial
                               // receiver counts good blocks into it too, the field I/O test on the
                               // sync port each read of its inputs
    int32_t errors;            // primary error counter
    int32_t errors2;           // data that came wrong: bad blocks, frames or inputs. Of the serial
                               // tests also runs of silence, of the crossover line faults too; of
                               // -S short reads, failed loopback transfers and opens
    int32_t errors3;           // per test
    int32_t hist_next;         // 0..7, the slot that the next error sample takes
    std::array<ErrorSample, RING_SLOTS> hist;
    int32_t hold;      // requested by the supervisor, by the field I/O tests for themselves too;
                       // acknowledged by the test
    int32_t kind_code; // numeric test kind for the results log; supervisor, after the start
};
static_assert(sizeof(TestRecord) == 29 * sizeof(int32_t) && std::is_standard_layout_v<TestRecord>);
static_assert(offsetof(TestRecord, hist) == 11 * sizeof(int32_t));
static_assert(offsetof(TestRecord, hold) == 27 * sizeof(int32_t));

// Record 0 of the table that tests claim from; see set_status_table.
extern TestRecord *table_records;

// Records claimed. A child's copy stays as it was at its fork, so that in a child it is the index
// of its own (last) record. The run loop reuses it, see run_until_reaped.
extern int32_t record_count;

// Takes the next record for a test and writes its letter. The caller has made sure that there is
// one (records_left). The index is the new value of `record_count`.
TestRecord &claim_record(record_letter letter);

// Records that can still be claimed, 0..49.
int32_t records_left();

// The record at `record_count`: the one claimed last, or record 0 before the first claim.
TestRecord &last_claimed_record();

// Puts a sample into the ring and moves to the next slot.
void record_sample(TestRecord &record, int32_t position, int32_t value);

// The ring, newest sample first.
std::array<ErrorSample, RING_SLOTS> samples_newest_first(const TestRecord &record);

// Reads a word that another process may change. Every look at `pid` and `hold` in a loop goes
// through here: the volatile access makes the compiler load it anew.
inline int32_t shared_word(const int32_t &word) {
    return *static_cast<const volatile int32_t *>(&word);
}

// Stores such a word at once, in program order with the other shared words.
inline void set_shared_word(int32_t &word, int32_t value) {
    *static_cast<volatile int32_t *>(&word) = value;
}
