// The handlers of the requests in the table of requests.cpp.
#pragma once

#include "simulator/line/port.h"

namespace simulator::line {

// One for each request or family of requests.
struct port_requests {
    using handler = outcome (*)(port &, int64_t, request_call &);

    static outcome get_settings(port &asked, int64_t now, request_call &call);
    static outcome set_settings(port &asked, int64_t now, request_call &call);
    static outcome flush(port &asked, int64_t now, request_call &call);
    static outcome insert_input(port &asked, int64_t now, request_call &call);
    static outcome control_flow(port &asked, int64_t now, request_call &call);
    static outcome send_break(port &asked, int64_t now, request_call &call);
    static outcome begin_break(port &asked, int64_t now, request_call &call);
    static outcome end_break(port &asked, int64_t now, request_call &call);
    static outcome get_lines(port &asked, int64_t now, request_call &call);
    static outcome set_lines(port &asked, int64_t now, request_call &call);
    static outcome wait_for_lines(port &asked, int64_t now, request_call &call);
    static outcome get_driver_settings(port &asked, int64_t now, request_call &call);
    static outcome set_driver_settings(port &asked, int64_t now, request_call &call);
    static outcome get_local(port &asked, int64_t now, request_call &call);
    static outcome set_local(port &asked, int64_t now, request_call &call);
    static outcome get_line_status(port &asked, int64_t now, request_call &call);
    static outcome count_input(port &asked, int64_t now, request_call &call);
    static outcome count_output(port &asked, int64_t now, request_call &call);
    static outcome count_interrupts(port &asked, int64_t now, request_call &call);
    static outcome set_sync_mode(port &asked, int64_t now, request_call &call);

private:
    static outcome wait_for_drain(port &asked, int64_t now);
};

} // namespace simulator::line
