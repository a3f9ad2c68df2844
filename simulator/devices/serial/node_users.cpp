#include "simulator/devices/serial/node_users.h"

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/stat.h>

namespace simulator {

namespace {

// The entries of a directory of /proc that are numbers; none if the process has ended.
std::vector<int> numbers_in(const std::filesystem::path &directory) {
    std::vector<int> numbers;
    std::error_code gone;
    for (std::filesystem::directory_iterator each(directory, gone), end; each != end;
         each.increment(gone)) { // an error is the end
        const std::string name = each->path().filename();
        if (isdigit(name.front()) != 0)
            numbers.push_back(atoi(name.c_str()));
    }
    return numbers;
}

} // namespace

std::vector<pid_t> all_processes() {
    return numbers_in("/proc");
}

std::vector<int> descriptors_of(pid_t process, const port_node &node) {
    const std::filesystem::path directory = "/proc/" + std::to_string(process) + "/fd";
    std::vector<int> found = numbers_in(directory);
    std::erase_if(found, [&](int descriptor) {
        struct stat status {};
        return stat((directory / std::to_string(descriptor)).c_str(), &status) != 0 ||
               !node.line.is_slave(status);
    });
    return found;
}

node_users users_of(const port_node &node, const port_descriptors &numbers) {
    node_users users{};
    for (const pid_t process : all_processes())
        for (const int descriptor : descriptors_of(process, node)) {
            users.has_high = users.has_high || descriptor >= numbers.first;
            users.has_low = users.has_low || !numbers.has(descriptor);
        }
    return users;
}

} // namespace simulator
