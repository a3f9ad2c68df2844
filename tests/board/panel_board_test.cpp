// The front panel test on the simulated board, the only place where a case may let it restart
// something: there /opt is the board's own and /sbin/reboot only reports.

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/board_run.h"

namespace {

using Lines = std::vector<std::string>;

// What the display showed for keys, with the restarts between.
Lines key_lines(const board_run &run) {
    Lines texts;
    for (const auto &[time_ms, ident, text] : run.log)
        if ((ident == "panel" && text != std::string(40, text[0])) || text == "reboot requested")
            texts.push_back(text);
    return texts;
}

TEST(FrontPanelOnBoard, names_every_key_on_a_cleared_display_and_shows_long_reads_as_bytes) {
    struct {
        const char *keys;
        const char *text;
    } const cases[] = {
        {"\\r", "1 RET"},  {"a", "1 UA"},        {"b", "1 DA"},      {"c", "1 RA"},
        {"d", "1 LA"},     {"p", "1 NEXT"},      {"q", "1 YES"},     {"r", "1 NO"},
        {"s", "1 ESC"},    {"t", "1 AxON "},     {"u", "1 AxOFF "},  {"e", "1 e"},
        {"A", "1 A"},      {"\\xe4", "1 \\xe4"}, {"\\e", "1 \\x1b"}, {"\\e[A", "3 UA"},
        {"\\e[a", "3 UA"}, {"\\eOD", "3 LA"},    {"aaR", "3 NO"},    {"s\\r\\r", "3 -"},
        {"ps", "2 NEXT"},
    };
    // Eight bytes are as many as the port's FIFO hands over at once.
    std::string script = "\\xff\\x00a\\r abcdef 01234567 ";
    Lines expected = {"<clear>4 0xff 0x0 0x61 0xd ", "<clear>6 0x61 0x62 0x63 0x64 0x65 0x66 ",
                      "<clear>8 0x30 0x31 0x32 0x33 0x34 0x35 0x36 0x37 "};
    for (const auto &c : cases) {
        script += c.keys + std::string(" ");
        expected.push_back(std::string("<clear>") + c.text);
    }
    board_run run = board_run::stress({"--keys", script}, {"-d1", "-K"});
    EXPECT_TRUE(run.wait_for_log("2 NEXT"));
    EXPECT_EQ(key_lines(run), expected);
    EXPECT_EQ(run.request_list(), Lines());
    EXPECT_EQ(run.stop(), 0);
    EXPECT_EQ(run.output, "\n") << "the panel has no line in the report";
}

TEST(FrontPanelOnBoard, restarts_software_and_board_in_order_on_each_escape_after_three_in_a_row) {
    // A line of letters between two of them does not matter, nor does how many bytes came with one.
    // The board's software, as the restart finds it in /opt, reports its calls.
    board_run run = board_run::program(
        {"--keys", "s s s q s s s S s @2.2 \\e[S sxyz \\eOs s z"},
        {"/bin/sh", "-c",
         "mkdir -p /opt/orbalt/harnwick; echo 'echo $0 $1 in $PWD >&2; echo lost' > /opt/vir.sh; "
         "chmod +x /opt/vir.sh; cp /opt/vir.sh /opt/orbalt/harnwick/pir.sh; "
         "exec " HK_EMULATOR " " HK_STRESS_PATH " -K"});
    EXPECT_TRUE(run.wait_for_log("1 z"));
    EXPECT_EQ(key_lines(run),
              (Lines{"<clear>1 ESC", "<clear>1 ESC", "<clear>1 ESC", "<clear>1 YES", "<clear>1 ESC",
                     "<clear>1 ESC", "<clear>1 ESC", "<clear>1 S", "<clear>1 ESC", "<clear>3 ESC",
                     "<clear>4 0x73 0x78 0x79 0x7a ", "reboot requested",
                     "<clear><clear><8;1f>Restarting Harnwick3 ESC", "reboot requested",
                     "<clear><clear><8;1f>Restarting Harnwick1 ESC", "<clear>1 z"}));
    EXPECT_EQ(run.errors, "proc 1 bogus 0\nnumproc 1 indx 1\n"
                          "./vir.sh restart in /opt\n./pir.sh halt in /opt\n"
                          "./vir.sh restart in /opt\n./pir.sh halt in /opt\n");
    EXPECT_NE(access("/opt/pir.sh", F_OK), 0) << "of the machine, not of the board";
}

TEST(FrontPanelOnBoard, sets_its_port_to_raw_mode_and_38400_bits_per_second) {
    board_run run = board_run::program(
        {"--keys", ""}, {"/bin/sh", "-c",
                         "stty -F /dev/sp6 1200 cooked echo crtscts -clocal; " HK_EMULATOR
                         " " HK_STRESS_PATH " -d1 -K & "
                         "until stty -F /dev/sp6 speed | grep -q 38400; do sleep 0.05; done; "
                         "stty -F /dev/sp6 -a; kill -TERM $!; wait"});
    EXPECT_EQ(run.finish(), 0);
    for (const char *setting : {"-icanon", "-echo ", "-isig", "-opost", "-crtscts", "cread clocal"})
        EXPECT_NE(run.output.find(setting), std::string::npos) << run.output;
}

} // namespace
