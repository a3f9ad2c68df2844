#include "supervisor/lists/rates.h"

timeval last_report_time;
timeval report_start_time;

namespace {

// Returns the milliseconds since the previous report, in 32 bits, each part truncated toward zero.
int32_t elapsed_ms() {
    const auto seconds = static_cast<int32_t>(report_start_time.tv_sec - last_report_time.tv_sec);
    const auto us = static_cast<int32_t>(report_start_time.tv_usec - last_report_time.tv_usec);
    return static_cast<int32_t>(static_cast<uint32_t>(seconds) * 1000u) + us / 1000;
}

} // namespace

int64_t bit_rate(const TestRecord &record) {
    const uint32_t characters = record.read_count - record.prev_read_count;
    const uint64_t product =
        uint64_t{characters} * 10000; // 10 bits a character times 1000 ms a second
    const int32_t ms = elapsed_ms();
    return ms > 0 ? static_cast<int64_t>(product) / ms : 0;
}

int32_t read_rate(const TestRecord &record) {
    const uint32_t tenths = (record.read_count - record.prev_read_count) * 10;
    const uint32_t seconds = elapsed_s();
    return seconds == 0 ? 0 : static_cast<int32_t>(tenths / seconds);
}

uint32_t elapsed_s() {
    return static_cast<uint32_t>(report_start_time.tv_sec - last_report_time.tv_sec);
}
