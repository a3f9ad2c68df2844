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

// The attached table; null before it is attached and once it is detached. Children inherit it.
extern StatusTable *status_table;

// Counters of the run, beside `record_count`.
extern int32_t bogus_count;   // claimed records that have no process of their own
extern int32_t process_count; // record_count - bogus_count when the options have been read
extern int32_t sync_owner;    // index of the record that holds the sync port 5; 0: it is free

// Creates a private segment for `records` records and attaches it, see shmget(2). Returns the
// address, or null when there is no segment to be had. The segment is never marked for removal.
StatusTable *status_table_attach(int32_t records);

// Makes `table` the run's: tests claim their records from it. It may be null.
void set_status_table(StatusTable *table);

// Detaches the table, if it is attached, and sets `status_table` to null first, so that a signal
// handler that comes later finds none.
void status_table_detach();
