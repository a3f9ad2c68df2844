// A fresh empty directory for one case, which runs inside it; removed afterwards with its contents.

#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/table_fixture.h"

class ScratchDirectoryTest : public TableTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // Starts a test as record 1, held; returns when its set-up is done and it idles.
    static void start_held(void (*routine)(int no_fork, const char *argument),
                           const std::string &argument);
    // Asks a test to stop; returns the exit status of its process.
    static int stop(int index = 1);

private:
    std::filesystem::path home_;
};

using std::filesystem::exists;
using file_bytes = std::vector<uint8_t>;

unsigned mode_of(const std::string &name); // permission bits
file_bytes read_whole(const std::string &name);
void write_whole(const std::string &name, const file_bytes &bytes);
