// The fleet's log, with the configurations of docs/: rsyslogd of two simulated boards, each fed
// with its board's messages, and of their collector, on the loopback interface. What the files say
// about sockets, addresses and directories is replaced by the case's own; the rest is as shipped.
#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <netinet/in.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "runtime/unique_fd.h"
#include "tests/support/board_run.h"
#include "tests/support/list_polling.h"

namespace {

using Lines = std::vector<std::string>;

constexpr char DAEMON[] = "/usr/sbin/rsyslogd";

// A configuration of docs/ with every one of the texts replaced, all of which it must hold.
std::string shipped(const std::string &name, const std::map<std::string, std::string> &replaced) {
    std::ostringstream file;
    file << std::ifstream(std::string(DOCS_PATH) + "/" + name).rdbuf();
    std::string text = file.str();
    for (const auto &[from, to] : replaced) {
        EXPECT_NE(text.find(from), std::string::npos) << name << " has no " << from;
        for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
            text.replace(at, from.size(), to);
    }
    return text;
}

// Looks at the claim, some ten times a second, until it holds; false when that takes too long.
template <typename Claim>
bool wait_until(Claim holds) {
    for (int tries = 0; tries < 600 && !holds(); ++tries)
        pause_between_lists();
    return holds();
}

class FleetLog : public testing::Test {
protected:
    void SetUp() override {
        if (access(DAEMON, X_OK) != 0)
            GTEST_SKIP() << "rsyslogd is not installed";
        char path[] = "/tmp/hk_fleet_XXXXXX";
        ASSERT_NE(mkdtemp(path), nullptr);
        directory = path + std::string("/");
        kept = directory + "kept";
        ASSERT_TRUE(std::filesystem::create_directory(kept));
    }

    void TearDown() override {
        for (const pid_t daemon : daemons) {
            kill(daemon, SIGKILL);
            waitpid(daemon, nullptr, 0);
        }
        if (!directory.empty())
            std::filesystem::remove_all(directory);
    }

    // Starts a daemon, which lives until the end of the case.
    void start_daemon(const std::string &name, const std::string &configuration) {
        const std::string path = directory + name;
        std::ofstream(path + ".conf") << "global(workDirectory=\"" + directory +
                                             "\" localHostname=\"" + name + "\")\n" + configuration;
        const pid_t test = getpid();
        daemons.push_back(fork());
        if (daemons.back() == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() == test)
                execl(DAEMON, DAEMON, "-n", "-f", (path + ".conf").c_str(), "-i",
                      (path + ".pid").c_str(), nullptr);
            _exit(127);
        }
    }

    // Starts the collector; returns a connection to it, none at the limit. The port is written
    // down before the daemon listens on it.
    unique_fd start_collector() {
        const std::string port_file = directory + "port";
        start_daemon("collector", shipped("fleet-collector-rsyslog.conf",
                                          {{"port=\"10514\"", "address=\"127.0.0.1\" port=\"0\" "
                                                              "listenPortFileName=\"" +
                                                                  port_file + "\""},
                                           {"/var/log/hk_stress", kept}}));
        unique_fd connection;
        (void)wait_until([&] {
            std::ifstream(port_file) >> port;
            sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
            connection.reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
            return connect(connection.get(), reinterpret_cast<sockaddr *>(&address),
                           sizeof address) == 0;
        });
        return connection;
    }

    // Starts the daemon of a board; returns its socket in place of the board's /dev/log.
    std::string start_board_daemon(const std::string &name) {
        const std::string path = directory + name + ".socket";
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

    // The lines of every file that the collector keeps, without the time.
    std::map<std::string, Lines> kept_lines() const {
        std::map<std::string, Lines> files;
        for (const auto &entry : std::filesystem::directory_iterator(kept)) {
            std::ifstream file(entry.path());
            for (std::string line; std::getline(file, line);) {
                line.erase(line.find_last_not_of(' ') + 1); // which the board does not show either
                files[entry.path().filename()].push_back(line.substr(line.find(' ') + 1));
            }
        }
        return files;
    }

    std::string directory;
    std::string kept;
    uint16_t port = 0; // the collector's
    std::vector<pid_t> daemons;
};

// What the collector is to keep of a run, without the time.
Lines expected_lines(const board_run &run, const std::string &host) {
    Lines lines;
    for (const log_line &line : run.log)
        if (line.ident != "board")
            lines.push_back(host + " " + line.ident + ": " + line.text);
    return lines;
}

TEST_F(FleetLog, each_boards_file_holds_its_lists_alone_and_a_line_without_address_names_no_file) {
    const unique_fd collector = start_collector();
    board_run left = board_run::stress(
        {"--cable", "2-8", "--mac", "02:00:00:00:00:0a", "--forward", start_board_daemon("left")},
        {"-d1", "-l5", "-E28"});
    board_run right = board_run::stress(
        {"--loop", "3", "--mac", "02:00:00:00:00:0b", "--forward", start_board_daemon("right")},
        {"-d1", "-l5", "-E33"});
    for (int lists = 0; lists < 2; ++lists) {
        EXPECT_EQ(left.request_list().size(), 2U);
        EXPECT_EQ(right.request_list().size(), 1U);
    }
    EXPECT_EQ(left.stop(), 0);
    EXPECT_EQ(right.stop(), 0);
    const Lines strange = {"left Stress ../../02000000 : <OL>", "left Stress 02000000000 : <OL>",
                           "left other 02000000000a : <OL>"};
    for (const std::string &line : strange)
        EXPECT_GT(dprintf(collector.get(), "<14>2026-11-21T05:00:00+00:00 %s\n", line.c_str()), 0);

    const std::map<std::string, Lines> expected = {
        {"02000000000a.log", expected_lines(left, "left")},
        {"02000000000b.log", expected_lines(right, "right")},
        {"other.log", strange}};
    ASSERT_GE(expected.at("02000000000a.log").size(), 16U); // four lists of two items
    (void)wait_until([&] { return kept_lines() == expected; });
    EXPECT_EQ(kept_lines(), expected);
}

} // namespace
