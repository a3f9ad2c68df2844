#include "supervisor/lists/status_report.h"

#include <cstring>
#include <unistd.h>

#include "runtime/clock.h"
#include "supervisor/lists/line_format.h"
#include "supervisor/lists/rates.h"
#include "supervisor/lists/report_rows.h"

static_assert(longest_line(REPORT_ROWS) <= REPORT_LINE_MAX);

int format_report_line(const TestRecord &record, char (&line)[REPORT_LINE_MAX]) {
    return format_line(REPORT_ROWS, record, line);
}

void status_report() {
    char text[TEST_RECORDS * longest_line(REPORT_ROWS) + 1];
    size_t length = 0;

    report_start_time = time_of_day();
    for (int32_t i = 1; i <= process_count; ++i) {
        TestRecord &record = status_table->records[static_cast<size_t>(i)];
        char line[REPORT_LINE_MAX];
        const auto printed = static_cast<size_t>(format_report_line(record, line));
        memcpy(text + length, line, printed);
        length += printed;
        record.prev_read_count = record.read_count;
        record.prev_write_count = record.write_count;
    }
    last_report_time = time_of_day();
    text[length++] = '\n';
    (void)!write(STDOUT_FILENO, text, length);
}
