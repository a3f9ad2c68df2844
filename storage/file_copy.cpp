// Keeps two files busy, normally on the battery-backed store: every 5 ms it rewrites one block at
// the start of each, flushes all file systems after each write, and reads both blocks back.

#include "storage/file_copy.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "runtime/clock.h"
#include "runtime/runner.h"
#include "storage/file_copy_turn.h"

namespace {

constexpr size_t ARGUMENT_MAX = 800; // characters
constexpr size_t PATH_KEPT = 300;    // characters of each path
constexpr mode_t FILE_MODE = 0700;
constexpr int32_t TURN_PAUSE_US = 5000;

struct copy_argument {
    char source[PATH_KEPT + 1];
    char destination[PATH_KEPT + 1];
    long number;
};

void keep_path(char (&path)[PATH_KEPT + 1], const char *text) {
    (void)snprintf(path, sizeof path, "%s", text);
}

// Empty fields are skipped, what stands behind the third is ignored.
bool split_argument(const char *argument, copy_argument &fields) {
    char text[ARGUMENT_MAX + 1];
    if (strlen(argument) > ARGUMENT_MAX)
        return false;
    (void)snprintf(text, sizeof text, "%s", argument);
    char *rest = nullptr;
    const char *source = strtok_r(text, ":", &rest);
    const char *destination = strtok_r(nullptr, ":", &rest);
    const char *number = strtok_r(nullptr, ":", &rest);
    if (source == nullptr || destination == nullptr || number == nullptr)
        return false;
    keep_path(fields.source, source);
    keep_path(fields.destination, destination);
    fields.number = atol(number);
    return true;
}

// A source that is there keeps its contents. Descriptor 0 is taken for a failure, so that a source
// opened under it is opened again. Returns a negative number when the source cannot be made.
int open_source(TestRecord &record, const char *path, const copy_block &block) {
    const int existing = open(path, O_RDWR);
    if (existing > 0)
        return existing;
    const int created = open(path, O_RDWR | O_CREAT, FILE_MODE);
    if (created < 0)
        return created;
    (void)!write(created, block.data(), block.size());
    ++record.write_count;
    return created;
}

void copy_until_stopped(TestRecord &record, const copy_files &files, const copy_block &block) {
    while (!told_to_stop(record)) {
        if (is_held(record)) {
            hold_nap(record, HOLD_NAP_US);
            continue;
        }
        file_copy_turn(record, files, block);
        sleep_us(TURN_PAUSE_US);
    }
}

} // namespace

bool is_file_copy_argument(const char *argument) {
    copy_argument fields;
    return split_argument(argument, fields);
}

void file_copy_option(int no_fork, const char *argument) {
    copy_argument fields;
    if (split_argument(argument, fields))
        file_copy_test(no_fork, fields.source, fields.destination, fields.number);
}

void file_copy_test(int no_fork, const char *source, const char *destination, long) {
    TestRecord &record = claim_record('M');
    if (no_fork != 0 || start_test() != 0)
        return;

    set_shared_word(record.pid, getpid());
    const copy_block block = make_copy_block();
    copy_files files = {};
    files.source = open_source(record, source, block);
    if (files.source < 0) {
        ++record.errors;
        set_shared_word(record.pid, PID_STOP);
        return;
    }
    // Unlike the source a destination that cannot be opened is not noticed: the transfers fail, and
    // count as done.
    files.destination = open(destination, O_RDWR | O_CREAT, FILE_MODE);
    copy_until_stopped(record, files, block);

    mark_finished(record);
    (void)close(files.destination);
    (void)close(files.source);
    (void)unlink(source);
    (void)unlink(destination);
    exit(TEST_EXIT_STATUS);
}
