#include "supervisor/plan/serial_plan.h"

#include "serial/port_access.h"
#include "serial/start.h"
#include "supervisor/plan/kind_codes.h"
#include "supervisor/status_table.h"

namespace {

enum sync_use { SYNC_NONE, SYNC_USES, SYNC_OWNS };

struct port_row {
    int32_t port;
    sync_use sync;
    kind_code receiver_kind;
    kind_code producer_kind;
};

constexpr port_row PORTS[] = {
    // port  sync link  receiver  producer
    {1, SYNC_NONE, KIND_LINK_TO_PORT_1, KIND_LINK_TO_PORT_2},
    {2, SYNC_NONE, KIND_LINK_TO_PORT_2, KIND_LINK_TO_PORT_1},
    {3, SYNC_USES, KIND_LINK_TO_PORT_3, KIND_LINK_TO_PORT_5},
    {5, SYNC_OWNS, KIND_LINK_TO_PORT_5, KIND_LINK_TO_PORT_3},
};
constexpr port_row OTHER_PORT = {0, SYNC_NONE, KIND_LINK_TO_OTHER_PORT, KIND_LINK_TO_OTHER_PORT};

const port_row &find_port(const char *text) {
    const int32_t number = port_number(text);
    for (const port_row &row : PORTS)
        if (row.port == number)
            return row;
    return OTHER_PORT;
}

bool permits(const port_row &row) {
    return row.sync == SYNC_NONE || sync_owner == 0;
}

// A test whose fork failed does not own the link; its record gets its code all the same.
int32_t close_dispatch(const port_row &row, kind_code kind, bool started) {
    if (started && row.sync == SYNC_OWNS)
        sync_owner = record_count;
    last_claimed_record().kind_code = kind;
    return kind;
}

} // namespace

bool sync_port_permits(const char *port) {
    return permits(find_port(port));
}

int32_t consume_dispatch(const char *mode_text, int no_fork, PatternSource pattern) {
    const port_row &row = find_port(mode_text);
    if (!permits(row))
        return -1;
    const bool started = serial_loop_test(no_fork, mode_text, pattern) >= 0;
    return close_dispatch(row, row.receiver_kind, started);
}

int32_t produce_dispatch(const char *mode_text, int no_fork, PatternSource pattern) {
    const port_row &row = find_port(mode_text);
    bool started = false;
    if (permits(row))
        started = producer_test(no_fork, mode_text, pattern) >= 0;
    else if (row.sync == SYNC_USES)
        return last_claimed_record().kind_code;
    return close_dispatch(row, row.producer_kind, started);
}
