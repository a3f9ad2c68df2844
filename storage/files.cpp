// Exercises a filesystem: creates sixteen small files in a directory, then reads and compares them
// repeatedly.

#include "storage/start.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/runner.h"
#include "storage/numbered_files.h"

namespace {

constexpr mode_t DIRECTORY_MODE = 0700;

// Changes to the directory and sets `made` if it first had to create it.
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

struct filesystem {
    TestRecord &record;
    const char *directory;
    bool made = false; // the test created the directory and removes it

    bool set_up() {
        record.errors = 0;
        return enter_directory(directory, made) && lay_test_files(record);
    }

    void turn() {
        verify_test_files(record);
    }

    void end() {
        remove_test_files();
    }

    void release() {
        // Leaves the directory: from here on a relative name refers to the battery-backed store.
        (void)!chdir("/r0");
        if (made)
            (void)rmdir(directory);
    }
};

} // namespace

void filesystem_test(int no_fork, const char *directory) {
    (void)start_test(no_fork, filesystem{claim_record(record_letter::FILESYSTEM), directory});
}
