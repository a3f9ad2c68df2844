#include "simulator/options.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <iterator>
#include <unistd.h>

namespace simulator {

namespace {

bool is_port(const std::string &name) {
    return !name.empty() && name[0] >= '1' && name[0] <= '8' &&
           (name.size() == 1 || (name.size() == 2 && name[1] == 's'));
}

bool check_port(const std::string &name) {
    if (!is_port(name)) {
        dprintf(STDERR_FILENO,
                "hk_board: no such port: \"%s\"; the ports are 1 to 8 (asynchronous, /dev/sp1 to "
                "/dev/sp8) and 1s to 8s (synchronous, /dev/sp1s to /dev/sp8s)\n",
                name.c_str());
        return false;
    }
    return true;
}

bool take_cable(board_options &options, const char *text) {
    const std::string cable = text;
    const size_t dash = cable.find('-');
    if (dash == std::string::npos) {
        dprintf(STDERR_FILENO, "hk_board: a cable has two ports, as in --cable 2-8, not \"%s\"\n",
                text);
        return false;
    }
    const std::string one = cable.substr(0, dash);
    const std::string other = cable.substr(dash + 1);
    if (!check_port(one) || !check_port(other))
        return false;
    if (one == other || one.size() != other.size()) {
        dprintf(
            STDERR_FILENO,
            "hk_board: --cable %s: a cable joins two different ports of one kind (--loop plugs a "
            "port into itself)\n",
            text);
        return false;
    }
    options.cables.emplace_back(one, other);
    return true;
}

bool take_loop(board_options &options, const char *text) {
    options.loops.emplace_back(text);
    return check_port(text);
}

bool take_port(board_options &options, const char *text) {
    options.ports.emplace_back(text);
    return check_port(text);
}

bool take_fio(board_options &options, const char *text) {
    return take_modules(options.field_io, text);
}

bool take_spi(board_options &options, const char *text) {
    return take_spi(options.field_io, text);
}

bool take_datakey(board_options &options, const char *text) {
    return take_datakey(options.field_io, text);
}

bool take_eeprom(board_options &options, const char *text) {
    return take_eeprom(options.field_io, text);
}

bool take_feed(board_options &options, const char *text) {
    const std::string feed = text;
    const size_t colon = feed.find(':');
    if (colon == std::string::npos) {
        dprintf(STDERR_FILENO,
                "hk_board: a feed has a port and a file, as in --feed 1:FILE, not "
                "\"%s\"\n",
                text);
        return false;
    }
    options.feeds.emplace_back(feed.substr(0, colon), feed.substr(colon + 1));
    return check_port(options.feeds.back().first);
}

bool take_fault(board_options &options, const char *text) {
    options.faults.emplace_back();
    return parse_fault(text, options.faults.back());
}

bool take_panel(board_options &options, const char *) {
    return options.has_panel = options.panel = true;
}

bool take_keys(board_options &options, const char *text) {
    options.has_panel = true;
    return parse_keys(text, options.keys);
}

bool take_mac(board_options &options, const char *text) {
    std::array<unsigned, 6> bytes{};
    int length = 0;
    const int found = sscanf(text, "%2x:%2x:%2x:%2x:%2x:%2x%n", &bytes[0], &bytes[1], &bytes[2],
                             &bytes[3], &bytes[4], &bytes[5], &length);
    // The lowest bit of the first byte marks an address of many stations, not of one.
    if (found != 6 || text[length] != '\0' || (bytes[0] & 1) != 0) {
        dprintf(STDERR_FILENO,
                "hk_board: no hardware address of a station: \"%s\"; one is 02:00:00:00:12:34\n",
                text);
        return false;
    }
    for (size_t i = 0; i < bytes.size(); i++)
        options.mac[i] = static_cast<uint8_t>(bytes[i]);
    return true;
}

bool take_for(board_options &options, const char *text) {
    char *end = nullptr;
    const double seconds = strtod(text, &end);
    if (end == text || *end != '\0' || !(seconds > 0) || seconds > 1e9) {
        dprintf(STDERR_FILENO,
                "hk_board: --for takes seconds above 0, as in --for 60 or --for 2.5\n");
        return false;
    }
    options.run_us = static_cast<int64_t>(seconds * 1e6);
    return true;
}

bool take_log(board_options &options, const char *text) {
    options.log_path = text;
    return true;
}

bool take_forward(board_options &options, const char *text) {
    options.forward_path = text;
    return true;
}

bool take_quiet(board_options &options, const char *) {
    return options.quiet = true;
}

bool take_show_led(board_options &options, const char *) {
    return options.show_led = true;
}

bool take_release(board_options &options, const char *) {
    return options.release = true;
}

bool take_help(board_options &options, const char *) {
    return options.help = true;
}

struct option_row {
    const char *name;
    const char *argument; // null: none
    const char *example;
    const char *meaning;
    bool (*take)(board_options &options, const char *text);
};

constexpr option_row OPTIONS[] = {
    {"cable", "PORT-PORT", "--cable 2-8",
     "join two ports by a crossed cable (2s-8s: synchronous ones)", take_cable},
    {"loop", "PORT", "--loop 5s", "plug a port into itself", take_loop},
    {"port", "PORT", "--port 3", "have a port with nothing plugged in", take_port},
    {"fio", "ADDRESS=TYPE,...", "--fio 20=221,16=2",
     "put field I/O modules with loopback harnesses on port 5s", take_fio},
    {"spi", "[reserved=]TYPE|loop", "--spi 219",
     "put a field I/O module, or a loopback, behind /dev/manufacturer (or /dev/reserved)",
     take_spi},
    {"datakey", "present|absent", "--datakey present", "have a holder for the datakey",
     take_datakey},
    {"eeprom", "good|short|missing", "--eeprom good", "have an eeprom", take_eeprom},
    {"feed", "PORT:FILE", "--feed 1:data",
     "send the bytes of a file into a port, over and over: 16 every 10 ms", take_feed},
    {"fault", "FAULT", "--fault flip:2:10", "break something, see the list below", take_fault},
    {"panel", nullptr, "--panel", "make this terminal the front panel on port 6; Ctrl-C ends",
     take_panel},
    {"keys", "SCRIPT", "--keys 's \\e[A @2.5 \\r'",
     "press keys of the front panel, see the script below", take_keys},
    {"release", nullptr, "--release", "let held tests run", take_release},
    {"mac", "ADDRESS", "--mac 02:00:00:00:12:34", "hardware address of the network interface",
     take_mac},
    {"for", "SECONDS", "--for 60", "send SIGTERM to the program after that time", take_for},
    {"log", "FILE", "--log run.log", "keep the system log in FILE as well", take_log},
    {"forward", "SOCKET", "--forward /dev/log", "pass the log on to that datagram socket",
     take_forward},
    {"quiet", nullptr, "--quiet", "do not show the system log", take_quiet},
    {"show-led", nullptr, "--show-led", "show each change of the heartbeat LED", take_show_led},
    {"help", nullptr, "--help", "show this text", take_help},
};

constexpr const char *USAGE = "usage: hk_board [options] -- program [arguments]\n";

constexpr const char *KEYS_HELP =
    "\nA script of keys is groups separated by blanks. Each group is sent at once, as a key sends "
    "its\nbytes: letters as they are, \\e ESC, \\r carriage return, \\n line feed, \\s blank, \\\\ "
    "backslash,\n\\xHH any byte. @SECONDS sends nothing and waits longer. The script begins with "
    "the first text\non the display, at the latest after 10 s; a group is sent 0.2 s after the one "
    "before, and not\nbefore the program has read that one.\n";

void refuse_option(const char *text) {
    dprintf(STDERR_FILENO, "hk_board: unknown option or missing argument: %s\nOptions:", text);
    for (const option_row &row : OPTIONS) {
        dprintf(STDERR_FILENO, " --%s%s%s", row.name, row.argument != nullptr ? " " : "",
                row.argument != nullptr ? row.argument : "");
    }
    dprintf(STDERR_FILENO, "\n%s", USAGE);
}

} // namespace

bool parse_options(int argc, char *const *argv, board_options &options) {
    std::array<option, std::size(OPTIONS) + 1> long_options{};
    for (size_t i = 0; i < std::size(OPTIONS); i++) {
        const int argument = OPTIONS[i].argument != nullptr ? required_argument : no_argument;
        long_options[i] = {OPTIONS[i].name, argument, nullptr, 0};
    }
    opterr = 0;
    int index = 0;
    int found = 0;
    while ((found = getopt_long(argc, argv, "+", long_options.data(), &index)) == 0)
        if (!OPTIONS[index].take(options, optarg))
            return false;
    if (found != -1) {
        refuse_option(argv[optind - 1]);
        return false;
    }
    options.program = argv + optind;
    if (*options.program == nullptr && !options.help) {
        dprintf(STDERR_FILENO, "hk_board: no program to run\n%sTry hk_board --help.\n", USAGE);
        return false;
    }
    return true;
}

void print_help() {
    dprintf(STDOUT_FILENO,
            "%s\nRuns a program on a simulated board: private namespaces with serial ports, modem "
            "lines,\nLED, system log and network of their own. Options may be repeated.\n\n",
            USAGE);
    for (const option_row &row : OPTIONS)
        dprintf(STDOUT_FILENO, "  %-24s %s\n", row.example, row.meaning);
    dprintf(STDOUT_FILENO, "\nFaults (N is 1 or more):\n");
    print_fault_kinds(STDOUT_FILENO);
    dprintf(STDOUT_FILENO, "A feed is a PORT of that name: feed1 for the one into port 1.\n");
    dprintf(STDOUT_FILENO, "%s", KEYS_HELP);
    dprintf(
        STDOUT_FILENO,
        "\nThe exit status is the program's (128 + n when signal n ended it); 124 when it did not "
        "end\nwithin 5 s of SIGTERM; 125 when the board cannot be set up; 2 for a wrong command "
        "line.\nSignals USR1, USR2, ALRM, QUIT, TERM and TSTP are passed on to the program; INT "
        "and HUP\nend the run as --for does. /opt, /run and /r0 on the board are its own and "
        "empty.\n");
}

} // namespace simulator
