// The parts of the front panel test that need no panel: the screen, the ports' names, the keys. No
// case here opens a panel: on a machine that has one, four ESC presses would restart it.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "panel/front_panel_test.h"
#include "panel/panel_keys.h"
#include "panel/port_table.h"
#include "panel/screen.h"
#include "supervisor/test_process.h"
#include "supervisor/unique_fd.h"
#include "tests/table_fixture.h"

namespace {

struct outcome {
    std::vector<std::string> writes; // to standard output, one each
    int status = -1;                 // exit status of the process
};

// Runs `action` in a process of its own, whose standard output is a packet socket's: what one write
// sent is what one read gets.
template <typename Action>
outcome run_apart(Action action) {
    outcome result;
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
        result.writes.emplace_back(packet, static_cast<size_t>(got));
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

using writes = std::vector<std::string>;

TEST(Screen, text_goes_out_in_separate_writes_clear_place_and_text) {
    EXPECT_EQ(run_apart([] { screen_print(1, 10, 3, "Hello"); }).writes,
              (writes{"\033[2J", "\033[3;10f", "Hello"}));
    EXPECT_EQ(run_apart([] { screen_print(0, 255, 254, nullptr); }).writes,
              (writes{"\033[254;255f"}));
}

TEST(Screen, places_are_passed_on_as_they_are_cut_to_8_bits) {
    const auto beyond = static_cast<uint8_t>(256 + 7);
    EXPECT_EQ(run_apart([=] {
                  screen_goto(0, 0);
                  screen_goto(beyond, 1);
              }).writes,
              (writes{"\033[0;0f", "\033[1;7f"}));
}

TEST(Screen, a_byte_is_one_write_and_a_null_text_none) {
    EXPECT_EQ(run_apart([] {
                  const uint8_t bytes[] = {0, 'x'};
                  screen_putc(&bytes[0]);
                  screen_puts(nullptr);
                  screen_putc(&bytes[1]);
              }).writes,
              (writes{std::string(1, '\0'), "x"}));
}

TEST(Ports, an_unknown_name_ends_the_process_with_a_message_and_status_0) {
    // The next port's name, a name's beginning, and no name at all.
    for (const char *name : {"/dev/sp7", "/dev/sp", ""}) {
        const outcome result = run_apart([name] { (void)open_port_by_name(name); });
        EXPECT_EQ(result.writes, (writes{"\033[8;1f", std::string("Fail: Unknown port: ") + name}));
        EXPECT_EQ(result.status, 0);
    }
}

TEST(Ports, an_unknown_name_of_any_length_is_cut_in_the_message) {
    const std::string name(5000, 'x');
    const outcome result = run_apart([&name] { (void)open_port_by_name(name.c_str()); });
    ASSERT_EQ(result.writes.size(), 2u);
    EXPECT_EQ(result.writes[1].substr(0, 26), "Fail: Unknown port: xxxxxx");
    EXPECT_EQ(result.status, 0);
}

std::string failed_open(const char *name) {
    return std::string("Fail: Opening ") + name + ": " + std::to_string(ENOENT);
}

TEST(Ports, a_missing_one_without_modem_lines_ends_the_process_with_a_message_and_status_0) {
    for (const char *port :
         {"sp1s",  "sp1sa", "sp1sb", "sp1sc", "sp1sd", "sp1se", "sp2s",  "sp2sa",
          "sp2sb", "sp2sc", "sp2sd", "sp2se", "sp3",   "sp3s",  "sp3se", "sp3sf",
          "sp4",   "sp5",   "sp5s",  "sp5se", "sp5sf", "sp6",   "sp8s",  "manufacturer"}) {
        const std::string name = std::string("/dev/") + port;
        if (access(name.c_str(), F_OK) == 0)
            GTEST_SKIP() << "this machine has " << name;
        const outcome result = run_apart([&name] { (void)open_port_by_name(name.c_str()); });
        EXPECT_EQ(result.writes, (writes{"\033[8;1f", failed_open(name.c_str())}));
        EXPECT_EQ(result.status, 0);
    }
}

TEST(Ports, the_ones_with_modem_lines_get_their_labels_before_they_are_opened) {
    for (const char *name : {"/dev/sp1", "/dev/sp2", "/dev/sp8"}) {
        if (access(name, F_OK) == 0)
            GTEST_SKIP() << "this machine has " << name;
        EXPECT_EQ(run_apart([name] { (void)open_port_by_name(name); }).writes,
                  (writes{"\033[3;13f", "RTS:", "\033[3;22f", "CTS:", "\033[3;31f",
                          "DCD:", "\033[8;1f", failed_open(name)}));
    }
}

std::string shown(int32_t read_result, const std::string &bytes) {
    char text[PANEL_TEXT_MAX];
    const std::vector<uint8_t> received(bytes.begin(), bytes.end());
    format_key(read_result, key_of(received), text);
    return text;
}

std::string shown(const std::string &bytes) {
    return shown(static_cast<int32_t>(bytes.size()), bytes);
}

TEST(Keys, are_named_on_the_display) {
    struct {
        const char *bytes;
        const char *text;
    } const cases[] = {
        {"\r", "1 RET"},   {"a", "1 UA"},  {"b", "1 DA"}, {"c", "1 RA"},      {"d", "1 LA"},
        {"p", "1 NEXT"},   {"q", "1 YES"}, {"r", "1 NO"}, {"s", "1 ESC"},     {"t", "1 AxON "},
        {"u", "1 AxOFF "}, {"e", "1 e"},   {"A", "1 A"},  {"\xE4", "1 \xE4"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(shown(c.bytes), c.text);
}

TEST(Keys, of_three_bytes_are_named_by_the_last_in_either_case) {
    EXPECT_EQ(shown("\033[A"), "3 UA");
    EXPECT_EQ(shown("\033[a"), "3 UA");
    EXPECT_EQ(shown("\033OS"), "3 ESC");
    EXPECT_EQ(shown("sss"), "3 ESC");
    EXPECT_EQ(shown("aaR"), "3 NO");
    EXPECT_EQ(shown("s\r\r"), "3 -") << "a carriage return with the bit set is no key";
}

TEST(Keys, of_another_length_are_named_by_the_first_byte) {
    EXPECT_EQ(shown("pq"), "2 NEXT");
    EXPECT_EQ(shown("rabcde"), "6 NO");
}

TEST(Keys, of_a_read_that_gave_nothing_are_empty) {
    EXPECT_EQ(shown(0, ""), "0 ");
    EXPECT_EQ(shown(-1, ""), "-1 ");
}

TEST(Keys, only_esc_adds_to_the_presses_in_a_row) {
    int32_t escapes = 0;
    for (int32_t press = 1; press <= 5; ++press)
        EXPECT_EQ(escapes = escapes_after(escapes, KEY_ESC), press);
    for (const uint8_t key : std::to_array<uint8_t>({'\r', 'a', 'u', 'x', '\0', 'S'}))
        EXPECT_EQ(escapes_after(3, key), 0);
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

TEST(Rounds, end_after_20_empty_polls_and_after_19_behind_a_key) {
    EXPECT_EQ(polls_of_round({}), 20);
    EXPECT_EQ(polls_of_round({1}), 1 + 19);
    EXPECT_EQ(polls_of_round({20}), 20 + 19);
    EXPECT_EQ(polls_of_round({5, 24}), 24 + 19);
    EXPECT_EQ(polls_of_round({5, 6, 7}), 7 + 19);
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

class FrontPanel : public TableTest {};

TEST_F(FrontPanel, a_claim_alone_takes_one_record_without_a_letter) {
    EXPECT_EQ(front_panel_test(1), 1);
    EXPECT_EQ(record_count, 1);
    EXPECT_EQ(record(1).test_letter, 0);
    EXPECT_EQ(started_process(1), 0);
}

// Without the port the process ends before it could restart anything.
TEST_F(FrontPanel, without_its_port_says_so_on_the_screen_and_leaves_its_record_alone) {
    if (access("/dev/sp6", F_OK) == 0)
        GTEST_SKIP() << "this machine has a panel";
    int status = -1;
    const outcome result = run_apart([&status] {
        const pid_t child = front_panel_test(0);
        (void)waitpid(child, &status, 0);
        _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 99);
    });
    EXPECT_EQ(result.writes, (writes{"\033[8;1f", failed_open("/dev/sp6")}));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(record(1).pid, PID_NONE);
    EXPECT_EQ(record(1).unit, 0);
}

} // namespace
