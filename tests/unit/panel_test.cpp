// The parts of the front panel test that need no panel: the screen, the ports' names, the lines of
// the display. No case here opens a panel: on a machine that has one, four ESC presses would
// restart it.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "panel/front_panel.h"
#include "panel/panel_keys.h"
#include "panel/port_table.h"
#include "panel/screen.h"
#include "runtime/started_tests.h"
#include "runtime/unique_fd.h"
#include "tests/support/table_fixture.h"

namespace {

using writes = std::vector<std::string>;

struct outcome {
    writes sent; // to standard output, one each
    int status;  // exit status of the process
};

// Runs `action` in a process of its own, whose standard output is a packet socket's: what one write
// sent is what one read gets.
template <typename Action>
outcome run_apart(Action action) {
    writes sent;
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    const unique_fd reader(ends[0]);
    unique_fd writer(ends[1]);
    (void)fflush(stdout); // or the child would print what waits there
    const pid_t child = fork();
    if (child == 0) {
        (void)dup2(writer.get(), STDOUT_FILENO);
        action();
        _exit(77);
    }
    writer.reset();
    char packet[512];
    for (ssize_t got; (got = read(reader.get(), packet, sizeof packet)) > 0;)
        sent.emplace_back(packet, static_cast<size_t>(got));
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return {sent, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

TEST(Screen, gets_clear_place_text_and_byte_in_a_write_each_and_none_for_a_null_text) {
    EXPECT_EQ(run_apart([] {
                  const uint8_t zero = 0;
                  screen_print(1, 10, 3, "Hello");
                  screen_print(0, 255, 0, nullptr);
                  screen_putc(&zero);
              }).sent,
              (writes{"\033[2J", "\033[3;10f", "Hello", "\033[0;255f", std::string(1, '\0')}));
}

void expect_refused(const std::string &port, writes shown, const std::string &message) {
    const outcome result = run_apart([&port] { (void)open_port_by_name(port.c_str()); });
    shown.insert(shown.end(), {"\033[8;1f", message});
    EXPECT_EQ(result.sent, shown);
    EXPECT_EQ(result.status, 0);
}

TEST(Ports, with_an_unknown_name_end_the_process_with_a_message_of_119_bytes_at_most) {
    // The next port's name, a name's beginning, no name at all, and a long one.
    for (const std::string &name : writes{"/dev/sp7", "/dev/sp", "", std::string(5000, 'x')})
        expect_refused(name, {}, ("Fail: Unknown port: " + name).substr(0, 119));
}

std::string failed_open(const std::string &port) {
    return "Fail: Opening " + port + ": " + std::to_string(ENOENT);
}

TEST(Ports, that_are_missing_end_the_process_with_a_message_after_the_labels_of_modem_lines) {
    const writes labels = {"\033[3;13f", "RTS:", "\033[3;22f", "CTS:", "\033[3;31f", "DCD:"};
    for (const std::string name :
         {"sp1",   "sp1s",  "sp1sa", "sp1sb", "sp1sc", "sp1sd", "sp1se", "sp2",   "sp2s",
          "sp2sa", "sp2sb", "sp2sc", "sp2sd", "sp2se", "sp3",   "sp3s",  "sp3se", "sp3sf",
          "sp4",   "sp5",   "sp5s",  "sp5se", "sp5sf", "sp6",   "sp8",   "sp8s",  "manufacturer"}) {
        const std::string port = "/dev/" + name;
        if (access(port.c_str(), F_OK) == 0)
            GTEST_SKIP() << "this machine has " << port;
        const bool is_labelled = name == "sp1" || name == "sp2" || name == "sp8";
        expect_refused(port, is_labelled ? labels : writes(), failed_open(port));
    }
}

TEST(Keys, of_a_read_that_gave_nothing_are_empty) {
    for (const int32_t read_result : {0, -1}) {
        char text[PANEL_TEXT_MAX];
        format_key(read_result, key_of({}), text);
        EXPECT_EQ(text, std::to_string(read_result) + " ");
    }
}

// Polls made in a round in which the polls of these numbers bring a key.
int polls_of_round(std::initializer_list<int> keys) {
    int polls = 0;
    size_t taken = 0;
    poll_until_idle([&] { return std::find(keys.begin(), keys.end(), ++polls) != keys.end(); },
                    [&] { ++taken; });
    EXPECT_EQ(taken, keys.size());
    return polls;
}

TEST(Rounds, end_after_20_empty_polls_and_after_19_that_follow_a_key) {
    EXPECT_EQ(polls_of_round({}), 20);
    EXPECT_EQ(polls_of_round({5, 24}), 24 + 19);
}

TEST(LetterLines, run_from_40_a_to_40_z_and_begin_again) {
    char text[PANEL_TEXT_MAX];
    int32_t letter = 0;
    for (int line = 0; line < 53; ++line) {
        letter = next_letter(letter);
        format_letter_line(letter, text);
        EXPECT_EQ(text, std::string(40, static_cast<char>('A' + line % 26)));
    }
}

using FrontPanel = TableTest;

// Without the port the process ends before it could restart anything.
TEST_F(FrontPanel, without_its_port_says_so_on_the_screen_and_leaves_its_record_alone) {
    if (access("/dev/sp6", F_OK) == 0)
        GTEST_SKIP() << "this machine has a panel";
    const outcome result = run_apart([] {
        int status = -1;
        (void)waitpid(front_panel_test(0), &status, 0);
        _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 99);
    });
    EXPECT_EQ(result.sent, (writes{"\033[8;1f", failed_open("/dev/sp6")}));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(record(1).pid, PID_NONE);
    EXPECT_EQ(record(1).unit, 0);
}

} // namespace
