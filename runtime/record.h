// One record of the status table, and how a test claims it.
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

// One slot of the error-sample ring. Each test defines the two words: a position or size, then the
// wrong byte or value.
struct ErrorSample {
    int32_t position;
    int32_t value;
};

// 29 words in host byte order. Only the test process writes a word, except where noted.
struct TestRecord {
    int32_t pid;               // process id, PID_STOP or PID_FINISHED; PID_REAPED by the supervisor
    int32_t unit;              // the tested device: port number, SPI selector, ...
    int32_t test_letter;       // ASCII, see record_letter; written before the fork
    uint32_t read_count;       // data read or verified, in the test's own unit
    uint32_t write_count;      // data written, in the test's own unit
    uint32_t prev_write_count; // write_count at the previous status report, which writes it
    uint32_t prev_read_count;  // read_count at the previous status report, which writes it. The
                               // serial receiver also counts good blocks here, the field I/O test
                               // on the sync port each read of its inputs
    int32_t errors;            // primary error counter
    int32_t errors2;           // data that came wrong: bad blocks, frames or inputs. Of the serial
                               // tests also runs of silence, of the crossover line faults too; of
                               // -S short reads, failed loopback transfers and opens
    int32_t errors3;           // per test
    int32_t hist_next;         // slot of the next error sample: 0..7, see samples_newest_first
    std::array<ErrorSample, RING_SLOTS> hist;
    int32_t hold;      // the supervisor requests it, a field I/O test also for itself;
                       // the test acknowledges it
    int32_t kind_code; // test kind for the results list; the supervisor writes it after the start
};
static_assert(sizeof(TestRecord) == 29 * sizeof(int32_t) && std::is_standard_layout_v<TestRecord>);
static_assert(offsetof(TestRecord, hist) == 11 * sizeof(int32_t));
static_assert(offsetof(TestRecord, hold) == 27 * sizeof(int32_t));

// Record 0 of the table from which tests claim records, see set_status_table.
extern TestRecord *table_records;

// Number of claimed records. A child keeps the value at its fork, the index of its own (last)
// record. The run loop reuses the variable, see run_until_reaped.
extern int32_t record_count;

// Claims the next record for a test and writes its letter. The caller checks `records_left` first.
// The new value of `record_count` is its index.
TestRecord &claim_record(record_letter letter);

// Returns how many records are free, 0..49.
int32_t records_left();

// Returns the record claimed last, or record 0 before the first claim.
TestRecord &last_claimed_record();

// Puts a sample into the ring and moves to the next slot.
void record_sample(TestRecord &record, int32_t position, int32_t value);

// Returns the ring, newest sample first.
std::array<ErrorSample, RING_SLOTS> samples_newest_first(const TestRecord &record);

// Reads a word that another process may change. Every loop that checks `pid` or `hold` uses this:
// the volatile access makes the compiler load the word each time.
inline int32_t shared_word(const int32_t &word) {
    return *static_cast<const volatile int32_t *>(&word);
}

// Stores such a word immediately, in program order with the other shared words.
inline void set_shared_word(int32_t &word, int32_t value) {
    *static_cast<volatile int32_t *>(&word) = value;
}
