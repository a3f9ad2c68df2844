#include "simulator/visit.h"

#include "simulator/requests/descriptor_passing.h"
#include "simulator/world/entrance.h"
#include "simulator/world/namespaces.h"
#include "simulator/world/operator/board_name.h"
#include "simulator/world/program_run.h"

#include <array>

namespace simulator {

int visit_board(const std::string &name, char *const *program, const machine_paths &paths) {
    const unique_fd connection = connect_to_board(name);
    if (!connection.is_open())
        return STATUS_USAGE;
    take_operator_signals();
    foreground terminal;
    terminal.find();
    program_run run;
    run.terminal = &terminal;
    filter_rules rules;
    if (!move_in(connection.get(), rules) || !run.start({program, paths.directory.c_str(), rules}))
        return STATUS_NO_BOARD;
    if (run.listener.is_open())
        (void)send_descriptor(connection.get(),
                              run.listener.get()); // fails if the board has ended
    run.listener.reset();
    const std::array<event_source *, 1> sources = {&run};
    while (!run.ended)
        turn(sources, NEVER);
    terminal.take_back();
    return run.status;
}

} // namespace simulator
