#include "tests/scratch_directory.h"

#include <cstdlib>
#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "supervisor/test_process.h"
#include "supervisor/unique_fd.h"

namespace {

int remove_entry(const char *path, const struct stat *, int, FTW *) {
    return remove(path);
}

} // namespace

void ScratchDirectoryTest::SetUp() {
    TableTest::SetUp();
    char name[] = "/tmp/hk_stress_test.XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    directory = name;
    home_ = open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(chdir(name), 0);
    (void)umask(0);
}

void ScratchDirectoryTest::TearDown() {
    TableTest::TearDown(); // ends the test process first
    (void)umask(022);
    EXPECT_EQ(fchdir(home_), 0);
    (void)close(home_);
    EXPECT_EQ(nftw(directory.c_str(), remove_entry, 8, FTW_DEPTH | FTW_PHYS), 0);
}

void ScratchDirectoryTest::start(start_routine routine, const std::string &argument) {
    const pid_t self = getpid();
    routine(0, argument.c_str());
    if (getpid() != self)
        _exit(CAME_BACK);
    ASSERT_EQ(record_count, 1);
    ASSERT_GT(started_process(1), 0);
}

void ScratchDirectoryTest::start_held(start_routine routine, const std::string &argument) {
    record(1).hold = HOLD_REQUESTED;
    start(routine, argument);
    ASSERT_TRUE(wait_until([] { return shared_word(record(1).hold) == HOLD_ACKNOWLEDGED; }));
    EXPECT_EQ(record(1).pid, started_process(1));
}

void ScratchDirectoryTest::release() {
    set_shared_word(record(1).hold, HOLD_NONE);
}

int ScratchDirectoryTest::stop() {
    set_shared_word(record(1).pid, PID_STOP);
    return wait_for_end();
}

int ScratchDirectoryTest::wait_for_end() {
    int status = -1;
    if (waitpid(started_process(1), &status, 0) < 0 || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

bool exists(const std::string &name) {
    struct stat status;
    return lstat(name.c_str(), &status) == 0;
}

unsigned mode_of(const std::string &name) {
    struct stat status = {};
    (void)lstat(name.c_str(), &status);
    return status.st_mode & 07777;
}

file_bytes read_whole(const std::string &name) {
    const unique_fd file(open(name.c_str(), O_RDONLY));
    file_bytes bytes(4096);
    const ssize_t count = read(file.get(), bytes.data(), bytes.size());
    bytes.resize(count < 0 ? 0 : static_cast<size_t>(count));
    return bytes;
}

void write_whole(const std::string &name, const file_bytes &bytes) {
    const unique_fd file(open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
    ASSERT_EQ(write(file.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}
