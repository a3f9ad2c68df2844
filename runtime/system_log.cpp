#include "runtime/system_log.h"

#include <cstdarg>
#include <cstdio>
#include <syslog.h>
#include <unistd.h>

#include "runtime/print.h"
#include "runtime/settings.h"

namespace {

char log_ident[32]; // openlog keeps the pointer for the life of the process

} // namespace

void set_log_ident(const char *text) {
    (void)snprintf(log_ident, sizeof log_ident, "%s", text);
}

void open_system_log() {
    if (log_ident[0] == '\0')
        (void)snprintf(log_ident, sizeof log_ident, "Stress %s ", mac_hex);
    openlog(log_ident, 0, LOG_USER);
}

void log_text(const char *text) {
    syslog(LOG_INFO, "%s", text);
}

void log_format(const char *format, ...) {
    char text[LOG_TEXT_MAX];
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    log_text(text);
}

void log_and_print(const char *format, ...) {
    char text[LOG_TEXT_MAX];
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    log_text(text);
    print(STDERR_FILENO, "%s", text);
}
