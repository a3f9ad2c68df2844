#include "simulator/world/reboot_stand_in.h"

#include <algorithm>
#include <iterator>
#include <syslog.h>

namespace simulator {

std::string_view file_name(std::string_view path) {
    return path.substr(path.rfind('/') + 1); // without a slash: npos + 1 is 0, the whole path
}

bool is_restart_command(std::string_view program_name) {
    return std::find(std::begin(RESTART_COMMANDS), std::end(RESTART_COMMANDS), program_name) !=
           std::end(RESTART_COMMANDS);
}

int report_restart(std::string_view program_name) {
    openlog("board", 0, LOG_USER);
    syslog(LOG_INFO, "%.*s requested", static_cast<int>(program_name.size()), program_name.data());
    closelog();
    return 0;
}

} // namespace simulator
