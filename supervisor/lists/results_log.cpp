#include "supervisor/lists/results_log.h"

#include <atomic>
#include <csignal>
#include <cstdio>

#include "runtime/system_log.h"

namespace {

volatile sig_atomic_t list_open = 0; // a list is being sent
std::atomic<int32_t> lists_owed = 0; // asked for meanwhile, each by a stop signal of its own
static_assert(std::atomic<int32_t>::is_always_lock_free);

constexpr const char *spi_device_name(int32_t unit) {
    return unit == 1 ? "Datakey" : "eeprom";
}

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

int format_results_line(const TestRecord &r, char (&line)[RESULTS_LINE_MAX]) {
    const auto s = samples_newest_first(r);
    constexpr size_t room = sizeof line;
    // The counters are unsigned words, printed as the target's %d shows them.
    const auto wrote = static_cast<int32_t>(r.write_count);
    const auto read = static_cast<int32_t>(r.read_count);
    const auto verified = static_cast<int32_t>(r.prev_read_count);

    switch (r.test_letter) {
    case 'N':
        return snprintf(line, room,
                        "<LI> %d sp%d loop wrote %d read %d errors %d,%d,%d hist %d,%d %d,%d %d,%d "
                        "%d,%d %d,%d\n",
                        r.kind_code, r.unit, wrote, read, r.errors2, r.errors, r.errors3,
                        s[0].position, s[0].value, s[1].position, s[1].value, s[2].position,
                        s[2].value, s[3].position, s[3].value, s[4].position, s[4].value);
    case 'E':
        return snprintf(line, room,
                        "<LI> %d sp%d echo wrote %d read %d errors %d,%d,0 hist %d,%d %d,%d %d,%d "
                        "%d,%d %d,%d\n",
                        r.kind_code, r.unit, wrote, read, r.errors2, r.errors, s[0].position,
                        s[0].value, s[1].position, s[1].value, s[2].position, s[2].value,
                        s[3].position, s[3].value, s[4].position, s[4].value);
    case 'P':
        return snprintf(line, room,
                        "<LI> %d sp%d produce wrote %d verify %d errors %d,%d,%d hist 0,0 0,0 0,0 "
                        "0,0 0,0\n",
                        r.kind_code, r.unit, wrote, wrote, r.errors2, r.errors3, r.errors);
    case 'C':
        return snprintf(line, room,
                        "<LI> %d sp%d consume read %d verify %d errors %d,%d,%d hist %d,%d %d,%d "
                        "%d,%d %d,%d %d,%d\n",
                        r.kind_code, r.unit, read, verified, r.errors2, r.errors3, r.errors,
                        s[0].position, s[0].value, s[1].position, s[1].value, s[2].position,
                        s[2].value, s[3].position, s[3].value, s[4].position, s[4].value);
    case 'S':
        return snprintf(line, room,
                        "<LI> %d %s spi wrote %d read %d errors %d,%d,0 hist 0,0 0,0 0,0 0,0 0,0\n",
                        r.kind_code, spi_device_name(r.unit), wrote, read, r.errors2, r.errors);
    case 'F':
        return snprintf(line, room,
                        "<LI> %d FIOloop sp%ds wrote %d read %d errors %d,%d,%d hist %d,%d %d,%d "
                        "%d,%d %d,%d %d,%d\n",
                        r.kind_code, r.unit, wrote, verified, r.errors2, r.errors3, r.errors,
                        s[0].position, s[0].value, s[1].position, s[1].value, s[2].position,
                        s[2].value, s[3].position, s[3].value, s[4].position, s[4].value);
    case 'L':
        return snprintf(line, room,
                        "<LI> %d SpiFIOloop sp%cs wrote %d read %d errors %d,%d,0 hist %d,%d %d,%d "
                        "%d,%d %d,%d %d,%d\n",
                        r.kind_code, r.unit, wrote, read, r.errors2, r.errors3, s[0].position,
                        s[0].value, s[1].position, s[1].value, s[2].position, s[2].value,
                        s[3].position, s[3].value, s[4].position, s[4].value);
    case 'Y':
        return snprintf(
            line, room,
            "<LI> %d filesys opt wrote %d read %d errors %d,0,0 hist 0,0 0,0 0,0 0,0 0,0\n",
            r.kind_code, wrote, read, r.errors);
    case 'M':
        return snprintf(
            line, room,
            "<LI> %d bbsram file_copy wrote %d read %d errors %d,0,0 hist 0,0 0,0 0,0 0,0 0,0\n",
            r.kind_code, wrote, read, r.errors);
    case 'D':
        return snprintf(
            line, room,
            "<LI> %d dram user alloc %d test %d errors %d,0,0 hist 0,0 0,0 0,0 0,0 0,0\n",
            r.kind_code, read, wrote, r.errors);
    default:
        line[0] = '\0';
        return 0;
    }
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
        list_open = 0; // before the look at what is owed: a stop from here on writes its own list
    } while (take_owed_list());
    (void)sigprocmask(SIG_SETMASK, &before, nullptr);
}
