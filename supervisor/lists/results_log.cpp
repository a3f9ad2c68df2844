#include "supervisor/lists/results_log.h"

#include <atomic>
#include <csignal>

#include "runtime/system_log.h"
#include "supervisor/lists/line_format.h"
#include "supervisor/lists/results_rows.h"

namespace {

static_assert(longest_line(RESULTS_ROWS) <= RESULTS_LINE_MAX);

volatile sig_atomic_t list_open = 0; // a list is being sent
std::atomic<int32_t> lists_owed = 0; // requested during a list, one for each stop signal
static_assert(std::atomic<int32_t>::is_always_lock_free);

void send_list() {
    log_text("<OL>");
    const int32_t claimed = process_count + bogus_count;
    for (int32_t i = 1; i <= claimed; ++i) {
        char line[RESULTS_LINE_MAX];
        if (format_results_line(status_table->records[static_cast<size_t>(i)], line) > 0)
            log_text(line);
    }
    log_text("</OL><P>");
}

bool take_owed_list() {
    int32_t owed = lists_owed;
    while (owed > 0 && !lists_owed.compare_exchange_weak(owed, owed - 1)) {
    }
    return owed > 0;
}

} // namespace

int format_results_line(const TestRecord &record, char (&line)[RESULTS_LINE_MAX]) {
    return format_line(RESULTS_ROWS, record, line);
}

void results_log() {
    if (list_open != 0) {
        ++lists_owed;
        return;
    }
    sigset_t waiting;
    sigset_t before;
    sigemptyset(&waiting);
    sigaddset(&waiting, SIGALRM);
    sigaddset(&waiting, SIGUSR1);
    (void)sigprocmask(SIG_BLOCK, &waiting, &before);
    do {
        list_open = 1;
        send_list();
        list_open = 0; // before the check for owed lists: a stop from here on writes its own list
    } while (take_owed_list());
    (void)sigprocmask(SIG_SETMASK, &before, nullptr);
}
