// The system log: priority LOG_INFO, facility user, under the run's ident.

#pragma once

constexpr int LOG_TEXT_MAX = 400; // bytes of one message, the closing zero included

// Sets the name of the run in the log: the text of -I, cut to 31 characters.
void set_log_ident(const char *text);

// Opens the log, see openlog(3), under the ident. A missing or empty ident is replaced by the
// board's MAC address in twelve hexadecimal digits: "Stress 020000001234 ".
void open_system_log();

// Sends one message.
void log_text(const char *text);

// Sends one formatted message, cut to LOG_TEXT_MAX.
void log_format(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Sends the message and also writes it to standard error.
void log_and_print(const char *format, ...) __attribute__((format(printf, 1, 2)));
