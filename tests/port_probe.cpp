// Works the board's serial ports step by step, as the steps on its command line say, and prints
// what it sees. Ports are given by their names ("2", "5s").
//
//   open PORT         rts PORT on|off    lines PORT       sync PORT
//   write PORT TEXT   drain PORT         read PORT        unread PORT
//   delivery PORT PORT N   writes and drains N times at the first port, and counts how often the
//                          bytes were not to be read at the second one at once
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr int READ_LIMIT_MS = 1000;
constexpr unsigned long SYNC_CONFIG = 0x40047300;

struct open_port {
    const char *name;
    int fd;
};
std::array<open_port, 8> ports;
size_t port_count = 0;

int port(const char *name) {
    for (size_t i = 0; i < port_count; i++) {
        if (strcmp(ports[i].name, name) == 0) {
            return ports[i].fd;
        }
    }
    return -1;
}

void open_named(const char *name) {
    const int fd = open((std::string("/dev/sp") + name).c_str(), O_RDWR);
    if (fd < 0 || port_count == ports.size()) {
        dprintf(STDOUT_FILENO, "%s: %s\n", name, strerror(errno));
        return;
    }
    ports[port_count++] = {name, fd};
}

void set_rts(int fd, bool on) {
    int lines = 0;
    (void)ioctl(fd, TIOCMGET, &lines);
    lines = on ? lines | TIOCM_RTS : lines & ~TIOCM_RTS;
    (void)ioctl(fd, TIOCMSET, &lines);
}

void show_lines(const char *name) {
    int lines = 0;
    const bool known = ioctl(port(name), TIOCMGET, &lines) == 0;
    dprintf(STDOUT_FILENO, "%s:%s%s%s%s\n", name, known ? "" : " no lines",
            (lines & TIOCM_RTS) != 0 ? " RTS" : "", (lines & TIOCM_CTS) != 0 ? " CTS" : "",
            (lines & TIOCM_CAR) != 0 ? " DCD" : "");
}

void show_sync(const char *name) {
    const std::array<unsigned char, 4> mode = {1, 10, 0, 0};
    const bool taken = ioctl(port(name), SYNC_CONFIG, mode.data()) == 0;
    dprintf(STDOUT_FILENO, "%s: %s\n", name, taken ? "synchronous" : strerror(errno));
}

int unread_bytes(int fd) {
    int count = 0;
    (void)ioctl(fd, FIONREAD, &count);
    return count;
}

void show_read(const char *name) {
    std::array<char, 512> bytes{};
    pollfd input{port(name), POLLIN, 0};
    const ssize_t count =
        poll(&input, 1, READ_LIMIT_MS) == 1 ? read(input.fd, bytes.data(), bytes.size()) : 0;
    dprintf(STDOUT_FILENO, "%s: \"%.*s\"\n", name, static_cast<int>(count), bytes.data());
}

void show_delivery(int from, int to, int rounds) {
    constexpr std::array<char, 20> block{};
    std::array<char, 512> received{};
    int late = 0;
    for (int round = 0; round < rounds; round++) {
        (void)!write(from, block.data(), block.size());
        (void)tcdrain(from);
        late += unread_bytes(to) < static_cast<int>(block.size()) ? 1 : 0;
        (void)!read(to, received.data(), received.size());
    }
    dprintf(STDOUT_FILENO, "late %d of %d\n", late, rounds);
}

// Carries out the step at `words` and returns how many words it has, 0 when it is none.
int step(char **words, int count) {
    const std::string verb = words[0];
    if (count >= 4 && verb == "delivery") {
        show_delivery(port(words[1]), port(words[2]), atoi(words[3]));
        return 4;
    }
    if (count >= 3 && verb == "rts") {
        set_rts(port(words[1]), strcmp(words[2], "on") == 0);
        return 3;
    }
    if (count >= 3 && verb == "write") {
        (void)!write(port(words[1]), words[2], strlen(words[2]));
        return 3;
    }
    if (count < 2) {
        return 0;
    }
    if (verb == "open") {
        open_named(words[1]);
    } else if (verb == "lines") {
        show_lines(words[1]);
    } else if (verb == "sync") {
        show_sync(words[1]);
    } else if (verb == "drain") {
        (void)tcdrain(port(words[1]));
    } else if (verb == "read") {
        show_read(words[1]);
    } else if (verb == "unread") {
        dprintf(STDOUT_FILENO, "%s: %d\n", words[1], unread_bytes(port(words[1])));
    } else {
        return 0;
    }
    return 2;
}

} // namespace

int main(int argc, char **argv) {
    for (int at = 1; at < argc;) {
        const int words = step(argv + at, argc - at);
        if (words == 0) {
            dprintf(STDERR_FILENO, "port_probe: no such step: %s\n", argv[at]);
            return 2;
        }
        at += words;
    }
    return 0;
}
