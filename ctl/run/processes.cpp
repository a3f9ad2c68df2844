#include "ctl/run/processes.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "ctl/text.h"
#include "runtime/unique_fd.h"

namespace {

std::string path_of(pid_t pid, const char *name) {
    return text_of("/proc/%d/%s", static_cast<int>(pid), name);
}

// The inode of the map is the segment's id. A line is "from-to rw-s offset device inode /SYSVkey".
void read_map_line(const std::string &line, std::vector<int32_t> &segments) {
    const std::vector<std::string> columns = split_at_blanks(line);
    if (columns.size() > 5 && columns[5].compare(0, 5, "/SYSV") == 0)
        segments.push_back(atoi(columns[4].c_str()));
}

std::vector<int32_t> read_segments(const std::string &maps) {
    std::vector<int32_t> segments;
    for (size_t at = 0; (at = maps.find("/SYSV", at)) != std::string::npos; ++at) {
        const size_t end_before = maps.rfind('\n', at);
        const size_t begin = end_before == std::string::npos ? 0 : end_before + 1;
        read_map_line(maps.substr(begin, maps.find('\n', at) - begin), segments);
    }
    return segments;
}

// Reads the fields after the name, which may itself contain blanks and brackets. The state is the
// first of them, the start time the twentieth.
bool read_stat(pid_t pid, char &state, uint64_t &started) {
    const std::string stat = read_file(path_of(pid, "stat").c_str());
    const size_t end = stat.rfind(')');
    if (end == std::string::npos)
        return false;
    const std::vector<std::string> fields = split_at_blanks(stat.substr(end + 1));
    if (fields.size() < 20)
        return false;
    state = fields[0][0];
    started = strtoull(fields[19].c_str(), nullptr, 10);
    return true;
}

bool read_process(pid_t pid, process &found) {
    char state = 0;
    found.pid = pid;
    if (!read_stat(pid, state, found.started))
        return false;
    struct stat program = {};
    if (stat(path_of(pid, "exe").c_str(), &program) == 0)
        found.executable = program.st_ino;
    found.command = read_file(path_of(pid, "cmdline").c_str());
    return true;
}

// A descriptor of the process; none before Linux 5.3, or if the number is another process's now.
unique_fd open_process(const process &of) {
#ifdef SYS_pidfd_open
    unique_fd descriptor(static_cast<int>(syscall(SYS_pidfd_open, of.pid, 0)));
    return is_running(of) ? std::move(descriptor) : unique_fd();
#else
    return unique_fd();
#endif
}

bool send_by_descriptor(const unique_fd &descriptor, int number) {
#ifdef SYS_pidfd_send_signal
    return syscall(SYS_pidfd_send_signal, descriptor.get(), number, nullptr, 0) == 0;
#else
    return false;
#endif
}

} // namespace

std::vector<process> processes_with_segments(uint32_t &unseen) {
    std::vector<process> found;
    unseen = 0;
    DIR *directory = opendir("/proc");
    if (directory == nullptr)
        return found;
    while (const dirent *entry = readdir(directory)) {
        const pid_t pid = atoi(entry->d_name);
        if (pid <= 0)
            continue;
        errno = 0;
        process candidate;
        candidate.shm = read_segments(read_file(path_of(pid, "maps").c_str()));
        unseen += errno == EACCES || errno == EPERM ? 1 : 0;
        if (!candidate.shm.empty() && read_process(pid, candidate))
            found.push_back(candidate);
    }
    (void)closedir(directory);
    return found;
}

bool is_running(const process &of) {
    char state = 0;
    uint64_t started = 0;
    return read_stat(of.pid, state, started) && started == of.started && state != 'Z' &&
           state != 'X';
}

bool handles_signal(const process &of, int number) {
    const std::string status = read_file(path_of(of.pid, "status").c_str());
    const size_t at = status.find("\nSigCgt:");
    if (at == std::string::npos)
        return false;
    const uint64_t caught = strtoull(status.c_str() + at + sizeof "\nSigCgt:" - 1, nullptr, 16);
    return (caught >> (number - 1) & 1) != 0;
}

bool send_signal(const process &to, int number) {
    const unique_fd descriptor = open_process(to);
    if (descriptor && send_by_descriptor(descriptor, number))
        return true;
    if (!is_running(to)) {
        errno = ESRCH;
        return false;
    }
    return kill(to.pid, number) == 0;
}
