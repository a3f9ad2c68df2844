#include "tests/calls/call_trace.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/calls/traced_process.h"

traced_device CallTrace::device;
std::vector<uint8_t> CallTrace::waiting;

namespace traced {

traced_device *devices = nullptr;
std::map<int, std::string> names;
int64_t now_us = 0;

namespace {

constexpr size_t LINES_MAX = 600;
constexpr size_t LINE_BYTES = 120;
constexpr int REPEATS_MAX = 5000;

struct shared_lines {
    size_t count;
    char text[LINES_MAX][LINE_BYTES];
    int times[LINES_MAX];
};

shared_lines *lines = nullptr;
pid_t test_runner = 0;
std::vector<traced_event> pending;

const char *marker() {
    const int32_t pid = shared_word(status_table->records[1].pid);
    return pid == PID_STOP ? " stopped" : pid == PID_FINISHED ? " finished" : "";
}

void act_on(const std::string &line) {
    for (traced_event &event : pending)
        if (event.nth > 0 && line.starts_with(event.line) && --event.nth == 0)
            event.action();
}

std::vector<std::string> noted_lines() {
    std::vector<std::string> all;
    for (size_t i = 0; i < lines->count; ++i)
        all.push_back(lines->text[i] +
                      (lines->times[i] > 1 ? " x" + number(lines->times[i]) : std::string()));
    return all;
}

} // namespace

bool is_on() {
    return lines != nullptr && getpid() != test_runner;
}

void note(const std::string &line) {
    const std::string marked = (line + marker()).substr(0, LINE_BYTES - 1);
    if (lines->count > 0 && marked == lines->text[lines->count - 1]) {
        if (++lines->times[lines->count - 1] > REPEATS_MAX)
            _exit(98); // it would never end
    } else {
        if (lines->count == LINES_MAX)
            _exit(99);
        strcpy(lines->text[lines->count], marked.c_str());
        lines->times[lines->count++] = 1;
    }
    act_on(line);
}

std::string number(int64_t value) {
    return std::to_string(value);
}

std::string name_of(int fd) {
    const auto found = names.find(fd);
    return found != names.end() ? found->second : number(fd);
}

std::string names_of(int flags, std::span<const flag_name> bits) {
    std::string text;
    for (const auto &[bit, name] : bits) {
        if ((flags & bit) != 0)
            text += std::string(" ") + name;
        flags &= ~bit;
    }
    return flags != 0 ? text + " and " + number(flags) : text;
}

} // namespace traced

using namespace traced;

void CallTrace::SetUp() {
    ScratchDirectoryTest::SetUp();
    void *room = mmap(nullptr, sizeof(shared_lines), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(room, MAP_FAILED);
    lines = static_cast<shared_lines *>(room);
    test_runner = getpid();
    device = {};
    waiting.clear();
    devices = &device;
}

void CallTrace::TearDown() {
    (void)munmap(lines, sizeof(shared_lines));
    lines = nullptr;
    ScratchDirectoryTest::TearDown();
}

std::vector<std::string> CallTrace::run(const std::function<pid_t()> &start,
                                        std::vector<traced_event> events) {
    *lines = {};
    *status_table = {};
    record_count = 0;
    now_us = device.time_us;
    pending = std::move(events);
    (void)fflush(stdout); // or the test process would print what waits there
    const pid_t self = getpid();
    const pid_t child = start();
    if (getpid() != self)
        _exit(1); // a set-up that fails brings the test process back
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << "status " << std::hex << status;
    std::vector<std::string> all = noted_lines();
    const auto begin = all.begin() + std::min<ssize_t>(std::ssize(all), 2);
    EXPECT_EQ(joined({all.begin(), begin}), "lock memory\nopen log \"Stress  \" 0 8\n");
    return {begin, all.end()};
}

std::vector<std::string> CallTrace::trace_of(const std::function<void()> &work,
                                             std::vector<traced_event> events) {
    *lines = {};
    pending = std::move(events);
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(2);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return noted_lines();
}

void CallTrace::stop_it() {
    for (const size_t index : {1U, 2U}) {
        set_shared_word(status_table->records[index].pid, PID_STOP);
        set_shared_word(status_table->records[index].hold, HOLD_REQUESTED);
    }
}

void CallTrace::hold_it() {
    for (const size_t index : {1U, 2U})
        set_shared_word(status_table->records[index].hold, HOLD_REQUESTED);
}

void CallTrace::release_it() {
    for (const size_t index : {1U, 2U})
        set_shared_word(status_table->records[index].hold, HOLD_NONE);
}

void CallTrace::set_clock_back() {
    now_us -= 10'000;
}

std::string joined(const std::vector<std::string> &all) {
    std::string text;
    for (const std::string &line : all)
        text += line + "\n";
    return text;
}

std::string lines_with(const std::vector<std::string> &all, const std::string &start) {
    std::vector<std::string> found;
    std::ranges::copy_if(all, std::back_inserter(found),
                         [&](const std::string &line) { return line.starts_with(start); });
    return joined(found);
}

std::string opened(const std::string &port) {
    return "open /dev/" + port + " rw\n" + port + " get settings\n" + port +
           " set settings at once\n" + port + " get settings\n" + port +
           " set settings and flush\n";
}

size_t CallTrace::read_waiting(const std::string &, std::span<uint8_t> room) {
    std::ranges::copy(waiting, room.begin());
    return std::exchange(waiting, {}).size();
}

bool CallTrace::is_waiting(const std::string &) {
    return !waiting.empty();
}
