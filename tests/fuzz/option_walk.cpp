// The walk over the command line as the program does it, except that it forks no process and makes
// no pause: the linker replaces fork(2), nanosleep(2) and usleep(3), see the top CMakeLists.txt.

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <getopt.h>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

#include "runtime/settings.h"
#include "serial/port_access.h"
#include "serial/port_settings.h"
#include "supervisor/plan/option_walk.h"
#include "supervisor/status_table.h"
#include "tests/fuzz/targets.h"

namespace {

constexpr size_t ARGUMENTS_MAX = 200; // more than the program reads, enough to claim every record
constexpr pid_t SOME_PROCESS = 700001;

StatusTable table; // of its own: the sanitizer sees what goes beyond it

thread_local bool is_walking = false; // threads of a fuzzer or sanitizer sleep as they wish

bool is_untouched(const TestRecord &record) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&record);
    return std::all_of(bytes, bytes + sizeof record, [](uint8_t byte) { return byte == 0; });
}

void start_afresh() {
    table = {};
    set_status_table(&table);
    record_count = bogus_count = process_count = sync_owner = 0;
    hdlc_mode = 0;
    paused_us = 0;
    port_speed_code = SPEED_115200;
    optind = 0; // see getopt(3): it starts from the beginning again
}

// The arguments end at zero bytes.
std::vector<char *> split(std::vector<char> &text) {
    static char program[] = "hk_stress";
    std::vector<char *> words = {program};
    text.push_back('\0');
    words.push_back(text.data());
    for (size_t i = 0; i + 1 < text.size() && words.size() < ARGUMENTS_MAX; ++i)
        if (text[i] == '\0')
            words.push_back(&text[i + 1]);
    words.push_back(nullptr);
    return words;
}

} // namespace

bool forks_fail = false;
int32_t hold_at_fork = 0;
uint32_t paused_us = 0;

extern "C" {
pid_t __real_fork();
int __real_nanosleep(const timespec *, timespec *);
int __real_usleep(useconds_t);

pid_t __wrap_fork();
pid_t __wrap_fork() {
    if (!is_walking)
        return __real_fork();
    require(record_count >= 1 && record_count <= TEST_RECORDS);
    hold_at_fork = table.records[static_cast<size_t>(record_count)].hold;
    if (forks_fail)
        errno = EAGAIN;
    return forks_fail ? -1 : SOME_PROCESS;
}

int __wrap_nanosleep(const timespec *wanted, timespec *left);
int __wrap_nanosleep(const timespec *wanted, timespec *left) {
    return is_walking ? 0 : __real_nanosleep(wanted, left);
}

int __wrap_usleep(useconds_t wanted);
int __wrap_usleep(useconds_t wanted) {
    paused_us += is_walking ? wanted : 0;
    return is_walking ? 0 : __real_usleep(wanted);
}
}

void fuzz_option_walk(std::span<const uint8_t> input) {
    start_afresh();
    std::vector<char> text(input.begin(), input.end());
    std::vector<char *> words = split(text);
    is_walking = true;
    walk_options(static_cast<int>(words.size()) - 1, words.data());
    is_walking = false;

    require(record_count >= 0 && record_count <= TEST_RECORDS);
    require(bogus_count >= 0 && 2 * bogus_count <= record_count);
    require(sync_owner >= 0 && sync_owner <= record_count);
    for (int32_t i = record_count + 1; i < TABLE_RECORDS; ++i)
        require(is_untouched(table.records[static_cast<size_t>(i)]));
    for (const TestRecord &record : table.records)
        require(forks_fail ||
                (record.pid == PID_NONE && record.errors == 0 && record.hist_next == 0));
}
