// The system calls of a test process, written down in order, one line each, and the devices that
// answer them. The program's calls are replaced at link time, see trace_calls in
// tests/CMakeLists.txt.
//
// Every path below /dev is a device of this file; other files are real. Time is the trace's own:
// only sleeps and polls without an event take some.

#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <sys/types.h>
#include <vector>

#include "tests/support/scratch_directory.h"

// What a device does. A read or a transfer returns the bytes that it stored.
struct traced_device {
    std::function<bool(const std::string &device)> has_input;
    std::function<size_t(const std::string &device, std::span<uint8_t> room)> read;
    std::function<void(const std::string &device, std::span<const uint8_t> bytes)> written;
    std::function<void(std::span<const uint8_t> sent, std::span<uint8_t> received)> transfer;
    short other_events = 0; // of every poll, such as POLLHUP
    bool changes_what_it_sends = false;
    bool shows_cleared = false;  // with each read, how many bytes of its room are zero
    int64_t time_us = 5'000'000; // of the day, at the start
};

// Done by the test process, as its supervisor could, when it makes a call for the nth time.
struct traced_event {
    const char *line;
    int nth;
    void (*action)();
};

class CallTrace : public ScratchDirectoryTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // Runs a test to its end. Expects exit status 2 and returns the lines. Lines that repeat the
    // one before are one line, with their number. A line says whether record 1 had a stop or a
    // finished mark.
    std::vector<std::string> run(const std::function<pid_t()> &start,
                                 std::vector<traced_event> events);

    // Traces a function in a process of its own.
    static std::vector<std::string> trace_of(const std::function<void()> &work,
                                             std::vector<traced_event> events = {});

    // Sets the stop and hold words of the first two records.
    static void stop_it();
    static void hold_it();
    static void release_it();
    static void set_clock_back(); // by 10 ms

    // What the far end of a cable, or a module, has ready: one read takes it all.
    static size_t read_waiting(const std::string &device, std::span<uint8_t> room);
    static bool is_waiting(const std::string &device);

    static traced_device device;         // as new for each case
    static std::vector<uint8_t> waiting; // likewise
};

std::string joined(const std::vector<std::string> &lines);

// The lines that begin so, joined.
std::string lines_with(const std::vector<std::string> &lines, const std::string &start);

// The lines of the open of an asynchronous port.
std::string opened(const std::string &port);
