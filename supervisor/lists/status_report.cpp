#include "supervisor/lists/status_report.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "runtime/settings.h"

timeval last_report_time;
timeval report_start_time;

namespace {

// Milliseconds since the previous report, in 32 bits, each part truncated toward zero.
int32_t elapsed_ms() {
    const auto seconds = static_cast<int32_t>(report_start_time.tv_sec - last_report_time.tv_sec);
    const auto us = static_cast<int32_t>(report_start_time.tv_usec - last_report_time.tv_usec);
    return static_cast<int32_t>(static_cast<uint32_t>(seconds) * 1000u) + us / 1000;
}

uint32_t elapsed_s() {
    return static_cast<uint32_t>(report_start_time.tv_sec - last_report_time.tv_sec);
}

// Bits per second of an asynchronous line, ten bits a counted character.
long long bit_rate(const TestRecord &r) {
    const uint32_t characters = r.read_count - r.prev_read_count;
    const uint64_t product = uint64_t{characters} * 10000; // 10 bits, and ms below
    const int32_t ms = elapsed_ms();
    return ms > 0 ? static_cast<int64_t>(product) / ms : 0;
}

// Tenths of a count per second; 0 within the first second, where there is no whole one to divide
// by.
long read_rate(const TestRecord &r) {
    const uint32_t tenths = (r.read_count - r.prev_read_count) * 10;
    const uint32_t seconds = elapsed_s();
    return seconds == 0 ? 0 : static_cast<int32_t>(tenths / seconds);
}

} // namespace

int format_report_line(const TestRecord &r, char (&line)[REPORT_LINE_MAX]) {
    const auto s = samples_newest_first(r);
    constexpr size_t room = sizeof line;

    switch (r.test_letter) {
    case 'E':
        return snprintf(line, room, "\nsp%d, pid %4d echo   , wrote %08x, read %08x, errors %04x",
                        r.unit, r.pid, r.write_count, r.read_count,
                        static_cast<uint32_t>(r.errors));
    case 'P':
        return snprintf(line, room, "\nsp%d, pid %4d produce, wrote %08x, errors %04x", r.unit,
                        r.pid, r.write_count, static_cast<uint32_t>(r.errors));
    case 'C':
        return snprintf(
            line, room,
            "\nsp%d, pid %4d consume,               , read %08x, errors %04x    %6lld bps", r.unit,
            r.pid, r.read_count, static_cast<uint32_t>(r.errors), bit_rate(r));
    case 'S':
        return snprintf(line, room, "\n    pid %4d spi %s, wrote %08x, read %08x, errors %04x",
                        r.pid, r.unit == 1 ? "key" : "rom", r.write_count, r.read_count,
                        static_cast<uint32_t>(r.errors));
    case 'F':
        return snprintf(line, room,
                        "\nsp%ds,pid %4d FIOloop, wrote %08x, read %08x, errors %02x %02x[%02d "
                        "%02d][%02d %02d][%02d %02d]",
                        r.unit, r.pid, r.write_count, r.read_count,
                        static_cast<uint32_t>(r.errors2), static_cast<uint32_t>(r.errors3),
                        s[0].position, s[0].value, s[1].position, s[1].value, s[2].position,
                        s[2].value);
    case 'L':
        return snprintf(line, room,
                        "\nsp%cs,pid %4d SpiFIOloop, wrote %08x, read %08x, errors %02x %02x[%02d "
                        "%02d][%02d %02d][%02d %02d]",
                        r.unit, r.pid, r.write_count, r.read_count,
                        static_cast<uint32_t>(r.errors2), static_cast<uint32_t>(r.errors3),
                        s[0].position, s[0].value, s[1].position, s[1].value, s[2].position,
                        s[2].value);
    case 'Y':
        return snprintf(
            line, room, "\n     pid %4d filesys, wrote %08x, read %08x, errors %04x    %6ld ",
            r.pid, r.write_count, r.read_count, static_cast<uint32_t>(r.errors), read_rate(r));
    case 'M':
        return snprintf(line, room, "\n     pid %4d file copy,  read %08x, errors %04x    %6ld ",
                        r.pid, r.read_count, static_cast<uint32_t>(r.errors),
                        long{static_cast<int32_t>(elapsed_s())});
    case 'D':
        return snprintf(
            line, room, "\n     pid %4d dram   , alloc %08x, test %08x, errors %04x    %6ld ",
            r.pid, r.read_count, r.write_count, static_cast<uint32_t>(r.errors), read_rate(r));
    default:
        line[0] = '\0';
        return 0;
    }
}

void status_report() {
    char text[TEST_RECORDS * 200 + 2]; // the longest line has less than 200 characters
    size_t length = 0;

    (void)gettimeofday(&report_start_time, nullptr);
    for (int32_t i = 1; i <= process_count; ++i) {
        TestRecord &record = status_table->records[static_cast<size_t>(i)];
        char line[REPORT_LINE_MAX];
        const auto printed = static_cast<size_t>(format_report_line(record, line));
        const size_t kept = std::min(printed, sizeof text - 1 - length);
        memcpy(text + length, line, kept);
        length += kept;
        record.prev_read_count = record.read_count;
        record.prev_write_count = record.write_count;
    }
    (void)gettimeofday(&last_report_time, nullptr);
    text[length++] = '\n';
    if (led_period != 0)
        (void)!write(STDOUT_FILENO, text, length);
}
