// Exercises a filesystem: lays sixteen small files in a directory and then reads and compares them
// over and over.

#include "storage/files.h"

#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/clock.h"
#include "runtime/runner.h"
#include "storage/numbered_files.h"

namespace {

constexpr mode_t DIRECTORY_MODE = 0700;

// Goes into the directory, says in `made` whether it had to be made for that.
bool enter_directory(const char *directory, bool &made) {
    made = false;
    if (chdir(directory) == 0)
        return true;
    if (errno != ENOENT)
        return false;
    if (mkdir(directory, DIRECTORY_MODE) != 0 && errno != EEXIST)
        return false;
    made = chdir(directory) == 0;
    return made;
}

void verify_until_stopped(TestRecord &record) {
    while (!told_to_stop(record)) {
        if (is_held(record)) {
            hold_nap(record, HOLD_NAP_US);
            continue;
        }
        verify_test_files(record);
    }
}

} // namespace

void filesystem_test(int no_fork, const char *directory) {
    TestRecord &record = claim_record('Y');
    if (no_fork != 0 || start_test() != 0)
        return;

    record.errors = 0;
    set_shared_word(record.pid, getpid());
    bool made;
    if (!enter_directory(directory, made) || !lay_test_files(record)) {
        ++record.errors;
        set_shared_word(record.pid, PID_STOP);
        return;
    }
    verify_until_stopped(record);

    remove_test_files();
    mark_finished(record);
    // Away from the directory: a relative name is the battery-backed store's from here on.
    (void)!chdir("/r0");
    if (made)
        (void)rmdir(directory);
    exit(TEST_EXIT_STATUS);
}
