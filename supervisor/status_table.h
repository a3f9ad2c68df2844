// The status table: the only channel between the supervisor and its test processes.
//
// It is one private System V shared-memory segment of 50 records. The supervisor creates it before
// it starts any test; every test process inherits the mapping through fork and counts into the
// record (two for the crossover and field I/O tests) that was claimed for it.

#pragma once

#include <array>
#include <cstdint>

#include "runtime/record.h"

struct StatusTable {
    std::array<TestRecord, TABLE_RECORDS> records;
};
static_assert(sizeof(StatusTable) == 5800);

// The attached table, otherwise null. Children inherit it.
extern StatusTable *status_table;

// Counters of the run, beside `record_count`.
extern int32_t bogus_count;   // claimed records that share the process of another
extern int32_t process_count; // record_count - bogus_count after the options are read
extern int32_t sync_owner;    // index of the record that owns the sync port 5; 0: none

// Creates a private segment for `records` records and attaches it, see shmget(2). Returns the
// address, or null on failure. Nothing marks the segment for removal.
StatusTable *status_table_attach(int32_t records);

// Sets the table of this run: tests claim their records from it. It may be null.
void set_status_table(StatusTable *table);

// Sets `status_table` to null, for a signal handler that runs later, and detaches the table if it
// was attached.
void status_table_detach();
