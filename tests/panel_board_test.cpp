// The front panel test on the simulated board, the only place where a case may let it restart
// something: there /opt is the board's own and /sbin/reboot only reports.

#include <algorithm>
#include <dirent.h>
#include <gtest/gtest.h>
#include <set>

#include "tests/board_run.h"

namespace {

board_run panel_run(const std::string &keys) {
    return board_run::stress({"--keys", keys}, {"-d1", "-K"});
}

bool is_letter_line(const std::string &text) {
    return text == std::string(40, text[0]) && text[0] >= 'A' && text[0] <= 'Z';
}

std::vector<log_line> display(const board_run &run) {
    std::vector<log_line> lines = run.log;
    std::erase_if(lines, [](const log_line &line) { return line.ident != "panel"; });
    return lines;
}

// What the display showed for keys.
std::vector<std::string> key_lines(const board_run &run) {
    std::vector<std::string> texts;
    for (const log_line &line : display(run)) {
        if (!is_letter_line(line.text)) {
            texts.push_back(line.text);
        }
    }
    return texts;
}

size_t restarts(const board_run &run) {
    return static_cast<size_t>(
        std::count_if(run.log.begin(), run.log.end(),
                      [](const log_line &line) { return line.text == "reboot requested"; }));
}

TEST(FrontPanelOnBoard, names_every_key_on_a_cleared_display) {
    struct {
        const char *keys;
        const char *text;
    } const cases[] = {
        {"\\r", "1 RET"},
        {"a", "1 UA"},
        {"b", "1 DA"},
        {"c", "1 RA"},
        {"d", "1 LA"},
        {"p", "1 NEXT"},
        {"q", "1 YES"},
        {"r", "1 NO"},
        {"s", "1 ESC"},
        {"t", "1 AxON "},
        {"u", "1 AxOFF "},
        {"\\e", "1 \\x1b"},
        {"\\e[A", "3 UA"},
        {"\\e[a", "3 UA"},
        {"\\eOD", "3 LA"},
        {"ps", "2 NEXT"},
        {"\\xff\\x00a\\r", "4 0xff 0x0 0x61 0xd "},
        {"abcdef", "6 0x61 0x62 0x63 0x64 0x65 0x66 "},
        {"0123456789", "10 0x30 0x31 0x32 0x33 0x34 0x35 0x36 0x37 0x38 0x39 "},
        {"z", "1 z"},
    };
    std::string script;
    std::vector<std::string> expected;
    for (const auto &c : cases) {
        script += c.keys + std::string(" ");
        expected.push_back(std::string("<clear>") + c.text);
    }
    board_run run = panel_run(script);
    EXPECT_TRUE(run.wait_for_log("1 z"));
    EXPECT_EQ(key_lines(run), expected);
    EXPECT_EQ(run.request_list(), std::vector<std::string>());
    EXPECT_EQ(run.stop(), 0);
    EXPECT_EQ(run.output, "\n") << "the panel has no line in the report";
}

TEST(FrontPanelOnBoard, shows_a_read_of_ten_bytes_at_most_at_once) {
    board_run run = panel_run("abcdefghijkl z");
    EXPECT_TRUE(run.wait_for_log("1 z"));
    EXPECT_EQ(key_lines(run), (std::vector<std::string>{
                                  "<clear>10 0x61 0x62 0x63 0x64 0x65 0x66 0x67 0x68 0x69 0x6a ",
                                  "<clear>2 k", "<clear>1 z"}));
}

TEST(FrontPanelOnBoard, restarts_nothing_when_a_key_comes_between_four_escapes) {
    board_run run = panel_run("s s s q s \\e[S sxyz \\r s s s z");
    EXPECT_TRUE(run.wait_for_log("1 z"));
    EXPECT_EQ(key_lines(run).size(), 12U);
    EXPECT_EQ(restarts(run), 0U);
}

std::set<std::string> names_in(const char *directory) {
    std::set<std::string> names;
    if (DIR *entries = opendir(directory); entries != nullptr) {
        while (const dirent *entry = readdir(entries)) {
            names.insert(entry->d_name);
        }
        closedir(entries);
    }
    return names;
}

// The board's software as the restart finds it in /opt; each script reports its call.
constexpr const char *BOARD_SOFTWARE =
    "mkdir -p /opt/orbalt/harnwick; "
    "echo 'echo pir $1 in $PWD >&2; echo lost' > /opt/orbalt/harnwick/pir.sh; "
    "echo 'echo vir $1 in $PWD >&2; echo lost' > /opt/vir.sh; "
    "chmod +x /opt/orbalt/harnwick/pir.sh /opt/vir.sh; ";

TEST(FrontPanelOnBoard,
     restarts_software_and_board_in_order_on_four_escapes_in_any_form_and_goes_on) {
    const std::set<std::string> host_software = names_in("/opt");
    // A line of letters between two of them does not matter, nor does how many bytes came with one.
    board_run run = board_run::program(
        {"--keys", "s @2.2 \\e[S sxyz \\eOs z"},
        {"/bin/sh", "-c",
         std::string(BOARD_SOFTWARE) + "exec " HK_EMULATOR " " HK_STRESS_PATH " -K"});
    EXPECT_TRUE(run.wait_for_log("1 z"));
    EXPECT_EQ(key_lines(run), (std::vector<std::string>{
                                  "<clear>1 ESC", "<clear>3 ESC", "<clear>4 0x73 0x78 0x79 0x7a ",
                                  "<clear><clear><8;1f>Restarting Harnwick3 ESC", "<clear>1 z"}));
    EXPECT_EQ(run.errors,
              "proc 1 bogus 0\nnumproc 1 indx 1\nvir restart in /opt\npir halt in /opt\n");
    EXPECT_EQ(restarts(run), 1U);
    const auto shown = [&](const char *text) {
        return std::find_if(run.log.begin(), run.log.end(), [text](const log_line &line) {
            return line.text.find(text) != std::string::npos;
        });
    };
    EXPECT_LT(shown("reboot requested"), shown("Harnwick3 ESC")) << "the key is named after it";
    EXPECT_EQ(names_in("/opt"), host_software) << "of the machine, not of the board";
}

TEST(FrontPanelOnBoard, restarts_again_on_a_fifth_escape) {
    board_run run = panel_run("s s s s s z");
    EXPECT_TRUE(run.wait_for_log("1 z"));
    EXPECT_EQ(restarts(run), 2U);
}

// The times from a line of the display to the line of letters that follows it.
struct letter_gaps {
    std::vector<int64_t> behind_letters_ms;
    std::vector<int64_t> behind_keys_ms;
    std::string letters;
};

letter_gaps gaps_on(const board_run &run) {
    constexpr int64_t DAY_MS = 86'400'000;
    const std::vector<log_line> lines = display(run);
    letter_gaps gaps;
    for (size_t i = 0; i < lines.size(); i++) {
        if (!is_letter_line(lines[i].text)) {
            continue;
        }
        gaps.letters += lines[i].text[0];
        if (i > 0) {
            const int64_t gap = (lines[i].time_ms - lines[i - 1].time_ms + DAY_MS) % DAY_MS;
            (is_letter_line(lines[i - 1].text) ? gaps.behind_letters_ms : gaps.behind_keys_ms)
                .push_back(gap);
        }
    }
    return gaps;
}

// A busy machine makes the polls later, never earlier.
TEST(FrontPanelOnBoard, fills_a_line_after_2_seconds_and_a_poll_less_behind_a_key) {
    board_run run = panel_run("@2.5 x");
    ASSERT_TRUE(run.wait_until([&] { return !gaps_on(run).behind_keys_ms.empty(); }));
    const letter_gaps gaps = gaps_on(run);
    ASSERT_FALSE(gaps.behind_letters_ms.empty());
    EXPECT_GE(gaps.behind_letters_ms[0], 1950);
    EXPECT_GE(gaps.behind_keys_ms[0], 1850);
    EXPECT_EQ(gaps.letters, std::string("ABCDEFGH").substr(0, gaps.letters.size()));
}

TEST(FrontPanelOnBoard, sets_its_port_to_raw_mode_and_38400_bits_per_second) {
    board_run run = board_run::program(
        {"--keys", ""}, {"/bin/sh", "-c",
                         "stty -F /dev/sp6 1200 cooked echo crtscts -clocal; " HK_EMULATOR
                         " " HK_STRESS_PATH " -d1 -K & "
                         "until stty -F /dev/sp6 speed | grep -q 38400; do sleep 0.05; done; "
                         "stty -F /dev/sp6 -a; kill -TERM $!; wait"});
    EXPECT_EQ(run.finish(), 0);
    for (const char *setting :
         {"-icanon", "-echo ", "-isig", "-opost", "-crtscts", "cread clocal"}) {
        EXPECT_NE(run.output.find(setting), std::string::npos) << run.output;
    }
}

TEST(FrontPanelOnBoard, without_its_port_says_so_on_the_screen_and_counts_nothing) {
    board_run run = board_run::stress({}, {"-d1", "-K"});
    EXPECT_TRUE(run.wait_for_output("\033[8;1fFail: Opening /dev/sp6: 2"));
    EXPECT_EQ(run.request_list(), std::vector<std::string>());
}

} // namespace
