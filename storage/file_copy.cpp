// Exercises two files, normally on the battery-backed store: every 5 ms it rewrites one block at
// the start of each, flushes all file systems after each write, and reads both blocks back.

#include "storage/start.h"

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

// Skips empty fields and ignores everything after the third.
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

struct file_copy {
    TestRecord &record;
    const char *source;
    const char *destination;
    copy_block block = {};
    copy_files files = {};

    bool set_up();
    void turn();
    void release();
};

// An existing source keeps its contents. Descriptor 0 counts as a failure: a source that gets it is
// opened again. Returns a negative number if the source cannot be created.
int open_source(const file_copy &test) {
    const int existing = open(test.source, O_RDWR);
    if (existing > 0)
        return existing;
    const int created = open(test.source, O_RDWR | O_CREAT, FILE_MODE);
    if (created < 0)
        return created;
    (void)!write(created, test.block.data(), test.block.size());
    ++test.record.write_count;
    return created;
}

// Does not check the open of the destination: its transfers then fail, and count as done.
bool file_copy::set_up() {
    block = make_copy_block();
    files.source = open_source(*this);
    if (files.source < 0)
        return false;
    files.destination = open(destination, O_RDWR | O_CREAT, FILE_MODE);
    return true;
}

void file_copy::turn() {
    file_copy_turn(record, files, block);
    sleep_us(TURN_PAUSE_US);
}

void file_copy::release() {
    (void)close(files.destination);
    (void)close(files.source);
    (void)unlink(source);
    (void)unlink(destination);
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
    TestRecord &record = claim_record(record_letter::FILE_COPY);
    (void)start_test(no_fork, file_copy{record, source, destination});
}
