// Observes the cabled ports 1 and 2 of the board with system calls alone and prints each fact on
// its own line: a name and what was seen. Times are in hundredths of a second, rounded. With the
// argument "waits" it observes calls that wait: for ports and other files at once, and until a
// signal comes. With "copies" it observes descriptors that the board does not number itself.

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <linux/openat2.h>
#include <poll.h>
#include <string>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr unsigned long SYNC_MODE_REQUEST = 0x40047300;

struct speed_row {
    speed_t code;
    size_t tenth; // bytes in a tenth of a second
    const char *name;
};
constexpr speed_row SPEEDS[] = {
    {B9600, 96, "9600"}, {B38400, 384, "38400"}, {B115200, 1152, "115200"}};

int open_port(const char *name) {
    return open(name, O_RDWR | O_NOCTTY | O_NONBLOCK);
}

void set_blocking(int port, bool blocks) {
    (void)fcntl(port, F_SETFL, O_RDWR | (blocks ? 0 : O_NONBLOCK));
}

termios settings_of(int port) {
    termios settings{};
    (void)tcgetattr(port, &settings);
    return settings;
}

void set_raw(int port, speed_t speed, tcflag_t input = 0, int when = TCSANOW) {
    termios settings = settings_of(port);
    cfmakeraw(&settings);
    settings.c_iflag |= input;
    (void)cfsetspeed(&settings, speed);
    (void)tcsetattr(port, when, &settings);
}

int ioctl_number(int port, unsigned long request) {
    int value = 0;
    return ioctl(port, request, &value) == 0 ? value : -errno;
}

void show_lines(const char *fact, int port) {
    const int lines = ioctl_number(port, TIOCMGET);
    printf("%s: %d %d\n", fact, (lines & TIOCM_RTS) != 0, (lines & TIOCM_DTR) != 0);
}

long centiseconds(const std::function<void()> &work) {
    using std::chrono::steady_clock;
    const auto begin = steady_clock::now();
    work();
    return std::chrono::round<std::chrono::duration<long, std::centi>>(steady_clock::now() - begin)
        .count();
}

// Reads until nothing has come for `quiet_ms`.
std::string read_all(int port, int quiet_ms) {
    std::string all;
    char part[4096];
    pollfd waiting = {port, POLLIN, 0};
    while (poll(&waiting, 1, quiet_ms) == 1) {
        const ssize_t count = read(port, part, sizeof part);
        if (count <= 0)
            break;
        all.append(part, static_cast<size_t>(count));
    }
    return all;
}

void write_text(int port, const std::string &text) {
    (void)!write(port, text.data(), text.size()); // the other end shows what is lost
}

void observe_first_open() {
    const int port = open_port("/dev/sp1");
    const termios first = settings_of(port);
    constexpr tcflag_t LOCAL = ICANON | ECHO | ISIG | IEXTEN;
    printf("first open: %d %d %d %d %d %d\n", cfgetospeed(&first) == B9600,
           (first.c_iflag & (ICRNL | IXON)) == (ICRNL | IXON),
           (first.c_oflag & (OPOST | ONLCR)) == (OPOST | ONLCR), (first.c_lflag & LOCAL) == LOCAL,
           (first.c_cflag & (CSIZE | CREAD | HUPCL | CLOCAL)) == (CS8 | CREAD | HUPCL | CLOCAL),
           (first.c_iflag & (IGNPAR | INPCK)) == 0 &&
               (first.c_cflag & (PARENB | CSTOPB | CRTSCTS)) == 0);
    show_lines("lines after open", port);
    const int none = 0;
    (void)ioctl(port, TIOCMSET, &none);
    show_lines("lines after TIOCMSET 0", port);
    set_raw(port, B38400);
    show_lines("lines after a change of speed then", port);
    const int second = open_port("/dev/sp1");
    show_lines("lines after a second open", port);
    (void)close(second);
    (void)ioctl(port, TIOCMSET, &none);
    (void)close(port);
    const int again = open_port("/dev/sp1");
    show_lines("lines after close and open", again);
    const termios kept = settings_of(again);
    printf("settings kept: %d\n", cfgetospeed(&kept) == B38400 && (kept.c_lflag & ICANON) == 0);
    printf("synchronous mode without it: %d\n", ioctl_number(again, SYNC_MODE_REQUEST) == -ENOTTY);
    (void)close(again);
}

void observe_speeds(int one, int two) {
    for (const speed_row &speed : SPEEDS) {
        set_raw(one, speed.code);
        set_raw(two, speed.code);
        set_blocking(one, true);
        const long written = centiseconds([&] { write_text(one, std::string(speed.tenth, 'x')); });
        const long drained = centiseconds([&] { (void)tcdrain(one); });
        const size_t arrived = read_all(two, 50).size();
        printf("%s: %ld %ld %d\n", speed.name, written, drained, arrived == speed.tenth);
        set_blocking(one, false);
    }
    write_text(one, std::string(1152, 'x'));
    printf("TCSADRAIN: %ld\n", centiseconds([&] { set_raw(one, B115200, 0, TCSADRAIN); }));
    (void)read_all(two, 50);
}

void observe_queue(int one, int two) {
    set_raw(one, B9600);
    set_raw(two, B9600);
    const std::string much(20000, 'x');
    const ssize_t taken = write(one, much.data(), much.size());
    const ssize_t more = write(one, "x", 1);
    printf("write of 20000: %zd %d\n", taken, more < 0 ? errno == EAGAIN : 0);
    const int queued = ioctl_number(one, TIOCOUTQ);
    (void)tcflush(one, TCOFLUSH);
    const int flushed = ioctl_number(one, TIOCOUTQ);
    printf("TIOCOUTQ: %d %d\n", queued >= 4000 && queued <= 4096, flushed <= 16);
    printf("arrived by then at most 600: %d\n", read_all(two, 100).size() <= 600);
}

void observe_input(int one, int two) {
    set_raw(one, B115200);
    set_raw(two, B115200);
    set_blocking(one, true);
    write_text(one, std::string(12000, 'x'));
    (void)tcdrain(one);
    const int readable = ioctl_number(two, FIONREAD);
    printf("12000 bytes unread: %d %zu\n", readable, read_all(two, 50).size());
    set_raw(one, B115200, IXON);
    write_text(two, "\023");
    (void)tcdrain(two);
    (void)usleep(5000); // the time-out of the FIFO
    set_blocking(one, false);
    write_text(one, "abc");
    const size_t held = read_all(two, 50).size();
    set_raw(one, B115200);
    printf("after XOFF: %zu %zu\n", held, read_all(two, 50).size());
    for (const int when : {TCSANOW, TCSAFLUSH}) {
        write_text(one, "12345678");
        (void)tcdrain(one);
        set_raw(two, B115200, 0, when);
        printf("input after %s: %zu\n", when == TCSANOW ? "TCSANOW" : "TCSAFLUSH",
               read_all(two, 20).size());
    }
}

void observe_closing(int one, int two) {
    write_text(one, "12345678");
    (void)tcdrain(one);
    (void)close(two);
    write_text(one, "lost");
    (void)tcdrain(one);
    (void)usleep(5000);
    const int again = open_port("/dev/sp2");
    printf("input after the last close: %zu\n", read_all(again, 50).size());
    (void)close(again);
}

// The last close waits for the output, also with O_NONBLOCK; that of a copy does not.
void observe_last_close(int one) {
    const int two = open_port("/dev/sp2");
    set_raw(one, B9600);
    set_raw(two, B9600);
    write_text(one, std::string(96, 'x'));
    const int copy = dup(one);
    const long of_copy = centiseconds([&] { (void)close(copy); });
    const long of_last = centiseconds([&] { (void)close(one); });
    printf("close of a copy, of the last: %ld %ld %zu\n", of_copy, of_last,
           read_all(two, 50).size());
}

// The ways in which a process can close a port that has just been given a tenth of a second of
// output.
struct closing_way {
    const char *name;
    void (*close_it)(int port);
};
constexpr closing_way EXIT = {"exit", [](int) {}};
constexpr closing_way CLOSING_WAYS[] = {
    {"close", [](int port) { (void)close(port); }},
    {"dup2", [](int port) { (void)dup2(STDERR_FILENO, port); }},
    {"dup3", [](int port) { (void)dup3(STDERR_FILENO, port, O_CLOEXEC); }},
    {"close_range", [](int port) { (void)close_range(static_cast<unsigned>(port), ~0U, 0); }},
    EXIT,
    {"execve",
     [](int port) {
         (void)fcntl(port, F_SETFD, FD_CLOEXEC);
         (void)execl("/bin/true", "true", nullptr);
     }},
    {"SIGKILL", [](int) { (void)raise(SIGKILL); }},
    {"SIGTERM", [](int) { (void)raise(SIGTERM); }},
};

// In a process of its own. Its duration in hundredths of a second.
long write_and_close(const closing_way &way) {
    return centiseconds([&] {
        const pid_t child = fork();
        if (child == 0) {
            const int port = open_port("/dev/sp1");
            set_raw(port, B9600);
            write_text(port, std::string(96, 'x'));
            way.close_it(port);
            _exit(0);
        }
        (void)waitpid(child, nullptr, 0);
    });
}

// How long each takes, and whether all that was written arrives.
void observe_ways_of_closing() {
    for (const closing_way &way : CLOSING_WAYS) {
        const int far_end = open_port("/dev/sp2");
        set_raw(far_end, B9600);
        const long duration = write_and_close(way);
        const size_t arrived = read_all(far_end, 200).size();
        printf("last close by %s: %ld %d\n", way.name, duration, arrived == 96);
        (void)close(far_end);
    }
}

// What is ready of a pipe and a port, after a byte into those of them that are named.
void observe_poll(const char *fact, const int (&pipe_ends)[2], int one, int two) {
    pollfd both[] = {{pipe_ends[0], POLLIN, 0}, {two, POLLIN, 0}};
    const int ready = poll(both, 2, 30);
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(pipe_ends[0], &readable);
    FD_SET(two, &readable);
    timeval time = {0, 30'000};
    const int selected = select(two + 1, &readable, nullptr, nullptr, &time);
    printf("%s: poll %d %d %d, select %d %d %d\n", fact, ready, both[0].revents, both[1].revents,
           selected, FD_ISSET(pipe_ends[0], &readable) != 0, FD_ISSET(two, &readable) != 0);
    (void)tcdrain(one);
}

void observe_mixed_waits(int one, int two) {
    int pipe_ends[2];
    if (pipe(pipe_ends) != 0)
        return;
    observe_poll("nothing comes", pipe_ends, one, two);
    write_text(pipe_ends[1], "x");
    observe_poll("a byte in the pipe", pipe_ends, one, two);
    write_text(one, "x");
    (void)tcdrain(one);
    (void)usleep(5000); // the time-out of the FIFO
    observe_poll("a byte in both", pipe_ends, one, two);
    (void)read_all(pipe_ends[0], 0);
    write_text(one, "y");
    observe_poll("a byte on the line", pipe_ends, one, two);
    pollfd mixed[] = {{two, POLLIN, 0}, {one, POLLOUT, 0}, {-1, POLLIN, 0}, {999, POLLIN, 0}};
    printf("several: %d", poll(mixed, 4, 0));
    for (const pollfd &each : mixed)
        printf(" %d", each.revents);
    printf("\n");
    (void)read_all(two, 20);
}

int sending_port = -1;

void send_byte(int) {
    (void)!write(sending_port, "k", 1); // the reader shows whether it came
}

// Calls once, after 33 ms, `handler`. A call that waits then goes on afterwards if
// `restarts`, see signal(7).
void prepare_signal(void (*handler)(int), bool restarts) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = restarts ? SA_RESTART : 0;
    (void)sigaction(SIGALRM, &action, nullptr);
    const itimerval once = {{0, 0}, {0, 33'000}};
    (void)setitimer(ITIMER_REAL, &once, nullptr);
}

void show_result(const char *fact, ssize_t result) {
    printf("%s: %zd %s\n", fact, result, result < 0 && errno == EINTR ? "EINTR" : "-");
}

void observe_signals(int one, int two) {
    const auto nothing = [](int) {};
    char byte = '-';
    set_blocking(two, true);
    prepare_signal(nothing, false);
    show_result("read, interrupted", read(two, &byte, 1));
    sending_port = one;
    prepare_signal(send_byte, true);
    show_result("read, restarted", read(two, &byte, 1));
    pollfd waiting = {two, POLLIN, 0};
    prepare_signal(nothing, true);
    show_result("poll, interrupted", poll(&waiting, 1, 1000));
    set_raw(one, B9600);
    set_blocking(one, true);
    prepare_signal(nothing, false);
    show_result("write, interrupted", write(one, std::string(8000, 'x').data(), 8000));
    prepare_signal(nothing, true);
    show_result("tcdrain, interrupted", tcdrain(one));
    (void)tcflush(one, TCOFLUSH);
    set_blocking(one, false);
    write_text(one, std::string(4000, 'x')); // 4 s
    prepare_signal(nothing, false);
    ssize_t result = 0;
    const long duration = centiseconds([&] { result = close(one); });
    show_result("close, interrupted", result);
    printf("after the signal, before the output has left: %d %d\n", duration >= 3, duration < 300);
}

void observe_waits() {
    const int two = open_port("/dev/sp2");
    set_raw(two, B9600);
    (void)write_and_close(EXIT);
    printf("written before an exit: %zu\n", read_all(two, 1000).size());
    const int one = open_port("/dev/sp1");
    set_raw(one, B115200);
    set_raw(two, B115200);
    observe_mixed_waits(one, two);
    observe_signals(one, two);
}

// Of 20000 bytes, and what is queued after a flush.
void observe_long_write(const char *fact, int port) {
    const std::string much(20000, 'x');
    const ssize_t taken = write(port, much.data(), much.size());
    const int queued = ioctl_number(port, TIOCOUTQ);
    (void)tcflush(port, TCOFLUSH);
    printf("%s: %d %d %d\n", fact, taken == 4095, queued > 4000,
           ioctl_number(port, TIOCOUTQ) <= 16);
}

void observe_copies() {
    const int one = open_port("/dev/sp1");
    set_raw(one, B9600);
    const int low = dup2(one, 50);
    observe_long_write("beside a low copy", one);
    observe_long_write("a low copy", low);
    (void)close(low);
    observe_long_write("after a low copy", one);
    const open_how how = {O_RDWR | O_NOCTTY | O_NONBLOCK, 0, 0};
    const auto opened =
        static_cast<int>(syscall(SYS_openat2, AT_FDCWD, "/dev/sp1", &how, sizeof how));
    observe_long_write("openat2", opened);
    epoll_event event{};
    event.events = EPOLLIN;
    const int added = epoll_ctl(epoll_create1(0), EPOLL_CTL_ADD, one, &event);
    printf("epoll_ctl: %d %s\n", added, added < 0 && errno == EPERM ? "EPERM" : "-");
    rlimit limit{};
    (void)getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 64;
    (void)setrlimit(RLIMIT_NOFILE, &limit);
    printf("at most 64 descriptors: %d\n", open_port("/dev/sp1") < 0 && errno == EMFILE);
}

} // namespace

int main(int argc, char **argv) {
    if (argc > 1) {
        argv[1][0] == 'w' ? observe_waits() : observe_copies();
        return 0;
    }
    observe_first_open();
    const int one = open_port("/dev/sp1");
    const int two = open_port("/dev/sp2");
    observe_speeds(one, two);
    observe_queue(one, two);
    observe_input(one, two);
    observe_closing(one, two);
    observe_last_close(one);
    observe_ways_of_closing();
    return 0;
}
