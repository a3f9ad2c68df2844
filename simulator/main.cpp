// hk_board: a simulated board that runs an unmodified program. See `hk_board --help`.
#include "simulator/base/message.h"
#include "simulator/board_run.h"
#include "simulator/run_record.h"
#include "simulator/world/entrance.h"
#include "simulator/world/log/board_output.h"
#include "simulator/world/namespaces.h"
#include "simulator/world/operator/board_name.h"
#include "simulator/world/reboot_stand_in.h"
#include "simulator/world/root.h"

#include <climits>
#include <fcntl.h>
#include <unistd.h>

using namespace simulator;

namespace {

// If the operator has closed a standard descriptor, the next open would reuse its number, and the
// log file could become standard output. The stand-ins close on exec, so the program finds the
// descriptors closed.
void occupy_standard_descriptors() {
    int fd = 0;
    while ((fd = open("/dev/null", O_RDWR | O_CLOEXEC)) >= 0 && fd <= STDERR_FILENO) {
    }
    (void)close(fd);
}

bool open_output(const run_settings &settings, call_log &calls) {
    output.quiet = settings.quiet;
    return (settings.log_path.empty() || output.file.open(settings.log_path)) &&
           (settings.calls_path.empty() || calls.open(settings.calls_path));
}

bool claim_own_name(board &built) {
    if (built.settings.name.empty())
        return true;
    built.entrance_listener = claim_name(built.settings.name);
    return built.entrance_listener.is_open();
}

bool find_paths(machine_paths &paths) {
    char path[PATH_MAX];
    if (getcwd(path, sizeof path) == nullptr)
        return cannot("find", "the current directory");
    paths.directory = path;
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    if (length < 0)
        return cannot("read", "/proc/self/exe");
    paths.own_program.assign(path, static_cast<size_t>(length));
    return true;
}

} // namespace

int main(int argc, char **argv) {
    const std::string_view own_name = file_name(argv[0]);
    if (is_restart_command(own_name))
        return report_restart(own_name);
    occupy_standard_descriptors();
    command_line given;
    if (!read_command_line(argc, argv, given))
        return STATUS_USAGE;
    if (given.help) {
        print_help();
        return 0;
    }
    machine_paths paths;
    if (!kernel_is_at_least(OLDEST_KERNEL, "the board") || !find_paths(paths))
        return STATUS_NO_BOARD;
    if (!given.enter.empty())
        return visit_board(given.enter, given.program, paths.directory);
    if (!given.replay.empty())
        return replay_log(given.replay, paths.own_program);
    board built;
    if (!build_board(given, built) || !claim_own_name(built))
        return STATUS_USAGE;
    if (!open_output(built.settings, built.calls))
        return STATUS_NO_BOARD;

    built.terminal.find();
    const pid_t inside = enter_namespaces();
    if (inside < 0)
        return STATUS_NO_BOARD;
    if (inside > 0) {
        built.entrance_listener.reset(); // only the board holds its name
        return wait_outside(inside, built.devices.terminal, built.terminal);
    }
    _exit(run_board(built, given.program, paths)); // ends every process of the board
}
