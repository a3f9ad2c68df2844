// The status table: the only channel between the supervisor and its test processes.
//
// It is one private System V shared-memory segment of 50 records. The supervisor creates it before
// it starts any test; every test process inherits the mapping through fork, claims a record (two
// for the crossover and field I/O tests) and counts into it. There is no lock: each word is a
// whole aligned 32-bit word with one writer at a time.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

constexpr int32_t TABLE_RECORDS = 50; // record 0 is the supervisor's, 1..49 are the tests'
constexpr int32_t TEST_RECORDS = TABLE_RECORDS - 1;

// Markers that stand in `pid` instead of a process id.
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
// then the offending byte or value.
struct ErrorSample {
    int32_t position;
    int32_t value;
};

// 29 words in host byte order. Unless said otherwise a word is written by the test process alone.
struct TestRecord {
    int32_t pid;               // process id, PID_STOP or PID_FINISHED; PID_REAPED by the supervisor
    int32_t unit;              // what is under test: port number, SPI selector, ...
    int32_t test_letter;       // ASCII, selects the report lines; supervisor, before the fork
    uint32_t read_count;       // data read or verified, in the test's own unit
    uint32_t write_count;      // data written, in the test's own unit
    uint32_t prev_write_count; // write_count at the previous status report; the report's
    uint32_t prev_read_count;  // read_count at the previous status report; the report's. The serial
                               // receiver counts good blocks into it too, the field I/O test on the
                               // sync port each read of its inputs
    int32_t errors;            // primary error counter
    int32_t errors2;           // mismatches
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

struct StatusTable {
    std::array<TestRecord, TABLE_RECORDS> records;
};
static_assert(sizeof(StatusTable) == 5800);

// The attached table; null before it is attached and once it is detached. Children inherit it.
extern StatusTable *status_table;

// Counters of the supervisor. A child's copies stay as they were at its fork, so that in a child
// `record_count` is the index of its own (last) record.
extern int32_t record_count;  // records claimed; in the run loop: processes reaped, plus one
extern int32_t bogus_count;   // claimed records that have no process of their own
extern int32_t process_count; // record_count - bogus_count when the options have been read
extern int32_t sync_owner;    // index of the record that holds the sync port 5; 0: it is free

// Creates a private segment for `records` records and attaches it, see shmget(2). Returns the
// address, or null when there is no segment to be had. The segment is never marked for removal.
StatusTable *status_table_attach(int32_t records);

// Detaches the table, if it is attached, and sets `status_table` to null first, so that a signal
// handler that comes later finds none.
void status_table_detach();

// Takes the next record for a test and writes its letter. The caller has made sure that there is
// one (records_left). The index is the new value of `record_count`.
TestRecord &claim_record(char letter);

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
