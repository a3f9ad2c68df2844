#include "simulator/options/command_line.h"

#include "simulator/base/message.h"
#include "simulator/options/board_file.h"

#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <unistd.h>

namespace simulator {

namespace {

constexpr const char *USAGE = "usage: hk_board [options] [-- program [arguments]]\n";

constexpr const char *KEYS_HELP = R"(
A script of keys is groups separated by blanks. Each group is sent at once, as a key sends its
bytes: letters as they are, \e byte 27, \r carriage return, \n line feed, \s blank, \\ backslash,
\xHH any byte. The panel's keys ESC NEXT YES NO AxON AxOFF are s p q r t u; its arrows are \e[A
to \e[D. @SECONDS sends nothing and waits longer. The script begins with the first text on the
display, or after 10 s. Each group is sent 0.2 s after the previous one, and after the program
has read that one.
)";

constexpr const char *EXIT_STATUSES = R"(
The exit status is the program's (128 + n if signal n ended it); with --replay 0 or, if the
log differs, 1; 2 for a wrong command line; 123 for a sleep or timer that the board's own time
does not know, with --strict; 124 if the program did not end within 5 s of SIGTERM, or
computed for 10 s in the board's own time; 125 if the board cannot be set up; 126 if the
program cannot be executed; 127 if it is not found. Signals USR1, USR2, ALRM, QUIT and TSTP
are passed on to the program; TERM, INT and HUP end the run as --for does. The board has its
own, empty /opt, /run and /r0.
)";

// The shell of a command line without a program.
char *const *operator_shell() {
    static char default_shell[] = "/bin/sh";
    char *wanted = getenv("SHELL");
    static char *shell[] = {wanted != nullptr && access(wanted, X_OK) == 0 ? wanted : default_shell,
                            nullptr};
    return shell;
}

std::vector<option> long_options() {
    std::vector<option> options;
    for (const option_row &row : option_table()) {
        const int argument = row.argument != nullptr ? required_argument : no_argument;
        options.push_back({row.name, argument, nullptr, 0});
    }
    options.push_back({}); // the end of the list, see getopt_long(3)
    return options;
}

bool take_option(command_line &given, const option_row &row, const char *text) {
    if (std::holds_alternative<help_option>(row.carry_out))
        given.help = true;
    else if (std::holds_alternative<enter_option>(row.carry_out))
        given.enter = text;
    else if (std::holds_alternative<replay_option>(row.carry_out))
        given.replay = text;
#ifdef HK_BOARD_FILES
    else if (std::holds_alternative<board_file_option>(row.carry_out))
        return read_board_file(text, given.options);
#endif
    else
        given.options.push_back({&row, text != nullptr ? text : "", ""});
    return true;
}

void refuse_option(const char *text) {
    report("%s: unknown option, or its argument is missing; options are:", text);
    for (const option_row &row : option_table()) {
        dprintf(STDERR_FILENO, "%s--%s%s%s", &row == &option_table()[0] ? "" : " ", row.name,
                row.argument != nullptr ? " " : "", row.argument != nullptr ? row.argument : "");
    }
    dprintf(STDERR_FILENO, "\n%s", USAGE);
}

} // namespace

bool read_command_line(int argc, char *const *argv, command_line &given) {
    const std::vector<option> options = long_options();
    given.program = operator_shell();
    opterr = 0;
    int index = 0;
    int found = 0;
    while ((found = getopt_long(argc, argv, "+", options.data(), &index)) == 0)
        if (!take_option(given, option_table()[static_cast<size_t>(index)], optarg))
            return false;
    if (found != -1) {
        refuse_option(argv[optind - 1]);
        return false;
    }
    if (!given.enter.empty() && !(given.options.empty() && given.replay.empty()))
        return complain("--enter %s: the board is already running; --enter takes no other option",
                        given.enter.c_str());
    if (!given.replay.empty() && (!given.options.empty() || argv[optind] != nullptr))
        return complain("--replay %s: the log has the options and the program of its run; --replay "
                        "takes no other option and no program",
                        given.replay.c_str());
    if (argv[optind] != nullptr)
        given.program = argv + optind;
    return true;
}

void print_help() {
    dprintf(STDOUT_FILENO,
            "%s\nRuns a program on a simulated board: private namespaces with serial ports, modem "
            "lines,\nLED, system log and network. Options may be repeated.\n\n",
            USAGE);
    for (const option_row &row : option_table())
        dprintf(STDOUT_FILENO, "  %-24s %s\n", row.example, row.meaning);
    dprintf(STDOUT_FILENO, "\nFaults (N is 1 or more):\n");
    print_fault_kinds(STDOUT_FILENO);
    dprintf(STDOUT_FILENO,
            "A feed counts as a PORT, but not for hangup, stall, cts and dcd: feed1 is the "
            "feed into port 1.\n");
    dprintf(STDOUT_FILENO, "%s", KEYS_HELP);
    dprintf(STDOUT_FILENO, "%s", EXIT_STATUSES);
}

} // namespace simulator
