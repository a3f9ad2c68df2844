#include "simulator/requests/caller.h"

#include "simulator/requests/notification.h"

#include <array>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace simulator {

namespace {

std::string proc_path(const request &asked, const char *what) {
    return "/proc/" + std::to_string(asked.caller) + "/" + what;
}

std::string descriptor_path(const request &asked, int descriptor) {
    return proc_path(asked, "fd/") + std::to_string(descriptor);
}

std::string small_file(const std::string &path) {
    std::array<char, 4096> text;
    const unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const ssize_t length = file.is_open() ? read(file.get(), text.data(), text.size()) : 0;
    return {text.data(), length > 0 ? static_cast<size_t>(length) : 0};
}

// The number after "name:" at the beginning of a line; 0 if there is none.
uint64_t field(const std::string &text, const std::string &name, int base) {
    const size_t at = text.find("\n" + name + ":");
    return at == std::string::npos ? 0
                                   : strtoull(text.c_str() + at + name.size() + 2, nullptr, base);
}

bool is_free(const request &asked, int descriptor) {
    struct stat link {};
    return lstat(descriptor_path(asked, descriptor).c_str(), &link) != 0;
}

// What names the caller itself in a path. For the board, these are another process.
struct own_path {
    std::string_view begin;
    const char *in_proc; // below /proc/PID
};
constexpr own_path OWN_PATHS[] = {
    {"/proc/self/", ""},    {"/proc/thread-self/", ""}, {"/dev/fd/", "fd/"},
    {"/dev/stdin", "fd/0"}, {"/dev/stdout", "fd/1"},    {"/dev/stderr", "fd/2"},
};

// The caller's path as the board reaches it.
std::string seen_by_board(const request &asked, int directory, const std::string &path) {
    for (const own_path &each : OWN_PATHS)
        if (path.starts_with(each.begin))
            return proc_path(asked, each.in_proc) + path.substr(each.begin.size());
    if (path.starts_with('/'))
        return path;
    const std::string begin =
        directory == AT_FDCWD ? proc_path(asked, "cwd") : descriptor_path(asked, directory);
    return begin + "/" + path;
}

constexpr uint64_t mask_of(int number) {
    return uint64_t{1} << (number - 1);
}

// Without a handler these do nothing, see signal(7).
constexpr uint64_t NOT_ACTED_ON =
    mask_of(SIGCHLD) | mask_of(SIGCONT) | mask_of(SIGURG) | mask_of(SIGWINCH);

// The flags of open(2) that a descriptor has.
uint64_t flags_of(const request &asked, int descriptor) {
    const std::string about = small_file(proc_path(asked, "fdinfo/") + std::to_string(descriptor));
    return field(about, "flags", 8);
}

} // namespace

std::optional<struct stat> status_of(const request &asked, int descriptor) {
    struct stat found {};
    if (stat(descriptor_path(asked, descriptor).c_str(), &found) != 0)
        return std::nullopt;
    return found;
}

// The mode of the link shows it.
descriptor_access access_of(const request &asked, int descriptor) {
    struct stat link {};
    (void)lstat(descriptor_path(asked, descriptor).c_str(), &link); // no descriptor: no access
    return {(link.st_mode & S_IRUSR) != 0, (link.st_mode & S_IWUSR) != 0};
}

bool is_nonblocking(const request &asked, int descriptor) {
    return (flags_of(asked, descriptor) & O_NONBLOCK) != 0;
}

bool is_closed_on_execute(const request &asked, int descriptor) {
    return (flags_of(asked, descriptor) & O_CLOEXEC) != 0;
}

pid_t process_of(const request &asked) {
    const std::string status = small_file(proc_path(asked, "status"));
    return static_cast<pid_t>(field(status, "Tgid", 10));
}

bool has_other_threads(const request &asked) {
    return field(small_file(proc_path(asked, "status")), "Threads", 10) > 1;
}

std::optional<struct stat> status_of_path(const request &asked, int directory, uint64_t path) {
    std::array<char, PATH_MAX> text;
    const size_t length = read_up_to(asked, path, text.data(), text.size() - 1);
    text[length] = '\0';
    struct stat found {};
    if (text[0] == '\0' || stat(seen_by_board(asked, directory, text.data()).c_str(), &found) != 0)
        return std::nullopt;
    return found;
}

std::optional<opening> opening_of(const request &asked) {
    const auto &words = asked.arguments;
    switch (kind_of(asked.call)) {
    case call_kind::open:
        return opening{AT_FDCWD, words[0], static_cast<int>(words[1])};
    case call_kind::openat:
        return opening{static_cast<int>(words[0]), words[1], static_cast<int>(words[2])};
    case call_kind::openat2: {
        uint64_t flags = 0; // the first member of the structure, see openat2(2)
        (void)read_up_to(asked, words[2], &flags, sizeof flags);
        return opening{static_cast<int>(words[0]), words[1], static_cast<int>(flags)};
    }
    case call_kind::creat:
        return opening{AT_FDCWD, words[0], O_CREAT | O_WRONLY | O_TRUNC};
    default:
        return std::nullopt;
    }
}

int free_number(const request &asked, const port_descriptors &numbers, int least) {
    for (int number = least; number < port_descriptors::STANDARD; number++)
        if (is_free(asked, number))
            return number;
    for (int number = std::max(least, numbers.first); number < numbers.end; number++)
        if (is_free(asked, number))
            return number;
    return -1;
}

unique_fd copy_descriptor(const request &asked, int descriptor) {
    const unique_fd process(static_cast<int>(syscall(SYS_pidfd_open, process_of(asked), 0)));
    if (!process.is_open())
        return unique_fd();
    return unique_fd(static_cast<int>(syscall(SYS_pidfd_getfd, process.get(), descriptor, 0)));
}

bool is_interrupted(const request &asked, std::optional<uint64_t> blocked, uint64_t awaited) {
    const std::string status = small_file(proc_path(asked, "status"));
    const uint64_t waiting = field(status, "SigPnd", 16) | field(status, "ShdPnd", 16);
    const uint64_t ignored = field(status, "SigIgn", 16) | NOT_ACTED_ON;
    const uint64_t acted_on = field(status, "SigCgt", 16) | ~ignored;
    const uint64_t let_through = ~blocked.value_or(field(status, "SigBlk", 16)) & acted_on;
    return (waiting & (let_through | awaited)) != 0;
}

bool has_handled_signal(const request &asked) {
    const std::string status = small_file(proc_path(asked, "status"));
    const uint64_t waiting = field(status, "SigPnd", 16) | field(status, "ShdPnd", 16);
    return (waiting & ~field(status, "SigBlk", 16) & field(status, "SigCgt", 16)) != 0;
}

bool is_killed(const request &asked) {
    const std::string status = small_file(proc_path(asked, "status"));
    const uint64_t waiting = field(status, "SigPnd", 16) | field(status, "ShdPnd", 16);
    return (waiting & mask_of(SIGKILL)) != 0 || !is_waiting(asked);
}

uint64_t flags_of_clone(const request &asked) {
    uint64_t flags = 0;
    if (asked.call == SYS_clone)
        flags = asked.arguments[0];
    else if (asked.call == SYS_clone3)
        (void)read_up_to(asked, asked.arguments[0], &flags, sizeof flags);
    return flags;
}

void end_caller(const request &asked) {
    const pid_t process = process_of(asked);
    if (process > 1 && is_waiting(asked))
        (void)kill(process, SIGKILL);
}

} // namespace simulator
