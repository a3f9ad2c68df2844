// Texts of hk_ctl: formatted ones, files of /proc, messages.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A text made as printf(3) makes it.
std::string text_of(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Reports on standard error, after the program's name; adds the line end.
void complain(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The whole file, empty when it cannot be read; errno then says why, see open(2).
std::string read_file(const char *path);

// The texts between zero bytes, as /proc/PID/cmdline has them.
std::vector<std::string> split_at_zeros(const std::string &text);

// The texts between blanks and tabs. (sscanf(3) would bring 60 KB into a static program.)
std::vector<std::string> split_at_blanks(const std::string &text);

// The number that the whole text is; false when it is none, or not within the limits.
bool read_number(const char *text, int64_t lowest, int64_t highest, int64_t &number);

// As a terminal may show it: bytes that are no printable ASCII or UTF-8 become '?'.
std::string printable(const std::string &text);

// The bytes of the UTF-8 character that begins here; 0 when there is none, see utf-8(7).
size_t utf8_length(const std::string &text, size_t at);

// The option's words as they would be typed, separated by blanks.
std::string joined(const std::vector<std::string> &words);

// Date and time of seconds since 1970, in UTC. (Local time would bring 100 KB into a static
// program.)
std::string date_text(int64_t seconds);
std::string time_of_day_text(int64_t seconds);

// Milliseconds of a clock that is never set.
int64_t now_ms();
