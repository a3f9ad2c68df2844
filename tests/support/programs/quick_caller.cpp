// Makes calls on the cabled ports 1 and 2 of the board that return at once, each twice from the
// same place in the program, and prints what the second ones have returned. With the argument
// "switches" it prints how often twenty such calls have made the process wait.

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr size_t AREA_BYTES = 4096;

int one = -1, two = -1; // the ports
bool is_shown = false;  // in the second round
char buffer[AREA_BYTES];
alignas(AREA_BYTES) char page[AREA_BYTES];

void show(const char *name, int64_t result) {
    if (is_shown)
        printf("%s: %s\n", name,
               result < 0 ? strerrorname_np(errno) : std::to_string(result).c_str());
}

void show_text(const char *name, const char *text, ssize_t bytes) {
    if (is_shown)
        printf("%s: \"%.*s\"\n", name, static_cast<int>(bytes), text);
}

void set_up(int port, tcflag_t output, tcflag_t local, cc_t least) {
    termios settings{};
    (void)tcgetattr(port, &settings);
    cfmakeraw(&settings);
    settings.c_oflag |= output;
    settings.c_lflag |= local;
    settings.c_cc[VMIN] = least;
    (void)cfsetspeed(&settings, B115200);
    (void)tcsetattr(port, TCSANOW, &settings);
}

int64_t now_us() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

// Writes to port 1 from the data of this program, and lets it arrive.
void send(const char *text) {
    strcpy(buffer, text);
    (void)!write(one, buffer, strlen(text));
    (void)tcdrain(one);
    (void)usleep(10'000);
}

int events_of(int port, short wanted) {
    pollfd polled{port, wanted, 0};
    return poll(&polled, 1, 0) > 0 ? polled.revents : 0;
}

void observe_transfers() {
    send("abcdef");
    show("events of both kinds", events_of(two, POLLIN | POLLOUT));
    show_text("two bytes", buffer, read(two, buffer, 2));
    show_text("the rest", buffer, read(two, buffer, sizeof buffer));
    show("events then", events_of(two, POLLIN));
    show("read of nothing", read(two, buffer, sizeof buffer));
    const int64_t begin = now_us();
    show("write", write(one, buffer, 115));
    show("tcdrain", tcdrain(one));
    show("milliseconds", (now_us() - begin) / 1000);
    show("tcdrain again", tcdrain(one));
    show("read", read(two, buffer, sizeof buffer));
    show("write of too much", write(one, buffer, sizeof buffer));
    show("write to a full port", write(one, buffer, 1));
    show("events then", events_of(one, POLLIN | POLLOUT));
    (void)tcflush(one, TCIOFLUSH);
    (void)usleep(100'000);
    (void)tcflush(two, TCIOFLUSH);
}

// What the program may not touch, and memory that is not the program's data.
void observe_memory() {
    char *volatile bad = reinterpret_cast<char *>(8);
    char *nowhere = bad; // which the compiler does not know
    auto *mapped = static_cast<char *>(
        mmap(nullptr, AREA_BYTES, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    send("ghi");
    show("poll nowhere", poll(reinterpret_cast<pollfd *>(nowhere), 1, 0));
    show("write from nowhere", write(two, nowhere, 5));
    show_text("read to a mapping", mapped, read(two, mapped, 3));
    send("jkl");
    show("read to nowhere", read(two, nowhere, 3));
    (void)tcflush(two, TCIFLUSH);
    send("123");
    (void)mprotect(page, sizeof page, PROT_READ);
    (void)events_of(two, POLLIN);
    show("read to a protected page", read(two, page, 3));
    (void)tcflush(two, TCIFLUSH); // an emulator finds the bad address before it reads
    (void)mprotect(page, sizeof page, PROT_READ | PROT_WRITE);
    (void)munmap(mapped, AREA_BYTES);
}

void observe_descriptors() {
    const int copy = dup(two);
    for (int i = 0; i < 2; i++) { // the copy is known, too
        send("mnopqr");
        show_text("first", buffer, read(two, buffer, 2));
        show_text("by the copy", buffer, read(copy, buffer, 2));
        show_text("last", buffer, read(two, buffer, 2));
    }
    (void)close(copy);
    show("by the closed copy", read(copy, buffer, 2));
    fflush(stdout);
    if (fork() == 0) {
        send("stu");
        show_text("in a child", buffer, read(two, buffer, 2));
        fflush(stdout);
        _exit(0);
    }
    (void)wait(nullptr);
    show_text("in its parent", buffer, read(two, buffer, 2));
}

int open_port(const char *path) {
    const int port = open(path, O_RDWR | O_NONBLOCK);
    set_up(port, 0, 0, 1);
    return port;
}

// The calls before have been quick, those after a change of the descriptor are on something else.
void observe_changes() {
    show("write", write(two, buffer, 1));
    (void)close(two);
    show("write after close", write(two, buffer, 1));
    two = open_port("/dev/sp2");
    const int null = open("/dev/null", O_RDWR);
    send("123");
    show("read", read(two, buffer, 1));
    (void)dup2(null, two);
    show("read after dup2", read(two, buffer, 1));
    (void)close(null);
    (void)close(two);
    two = open_port("/dev/sp2");
    (void)tcflush(one, TCIFLUSH);
    if (vfork() == 0) { // its descriptors are its own, its memory is not
        (void)dup2(two, one);
        (void)!write(one, "child", 5);
        (void)!write(one, buffer, 1);
        _exit(0);
    }
    show("write after vfork", write(one, buffer, 2));
    (void)wait(nullptr);
    (void)usleep(10'000);
    show("what it has sent", read(two, buffer, sizeof buffer));
    show("what its child has sent", read(one, buffer, sizeof buffer));
}

void observe_settings() {
    set_up(one, OPOST | ONLCR, 0, 1);
    send("v\n");
    show("with ONLCR", read(two, buffer, sizeof buffer));
    set_up(one, 0, 0, 1);
    set_up(two, 0, ICANON, 1);
    send("w\nx\n");
    show("with ICANON", read(two, buffer, sizeof buffer));
    set_up(two, 0, 0, 5);
    show("events of three bytes of five", events_of(two, POLLIN));
    show("three bytes of five", read(two, buffer, sizeof buffer));
    set_up(two, 0, 0, 1);
}

int show_switches() {
    rusage before{}, after{};
    for (int round = 0; round < 2; round++) {
        send("yz");
        (void)getrusage(RUSAGE_SELF, &before);
        for (int i = 0; i < 10; i++)
            (void)!write(two, buffer, 2);
        for (int i = 0; i < 8; i++)
            (void)events_of(one, POLLOUT);
        (void)!read(two, buffer, 2);
        (void)tcdrain(one);
        (void)getrusage(RUSAGE_SELF, &after);
        (void)tcdrain(two);
    }
    printf("%ld\n", after.ru_nvcsw - before.ru_nvcsw);
    return 0;
}

} // namespace

int main(int count, char **arguments) {
    one = open_port("/dev/sp1");
    two = open_port("/dev/sp2");
    if (count > 1 && strcmp(arguments[1], "switches") == 0)
        return show_switches();
    for (is_shown = false;; is_shown = true) {
        observe_transfers();
        observe_memory();
        observe_descriptors();
        observe_changes();
        observe_settings();
        if (is_shown)
            return 0;
    }
}
