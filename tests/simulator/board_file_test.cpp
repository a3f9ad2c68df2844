// Descriptions of boards in files: the ready ones, and what is said about wrong ones.
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/board_run.h"

namespace {

board_run listing(const std::string &file, std::vector<std::string> options = {}) {
    options.insert(options.begin(), {"--board", file});
    return board_run::program(std::move(options), {"/bin/sh", "-c", "cd /dev; echo sp* [der]e*"});
}

TEST(BoardFile, gives_the_board_what_it_describes_beside_the_options) {
    const struct {
        const char *file;
        const char *nodes;
    } cases[] = {
        {"bench", "sp2 sp3 sp5s sp8 [der]e*\n"},
        {"production_rack", "sp1 sp2 sp2s sp3 sp4 sp5s sp6 sp8 sp8s eeprom\n"},
        {"full_table", "sp1 sp1s sp2 sp2s sp3 sp3s sp4 sp4s sp5 sp5s sp6 sp6s sp7 sp7s sp8 sp8s "
                       "eeprom reserved\n"},
    };
    for (const auto &[file, nodes] : cases) {
        board_run run = listing(BOARDS_PATH "/" + std::string(file) + ".toml", {"--port", "3"});
        EXPECT_EQ(run.finish(), 0);
        EXPECT_EQ(run.output, nodes);
    }
}

TEST(BoardFile, is_refused_with_file_line_and_what_is_valid) {
    const struct {
        const char *text;
        const char *says;
    } cases[] = {
        {"cable = \"2-8\"\ncabel = \"2-8\"", ":2: cabel: unknown key; keys are: cable loop"},
        {"cable = [\"2-8\",\n\"2-9\"]", ":2: --cable 2-9: port 9: ports are 1 to 8"},
        {"\npanel = \"yes\"", ":2: panel: the value is true or false"},
        {"cable = {a = 1}", ":1: cable: the value is a text PORT-PORT"},
        {"port = [3, \"5s\"]\nfault = \"cut:4\"", ":2: --fault cut:4: this board has no port 4"},
        {"board = \"other\"", ":1: board: unknown key"},
        {"clock-costs = [\"open=9\",\n\"close=9\"]",
         ":2: --clock-costs close=9: close=9: a cost is "
         "open=, mmap= or sync= and 0 to 1000000"},
        {"loop =\n", ":1: "},
        {"for = 1\nlog = \"/nonexistent/file\"", ":2: cannot write /nonexistent/file"},
    };
    std::string path = "/tmp/hk_board_file_XXXXXX";
    close(mkstemp(path.data()));
    for (const auto &[text, says] : cases) {
        std::ofstream(path) << text;
        board_run run = listing(path);
        EXPECT_EQ(run.finish(), 2) << text;
        EXPECT_NE(run.errors.find(path + says), std::string::npos) << run.errors;
    }
    unlink(path.c_str());
    board_run missing = listing(path);
    EXPECT_EQ(missing.finish(), 2);
    EXPECT_NE(missing.errors.find("cannot be read"), std::string::npos);
}

} // namespace
