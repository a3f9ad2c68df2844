// The shared-memory segments that may hold a status table, and what is in them. Three facts
// identify a table: the size of its segment, its creator's pid in the first record, and words that
// a record can have. Any other segment of that size is foreign.

#pragma once

#include <cstdint>
#include <sys/types.h>
#include <vector>

#include "supervisor/status_table.h"

struct segment {
    int32_t id = -1;
    pid_t creator = 0;
    uint32_t owner = 0;    // user number
    uint32_t attached = 0; // number of attachments
    int64_t created = 0;   // seconds since 1970
};

// The private segments of a table's size, by id; see proc(5) on /proc/sysvipc/shm. Includes
// segments that this user may not read.
std::vector<segment> segments_of_table_size();

enum class table_access { TABLE, FOREIGN, DENIED };

// A copy of a table, in this machine's byte order. Each word is consistent; two words may be from
// different moments.
struct table_copy {
    StatusTable table = {};
    bool swapped = false; // the run has the other byte order: its program is emulated
};

// Attaches the segment read-only and copies the table. DENIED without the right to read.
table_access read_table(const segment &from, table_copy &copy);

// The hold words of a table. Keeps the segment attached for writing until destroyed.
class hold_words {
public:
    explicit hold_words(const segment &of, bool is_swapped);
    hold_words(const hold_words &) = delete;
    hold_words &operator=(const hold_words &) = delete;
    ~hold_words();

    // False without the right to write, or if the segment is gone.
    bool is_attached() const {
        return attached != nullptr;
    }
    int32_t get(size_t record) const;
    void set(size_t record, int32_t value);
    // The record as it is now.
    TestRecord record(size_t index) const;

private:
    StatusTable *attached = nullptr;
    bool swapped;
};

// Records in use: the index after the last one that is not all zero, at least 1.
size_t records_in_use(const StatusTable &table);

// Removes the segment. False with errno, see shmctl(2).
bool remove_segment(const segment &of);
