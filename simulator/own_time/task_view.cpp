#include "simulator/own_time/task_view.h"

#include "simulator/time/clock.h"

#include <algorithm>
#include <array>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace simulator {

namespace {

constexpr size_t STATE_FIELD = 0; // of what follows the name in /proc/PID/stat
constexpr size_t USER_TIME_FIELD = 11;
constexpr size_t SYSTEM_TIME_FIELD = 12;
constexpr size_t DATA_END_FIELD = 43;

// Calls that wait for another process or for the operator, and for no time.
constexpr int WAITS_FOR_OTHERS[] = {
    SYS_read,    SYS_readv,   SYS_pread64,  SYS_write,   SYS_writev,   SYS_openat,  SYS_fcntl,
    SYS_flock,   SYS_connect, SYS_accept,   SYS_accept4, SYS_recvfrom, SYS_ioctl,   SYS_recvmsg,
    SYS_sendmsg, SYS_sendto,  SYS_splice,   SYS_tee,     SYS_semop,    SYS_msgrcv,  SYS_msgsnd,
    SYS_wait4,   SYS_waitid,  SYS_sendfile, SYS_preadv,  SYS_pwritev,  SYS_openat2, SYS_vmsplice,
#ifdef SYS_open
    SYS_open,
#endif
};

// Calls that a time ends as well: the argument that has it is `none` if nothing but another process
// does.
struct timed_wait {
    int number;
    const char *name;
    size_t argument;
    uint64_t none;
};
constexpr uint64_t MINUS_ONE_MS = 0xffffffff; // an int
constexpr timed_wait TIMED_WAITS[] = {
    {SYS_futex, "futex", 3, 0}, // on a lock that inherits priority
    {SYS_semtimedop, "semtimedop", 3, 0},
    {SYS_mq_timedsend, "mq_timedsend", 4, 0},
    {SYS_mq_timedreceive, "mq_timedreceive", 4, 0},
    {SYS_recvmmsg, "recvmmsg", 4, 0},
    {SYS_io_getevents, "io_getevents", 4, 0},
    {SYS_epoll_pwait, "epoll_pwait", 3, MINUS_ONE_MS},
    {SYS_epoll_pwait2, "epoll_pwait2", 3, 0},
#ifdef SYS_epoll_wait
    {SYS_epoll_wait, "epoll_wait", 3, MINUS_ONE_MS},
#endif
};

std::string path_of(pid_t thread, const char *what) {
    return "/proc/" + std::to_string(thread) + "/" + what;
}

std::string text_of(pid_t thread, const char *what) {
    std::ifstream file(path_of(thread, what));
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// The words of /proc/PID/stat after the name, which may contain anything.
std::vector<std::string> status_words(pid_t thread) {
    const std::string text = text_of(thread, "stat");
    const size_t end = text.rfind(')');
    std::istringstream rest(end == std::string::npos ? "" : text.substr(end + 1));
    std::vector<std::string> words;
    for (std::string word; rest >> word;)
        words.push_back(word);
    return words;
}

int64_t number_in(const std::vector<std::string> &words, size_t field) {
    return field < words.size() ? strtoll(words[field].c_str(), nullptr, 10) : 0;
}

// A thread that is about to sleep, or has just decided not to, has the state of a sleeper too. The
// kernel prints its call only once it is off the processor.
bool is_off_processor(pid_t thread) {
    return !text_of(thread, "syscall").starts_with("running");
}

// Whether one of the sets of /proc/PID/status has a signal.
bool has_signal(pid_t thread, const char *set, int signal) {
    std::istringstream status(text_of(thread, "status"));
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(set)) // "SigIgn:\t0000000000001000"
            return (strtoull(line.c_str() + strlen(set) + 1, nullptr, 16) >> (signal - 1) & 1) != 0;
    return false;
}

// A line of /proc/PID/maps.
struct mapping {
    uint64_t begin = 0;
    uint64_t end = 0;
    uint64_t offset = 0;                // in the file
    std::string rights, device, number; // of the file: its inode
    std::string file;
};

mapping read_mapping(const std::string &line) {
    mapping read;
    char hyphen = 0;
    std::istringstream words(line);
    words >> std::hex >> read.begin >> hyphen >> read.end >> read.rights >> read.offset >>
        read.device >> read.number >> std::ws;
    std::getline(words, read.file);
    return read;
}

std::optional<mapping> mapping_at(pid_t thread, uint64_t address) {
    std::ifstream maps(path_of(thread, "maps"));
    for (std::string line; std::getline(maps, line);) {
        mapping read = read_mapping(line);
        if (read.begin <= address && address < read.end)
            return read;
    }
    return std::nullopt;
}

} // namespace

task_state state_of_task(pid_t thread) {
    const std::vector<std::string> words = status_words(thread);
    switch (words.empty() ? 'X' : words[STATE_FIELD][0]) {
    case 'S':
        return is_off_processor(thread) ? task_state::sleeping : task_state::working;
    case 'T':
        return task_state::stopped;
    case 't':
        return task_state::traced;
    case 'X':
    case 'Z':
        return task_state::gone;
    default:
        return task_state::working;
    }
}

// /proc/PID/syscall has the number of the call, which is decimal, and its arguments.
std::string unknown_sleep_of_task(pid_t thread) {
    std::istringstream words(text_of(thread, "syscall"));
    int number = -1;
    std::array<uint64_t, 6> arguments{};
    if (!(words >> number) || number < 0 || std::ranges::count(WAITS_FOR_OTHERS, number) != 0)
        return "";
    words >> std::hex;
    for (uint64_t &each : arguments)
        words >> each;
    const auto *known = std::ranges::find(TIMED_WAITS, number, &timed_wait::number);
    if (known == std::end(TIMED_WAITS))
        return "system call " + std::to_string(number);
    const uint64_t time = arguments[known->argument];
    const bool has_none = known->none == 0 ? time == 0 : static_cast<uint32_t>(time) == known->none;
    return has_none ? "" : known->name;
}

bool writes_to_operator(pid_t thread) {
    int number = -1;
    unsigned descriptor = 0;
    if (sscanf(text_of(thread, "syscall").c_str(), "%d %x", &number, &descriptor) != 2 ||
        (number != SYS_write && number != SYS_writev))
        return false;
    struct stat target {};
    if (stat(path_of(thread, ("fd/" + std::to_string(descriptor)).c_str()).c_str(), &target) != 0)
        return false;
    return std::ranges::any_of(std::array{STDOUT_FILENO, STDERR_FILENO}, [&](int own) {
        struct stat output {};
        return fstat(own, &output) == 0 && output.st_dev == target.st_dev &&
               output.st_ino == target.st_ino;
    });
}

bool ignores_children(pid_t process) {
    return has_signal(process, "SigIgn", SIGCHLD);
}

bool is_signal_waiting(pid_t thread, int signal) {
    return has_signal(thread, "SigPnd", signal) || has_signal(thread, "ShdPnd", signal);
}

int64_t processor_time_us(pid_t thread) {
    const std::vector<std::string> words = status_words(thread);
    const int64_t ticks = number_in(words, USER_TIME_FIELD) + number_in(words, SYSTEM_TIME_FIELD);
    return ticks * US_PER_SECOND / sysconf(_SC_CLK_TCK);
}

std::vector<pid_t> children_of_task(pid_t thread) {
    std::ifstream list(path_of(thread, ("task/" + std::to_string(thread) + "/children").c_str()));
    std::vector<pid_t> found;
    for (pid_t child = 0; list >> child;)
        found.push_back(child);
    return found;
}

std::vector<pid_t> threads_of_process(pid_t process) {
    std::vector<pid_t> found;
    std::error_code none;
    for (const auto &each : std::filesystem::directory_iterator(path_of(process, "task"), none))
        found.push_back(static_cast<pid_t>(atoi(each.path().filename().c_str())));
    std::ranges::sort(found);
    return found;
}

family family_of_task(pid_t thread) {
    family found;
    std::istringstream status(text_of(thread, "status"));
    for (std::string line; std::getline(status, line);) {
        (void)sscanf(line.c_str(), "Tgid: %d", &found.process);
        (void)sscanf(line.c_str(), "PPid: %d", &found.parent);
    }
    return found;
}

std::optional<shared_place> shared_place_at(pid_t thread, uint64_t address) {
    const std::optional<mapping> there = mapping_at(thread, address);
    if (!there || !there->rights.ends_with('s'))
        return std::nullopt;
    return shared_place{there->device + " " + there->number,
                        there->offset + address - there->begin};
}

writable_areas writable_areas_of(pid_t process) {
    writable_areas found;
    const auto data_end = static_cast<uint64_t>(number_in(status_words(process), DATA_END_FIELD));
    std::ifstream maps(path_of(process, "maps"));
    for (std::string line; std::getline(maps, line);) {
        const mapping each = read_mapping(line);
        if (each.rights != "rw-p")
            continue;
        if (each.begin < data_end && data_end <= each.end)
            found.data = {each.begin, each.end};
        else if (found.data.end == each.begin)
            found.data.end = each.end;
        else if (each.file == "[stack]")
            found.stack = {each.begin, each.end};
    }
    return found;
}

uid_t user_of_task(pid_t thread) {
    struct stat folder {};
    return stat(path_of(thread, "").c_str(), &folder) == 0 ? folder.st_uid : static_cast<uid_t>(-1);
}

bool shares_process_numbers(pid_t thread) {
    struct stat its {};
    struct stat own {};
    return stat(path_of(thread, "ns/pid").c_str(), &its) == 0 &&
           stat("/proc/self/ns/pid", &own) == 0 && its.st_ino == own.st_ino;
}

std::string program_of_task(pid_t thread) {
    std::array<char, PATH_MAX> path{};
    const ssize_t length = readlink(path_of(thread, "exe").c_str(), path.data(), path.size() - 1);
    return length > 0 ? path.data() : "?";
}

void give_way() {
    (void)poll(nullptr, 0, 1);
}

std::string place_of_task(pid_t thread) {
    (void)kill(thread, SIGSTOP);
    while (state_of_task(thread) == task_state::working)
        give_way();
    unsigned long long address = 0;
    (void)sscanf(text_of(thread, "syscall").c_str(), "%*s %*s %llx", &address);
    std::array<char, 64> text{};
    (void)snprintf(text.data(), text.size(), ") at 0x%llx in ", address);
    const std::optional<mapping> there = mapping_at(thread, address);
    return "process " + std::to_string(thread) + " (" + program_of_task(thread) + text.data() +
           (there ? there->file : "?");
}

} // namespace simulator
