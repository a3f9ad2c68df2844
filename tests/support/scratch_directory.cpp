#include "tests/support/scratch_directory.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "runtime/started_tests.h"

namespace fs = std::filesystem;

void ScratchDirectoryTest::SetUp() {
    TableTest::SetUp();
    home_ = fs::current_path();
    char name[] = "/tmp/hk_stress_test.XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    fs::current_path(name);
    (void)umask(0);
}

void ScratchDirectoryTest::TearDown() {
    TableTest::TearDown(); // ends the test process first
    (void)umask(022);
    const fs::path scratch = fs::current_path();
    fs::current_path(home_);
    fs::remove_all(scratch);
}

void ScratchDirectoryTest::start_held(void (*routine)(int, const char *),
                                      const std::string &argument) {
    const pid_t self = getpid();
    record(1).hold = HOLD_REQUESTED;
    routine(0, argument.c_str());
    if (getpid() != self)
        _exit(1); // the routine returns here if its set-up fails
    ASSERT_TRUE(wait_until([] { return shared_word(record(1).hold) == HOLD_ACKNOWLEDGED; }));
    EXPECT_EQ(record(1).pid, started_process(1));
}

int ScratchDirectoryTest::stop(int index) {
    const pid_t process = shared_word(record(index).pid);
    set_shared_word(record(index).pid, PID_STOP);
    int status = -1;
    (void)waitpid(process, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

unsigned mode_of(const std::string &name) {
    return static_cast<unsigned>(fs::status(name).permissions());
}

file_bytes read_whole(const std::string &name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write_whole(const std::string &name, const file_bytes &bytes) {
    std::ofstream file(name, std::ios::binary);
    file.write(reinterpret_cast<const char *>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}
