// The fleet's log, with the configurations of docs/: rsyslogd of two simulated boards, each fed
// with its board's messages, and of their collector, on the loopback interface. What the files say
// about sockets, addresses and directories is replaced by the case's own; the rest is as shipped.
#include <algorithm>
#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <netinet/in.h>
#include <poll.h>
#include <sstream>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/board_run.h"

namespace {

constexpr char DAEMON[] = "/usr/sbin/rsyslogd";
constexpr int LIMIT_TURNS = 120; // of half a second, or of an event

std::string contents(const std::string &path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::string> lines_of(const std::string &path) {
    std::istringstream text(contents(path));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

// A configuration of docs/ with every one of the texts replaced, all of which it must hold.
std::string shipped(const std::string &name, const std::map<std::string, std::string> &replaced) {
    std::string text = contents(std::string(DOCS_PATH) + "/" + name);
    for (const auto &[from, to] : replaced) {
        EXPECT_NE(text.find(from), std::string::npos) << name << " has no " << from;
        for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
            text.replace(at, from.size(), to);
        }
    }
    return text;
}

// A connection to a port of this machine; -1 when nobody listens there.
int connect_to(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(connection, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
        return connection;
    }
    close(connection);
    return -1;
}

class FleetLog : public testing::Test {
protected:
    void SetUp() override {
        if (access(DAEMON, X_OK) != 0) {
            GTEST_SKIP() << "rsyslogd is not installed";
        }
        char path[] = "/tmp/hk_fleet_XXXXXX";
        ASSERT_NE(mkdtemp(path), nullptr);
        directory = path;
        kept = directory + "/kept";
        ASSERT_TRUE(std::filesystem::create_directory(kept));
        watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        for (const std::string &each : {directory, kept}) {
            ASSERT_GE(inotify_add_watch(watch, each.c_str(), IN_CREATE | IN_MODIFY), 0);
        }
    }

    void TearDown() override {
        for (const pid_t daemon : daemons) {
            kill(daemon, SIGKILL);
            waitpid(daemon, nullptr, 0);
        }
        if (!directory.empty()) {
            close(watch);
            std::filesystem::remove_all(directory);
        }
    }

    // Starts a daemon, which lives until the end of the case.
    void start_daemon(const std::string &name, const std::string &configuration) {
        const std::string path = directory + "/" + name + ".conf";
        const std::string id_file = directory + "/" + name + ".pid";
        std::ofstream(path) << "global(workDirectory=\"" + directory + "\" localHostname=\"" +
                                   name + "\")\n" + configuration;
        const pid_t test = getpid();
        const pid_t daemon = fork();
        if (daemon == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() == test) {
                execl(DAEMON, DAEMON, "-n", "-f", path.c_str(), "-i", id_file.c_str(), nullptr);
            }
            _exit(127);
        }
        daemons.push_back(daemon);
    }

    // Looks at the claim whenever a file has changed, and now and then, until it holds.
    template <typename Claim>
    bool wait_until(Claim holds) {
        for (int turns = 0; turns < LIMIT_TURNS && !holds(); turns++) {
            pollfd changed{watch, POLLIN, 0};
            (void)poll(&changed, 1, 500);
            char events[4096];
            while (read(watch, events, sizeof events) > 0) {
            }
        }
        return holds();
    }

    // Starts the collector; returns the port it has taken.
    int start_collector() {
        const std::string port_file = directory + "/port";
        start_daemon("collector", shipped("fleet-collector-rsyslog.conf",
                                          {{"port=\"10514\"", "address=\"127.0.0.1\" port=\"0\" "
                                                              "listenPortFileName=\"" +
                                                                  port_file + "\""},
                                           {"/var/log/hk_stress", kept}}));
        // The port is written down before the daemon listens on it.
        EXPECT_TRUE(wait_until([&] {
            const int connection = connect_to(atoi(contents(port_file).c_str()));
            return connection >= 0 && close(connection) == 0;
        }));
        return atoi(contents(port_file).c_str());
    }

    // Starts the daemon of a board; returns its socket in place of the board's /dev/log.
    std::string start_board_daemon(const std::string &name, int port) {
        const std::string path = directory + "/" + name + ".socket";
        start_daemon(name,
                     "module(load=\"imuxsock\" SysSock.Use=\"off\")\n"
                     "input(type=\"imuxsock\" Socket=\"" +
                         path + "\")\n" +
                         shipped("fleet-board-rsyslog.conf",
                                 {{"collector.example.net", "127.0.0.1"},
                                  {"port=\"10514\"", "port=\"" + std::to_string(port) + "\""}}));
        EXPECT_TRUE(wait_until([&] { return access(path.c_str(), F_OK) == 0; }));
        return path;
    }

    std::string file_of(const std::string &name) const {
        return kept + "/" + name;
    }
    std::vector<std::string> kept_files() const {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(kept)) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    std::string directory;
    std::string kept;
    int watch = -1;
    std::vector<pid_t> daemons;
};

// What the collector is to keep of a run, without the time.
std::vector<std::string> expected_lines(const board_run &run, const std::string &host) {
    std::vector<std::string> lines;
    for (const log_line &line : run.log) {
        if (line.ident != "board") {
            lines.push_back(host + " " + line.ident + ": " + line.text);
        }
    }
    return lines;
}

std::vector<std::string> lines_without_time(const std::string &path) {
    std::vector<std::string> lines = lines_of(path);
    for (std::string &line : lines) {
        line.erase(0, std::min(line.find(' '), line.size() - 1) + 1);
        while (line.ends_with(' ')) { // where a list item ends its line, the board shows a blank
            line.pop_back();
        }
    }
    return lines;
}

TEST_F(FleetLog, each_boards_file_holds_its_own_lists_line_by_line_and_no_other_line) {
    const int port = start_collector();
    const std::string sockets[] = {start_board_daemon("left", port),
                                   start_board_daemon("right", port)};
    ASSERT_FALSE(HasFailure());
    board_run left =
        board_run::stress({"--cable", "2-8", "--mac", "02:00:00:00:00:0a", "--forward", sockets[0]},
                          {"-d1", "-l5", "-E28"});
    board_run right =
        board_run::stress({"--loop", "3", "--mac", "02:00:00:00:00:0b", "--forward", sockets[1]},
                          {"-d1", "-l5", "-E33"});
    for (int lists = 0; lists < 2; lists++) {
        EXPECT_EQ(left.request_list().size(), 2U);
        EXPECT_EQ(right.request_list().size(), 1U);
    }
    EXPECT_EQ(left.stop(), 0);
    EXPECT_EQ(right.stop(), 0);

    const std::vector<std::string> of_left = expected_lines(left, "left");
    const std::vector<std::string> of_right = expected_lines(right, "right");
    ASSERT_GE(of_left.size(), 16U); // four lists of two items
    const std::string left_file = file_of("02000000000a.log");
    const std::string right_file = file_of("02000000000b.log");
    (void)wait_until([&] {
        return lines_of(left_file).size() >= of_left.size() &&
               lines_of(right_file).size() >= of_right.size();
    });
    EXPECT_EQ(lines_without_time(left_file), of_left);
    EXPECT_EQ(lines_without_time(right_file), of_right);
    EXPECT_EQ(kept_files(), (std::vector<std::string>{"02000000000a.log", "02000000000b.log"}));
}

TEST_F(FleetLog, a_line_without_a_hardware_address_names_no_file) {
    const int port = start_collector();
    ASSERT_FALSE(HasFailure());
    const int connection = connect_to(port);
    ASSERT_GE(connection, 0);
    const std::string start = "<14>2026-11-21T05:00:00+00:00 left Stress ";
    const std::string lines = start + "../../02000000 : <OL>\n" + start + "02000000000 : <OL>\n" +
                              "<14>2026-11-21T05:00:00+00:00 left other 02000000000a : <OL>\n" +
                              start + "02000000000a : <OL>\n";
    ASSERT_EQ(write(connection, lines.data(), lines.size()), static_cast<ssize_t>(lines.size()));
    EXPECT_TRUE(wait_until([&] { return lines_of(file_of("02000000000a.log")).size() == 1; }));
    EXPECT_TRUE(wait_until([&] { return lines_of(file_of("other.log")).size() == 3; }));
    EXPECT_EQ(kept_files(), (std::vector<std::string>{"02000000000a.log", "other.log"}));
    close(connection);
}

} // namespace
