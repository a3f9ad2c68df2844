#include "simulator/world/log/board_output.h"

#include "simulator/base/message.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <ctime>

namespace simulator {

board_output output;

namespace {

constexpr size_t WAITING_OUTPUT_BYTES = 1 << 20;
constexpr size_t STAMP_BYTES = 96; // room for seven numbers of any size
constexpr size_t NOTE_BYTES = 512; // a longer note is cut

std::string date_and_time() {
    const int64_t now = calendar_us();
    const time_t seconds = static_cast<time_t>(now / US_PER_SECOND);
    const int milliseconds = static_cast<int>(now % US_PER_SECOND / US_PER_MS);
    tm local{};
    localtime_r(&seconds, &local);
    std::array<char, STAMP_BYTES> text{};
    snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d.%03d ", local.tm_year + 1900,
             local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
             milliseconds);
    return text.data();
}

std::string whole_line(std::string_view text) {
    std::string line = date_and_time();
    const size_t start = line.size();
    line += text;
    std::replace_if(
        line.begin() + static_cast<std::ptrdiff_t>(start), line.end(),
        [](char letter) { return static_cast<unsigned char>(letter) < ' '; }, ' ');
    return line + '\n';
}

} // namespace

void board_output::add_polls(std::vector<pollfd> &polls) const {
    if (!waiting.empty() && !closed)
        polls.push_back({STDOUT_FILENO, POLLOUT, 0});
}

void board_output::ready(const pollfd &) {
    write_waiting();
}

void board_output::keep(std::string_view text) {
    keep_line(whole_line(text));
}

void board_output::keep_line(const std::string &line) {
    constexpr uint64_t FNV_PRIME = 0x100000001B3;
    for (const char letter : line)
        line_hash = (line_hash ^ static_cast<unsigned char>(letter)) * FNV_PRIME;
    file.keep(line);
}

void board_output::show(std::string_view text) {
    const std::string line = whole_line(text);
    keep_line(line);
    if (quiet)
        return;
    put(std::exchange(within_line, false) ? "\r\n" + line : line);
}

void board_output::show_display(std::span<const uint8_t> bytes) {
    if (bytes.empty())
        return;
    put({reinterpret_cast<const char *>(bytes.data()), bytes.size()});
    within_line = bytes.back() != '\n';
}

void board_output::put(std::string_view text) {
    if (closed)
        return;
    if (waiting.size() + text.size() > WAITING_OUTPUT_BYTES && !has_own_clock()) {
        lost_lines++;
        return;
    }
    waiting += text;
    write_waiting();
}

// The program shares the descriptor, which may be in blocking mode. A pipe that poll reports as
// writable takes PIPE_BUF bytes without blocking.
void board_output::write_waiting() {
    while (!waiting.empty()) {
        if (present_events(STDOUT_FILENO, POLLOUT) == 0)
            return;
        const ssize_t written =
            write(STDOUT_FILENO, waiting.data(), std::min<size_t>(waiting.size(), PIPE_BUF));
        if (written < 0) {
            if (errno != EAGAIN && errno != EINTR) {
                closed = true;
                waiting.clear();
            }
            return;
        }
        waiting.erase(0, static_cast<size_t>(written));
    }
    if (lost_lines > 0) {
        const size_t lost = std::exchange(lost_lines, 0);
        board_note("%zu lines could not be shown in time", lost);
    }
}

bool board_output::has_unsent() const {
    return !waiting.empty() && !closed;
}

bool board_output::is_reader_late() const {
    return waiting.size() > WAITING_OUTPUT_BYTES / 2;
}

void board_output::report_unsent() {
    file.finish();
    if (!waiting.empty()) {
        report("%td lines could not be shown: nobody reads them",
               std::count(waiting.begin(), waiting.end(), '\n'));
    }
}

void board_note(const char *format, ...) {
    std::array<char, NOTE_BYTES> text{};
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    output.show(std::string("board: ") + text.data());
}

} // namespace simulator
