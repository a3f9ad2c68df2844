// A fresh empty directory for one case, which runs inside it; removed afterwards with all it holds.

#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

#include "tests/table_fixture.h"

class ScratchDirectoryTest : public TableTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // Starts a test that takes its argument as text, as record 1. In the test process of a set-up
    // that fails the routine comes back too: the process then ends with CAME_BACK.
    using start_routine = void (*)(int no_fork, const char *argument);
    static void start(start_routine routine, const std::string &argument);
    // The same under a hold, waiting until the set-up is done and the test idles.
    static void start_held(start_routine routine, const std::string &argument);
    static void release();

    // Tells the test to stop; returns the exit status of its process.
    static int stop();
    // Waits for a test that ends by itself.
    static int wait_for_end();

    static constexpr int CAME_BACK = 77;

    std::string directory; // absolute path

private:
    int home_ = -1;
};

using file_bytes = std::vector<uint8_t>;

bool exists(const std::string &name);
unsigned mode_of(const std::string &name); // permission bits
file_bytes read_whole(const std::string &name);
void write_whole(const std::string &name, const file_bytes &bytes);
