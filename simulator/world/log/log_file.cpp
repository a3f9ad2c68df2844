#include "simulator/world/log/log_file.h"

#include "simulator/base/message.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>

namespace simulator {

namespace {

constexpr size_t WAITING_LOG_BYTES = 64 << 20; // some hours of lists

} // namespace

bool log_file::open(const std::string &wanted) {
    path = wanted;
    file.reset(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC | O_NOCTTY, 0644));
    return file.is_open() || cannot("write", path);
}

void log_file::keep(std::string_view line) {
    if (!file.is_open())
        return;
    if (waiting.size() + line.size() > WAITING_LOG_BYTES)
        lost_lines++;
    else
        waiting += line;
    write_waiting();
}

void log_file::write_waiting() {
    size_t done = 0;
    ssize_t written = 0;
    while (done < waiting.size() &&
           (written = write(file.get(), waiting.data() + done, waiting.size() - done)) > 0)
        done += static_cast<size_t>(written);
    waiting.erase(0, done);
    if (waiting.empty() || complained)
        return;
    complained = true;
    report("cannot write %s: %s; its lines wait in memory until it is writable", path.c_str(),
           strerror(errno));
}

void log_file::finish() {
    write_waiting();
    lost_lines += static_cast<size_t>(std::count(waiting.begin(), waiting.end(), '\n'));
    if (lost_lines > 0)
        report("%zu lines are not in %s", lost_lines, path.c_str());
}

} // namespace simulator
