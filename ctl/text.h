// Texts of hk_ctl: formatting, files of /proc, messages.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Formats a text as printf(3) does.
std::string text_of(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Writes a message to standard error, after the program's name; adds the line end.
void complain(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The whole file. Empty with errno set if it cannot be read, see open(2).
std::string read_file(const char *path);

// The texts between zero bytes, as /proc/PID/cmdline has them.
std::vector<std::string> split_at_zeros(const std::string &text);

// The texts between blanks and tabs. (sscanf(3) would bring 60 KB into a static program.)
std::vector<std::string> split_at_blanks(const std::string &text);

// Reads a text that is one number; false if it is anything else or outside the limits.
bool read_number(const char *text, int64_t lowest, int64_t highest, int64_t &number);

// The text as a terminal may show it: bytes that are not printable ASCII or UTF-8 become '?'.
std::string printable(const std::string &text);

// The length of the UTF-8 character that begins at `at`; 0 if there is none, see utf-8(7).
size_t utf8_length(const std::string &text, size_t at);

// The words, separated by blanks.
std::string joined(const std::vector<std::string> &words);

// The date and time, in UTC, of a number of seconds since 1970. (Local time would bring 100 KB into
// a static program.)
std::string date_text(int64_t seconds);
std::string time_of_day_text(int64_t seconds);

// Milliseconds of a clock that nobody can set.
int64_t now_ms();
