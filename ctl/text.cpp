#include "ctl/text.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

#include "runtime/unique_fd.h"

namespace {

// Of any length: a cut could leave half a character of UTF-8.
std::string format_text(const char *format, va_list arguments) {
    char text[1024];
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    std::string whole(text, static_cast<size_t>(std::clamp<int>(length, 0, sizeof text - 1)));
    if (length > static_cast<int>(whole.size())) {
        whole.resize(static_cast<size_t>(length));
        (void)vsnprintf(whole.data(), whole.size() + 1, format, again);
    }
    va_end(again);
    return whole;
}

// The length according to the first byte; 0 if no character begins with it.
size_t announced_length(unsigned char first) {
    if (first < 0x80)
        return 1;
    if (first >= 0xC2 && first < 0xE0)
        return 2;
    if (first >= 0xE0 && first < 0xF0)
        return 3;
    return first >= 0xF0 && first < 0xF5 ? 4 : 0;
}

} // namespace

std::string text_of(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string text = format_text(format, arguments);
    va_end(arguments);
    return text;
}

void complain(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = "hk_ctl: " + format_text(format, arguments) + "\n";
    va_end(arguments);
    (void)fflush(stdout); // keeps the order of output and messages
    (void)!write(STDERR_FILENO, text.data(), text.size());
}

std::string read_file(const char *path) {
    const unique_fd file(open(path, O_RDONLY | O_CLOEXEC));
    std::string text;
    char bytes[4096];
    for (ssize_t count; file && (count = read(file.get(), bytes, sizeof bytes)) > 0;)
        text.append(bytes, static_cast<size_t>(count));
    return text;
}

std::vector<std::string> split_at_zeros(const std::string &text) {
    std::vector<std::string> words;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\0', at), text.size());
        words.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

std::vector<std::string> split_at_blanks(const std::string &text) {
    std::vector<std::string> words;
    for (size_t at = 0; (at = text.find_first_not_of(" \t", at)) != std::string::npos;) {
        const size_t end = std::min(text.find_first_of(" \t", at), text.size());
        words.push_back(text.substr(at, end - at));
        at = end;
    }
    return words;
}

bool read_number(const char *text, int64_t lowest, int64_t highest, int64_t &number) {
    if (*text < '0' || *text > '9')
        return false;
    char *end = nullptr;
    errno = 0;
    number = strtoll(text, &end, 10);
    return errno == 0 && *end == '\0' && number >= lowest && number <= highest;
}

size_t utf8_length(const std::string &text, size_t at) {
    const auto byte = [&text](size_t index) { return static_cast<unsigned char>(text[index]); };
    const size_t length = announced_length(byte(at));
    if (length == 0 || at + length > text.size())
        return 0;
    for (size_t i = 1; i < length; ++i)
        if ((byte(at + i) & 0xC0) != 0x80)
            return 0;
    if (length < 3)
        return length;
    // Overlong, a surrogate, beyond the last character, or U+FFFE and U+FFFF, which XML refuses.
    const int begin = byte(at) << 8 | byte(at + 1);
    const bool is_wrong = (begin >= 0xE080 && begin < 0xE0A0) ||
                          (begin >= 0xEDA0 && begin < 0xEE00) ||
                          (begin >= 0xF080 && begin < 0xF090) || begin >= 0xF490 ||
                          (begin == 0xEFBF && byte(at + 2) >= 0xBE);
    return is_wrong ? 0 : length;
}

std::string printable(const std::string &text) {
    std::string shown;
    for (size_t at = 0; at < text.size();) {
        const size_t length = utf8_length(text, at);
        const auto byte = static_cast<unsigned char>(text[at]);
        // C1 controls are two bytes in UTF-8, and some terminals obey them.
        const bool is_control =
            byte < 0x20 || byte == 0x7F ||
            (byte == 0xC2 && length == 2 && static_cast<unsigned char>(text[at + 1]) < 0xA0);
        if (length == 0 || is_control)
            shown += '?';
        else
            shown.append(text, at, length);
        at += std::max<size_t>(length, 1);
    }
    return shown;
}

std::string joined(const std::vector<std::string> &words) {
    std::string line;
    for (const std::string &word : words)
        line += (line.empty() ? "" : " ") + word;
    return line;
}

std::string date_text(int64_t seconds) {
    using namespace std::chrono;
    const year_month_day day(floor<days>(sys_seconds(std::chrono::seconds(seconds))));
    return text_of("%d-%02u-%02u ", static_cast<int>(day.year()),
                   static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day())) +
           time_of_day_text(seconds);
}

std::string time_of_day_text(int64_t seconds) {
    const auto second = static_cast<int>(seconds % 86400);
    return text_of("%02d:%02d:%02d", second / 3600, second / 60 % 60, second % 60);
}

int64_t now_ms() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}
