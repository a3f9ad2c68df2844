// hk_ctl: shows the runs of hk_stress on this machine, releases and holds their tests, stops runs
// and removes what they leave. It keeps no file and starts no process.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>

#include "ctl/commands/commands.h"
#include "ctl/selection.h"
#include "ctl/text.h"

namespace {

constexpr int MORE = 1000; // any number of words

struct command {
    const char *name;
    int (*carry_out)(const command_options &options, command_words words);
    int words_least;
    int words_most;
    const char *options; // letters of the options that it takes
    const char *usage;
    const char *help;
};

// clang-format off
constexpr command COMMANDS[] = {
    {"runs", list_runs, 0, 0, "", "", "the runs on this machine, a line each"},
    {"show", show_run, 0, 1, "j", "[RUN] [--json]", "every record of a run, its counters in words"},
    {"watch", watch_run, 0, 1, "en", "[RUN] [--every S] [--times N]", "a run as it goes on; q quits"},
    {"release", release_tests, 0, MORE, "f", "[RUN] TEST... | --follow", "let held tests run"},
    {"hold", hold_tests, 1, MORE, "", "[RUN] TEST...", "let tests idle"},
    {"log", ask_for_list, 0, 1, "", "[RUN]", "request a results list now"},
    {"stop", stop_run, 0, 1, "tc", "[RUN] [--timeout S] [--clean]", "end a run, by force if needed"},
    {"clean", clean_up, 0, MORE, "d", "[--dry-run] [FOLDER...]", "remove what ended runs left"},
    {"meanings", show_meanings, 0, 0, "", "", "what the counters of the tests count"},
};
// clang-format on

constexpr option LONG_OPTIONS[] = {
    {"json", no_argument, nullptr, 'j'},
    {"every", required_argument, nullptr, 'e'},
    {"times", required_argument, nullptr, 'n'},
    {"follow", no_argument, nullptr, 'f'},
    {"timeout", required_argument, nullptr, 't'},
    {"clean", no_argument, nullptr, 'c'},
    {"dry-run", no_argument, nullptr, 'd'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

constexpr double LONGEST_S = 86400;

void print_help() {
    printf("usage: hk_ctl COMMAND ...\n\n");
    for (const command &each : COMMANDS)
        printf("  %-9s%-32s%s\n", each.name, each.usage, each.help);
    printf("\nRUN is the process number of its supervisor or the number of its segment, as in @12;"
           "\nomit it if there is only one. TEST is the number of a record, the option or"
           "\nthe name of a test, as in D or dram, or all.\n"
           "\nExit status: 0 done; 1 something in the run is wrong: errors counted, a test that"
           "\nhas ended or did not obey, or something that could not be signalled or removed;"
           "\n2 wrong use, or no such run or test; 3 nothing to judge or to stop.\n");
}

bool take_time(const char *name, int64_t &time_ms) {
    char *end = nullptr;
    const double seconds = strtod(optarg, &end);
    if (end != optarg && *end == '\0' && seconds >= 0.01 && seconds <= LONGEST_S) {
        time_ms = static_cast<int64_t>(seconds * 1000);
        return true;
    }
    complain("%s %s: seconds are 0.01 to %.0f", name, optarg, LONGEST_S);
    return false;
}

bool take_times(int64_t &times) {
    if (read_number(optarg, 1, INT32_MAX, times))
        return true;
    complain("--times %s: a number of 1 or more is needed", optarg);
    return false;
}

bool take_option(int letter, command_options &options) {
    switch (letter) {
    case 'j':
        return options.json = true;
    case 'f':
        return options.follow = true;
    case 'c':
        return options.clean = true;
    case 'd':
        return options.dry_run = true;
    case 'e':
        return take_time("--every", options.every_ms);
    case 't':
        return take_time("--timeout", options.timeout_ms);
    case 'n':
        return take_times(options.times);
    default:
        return false; // getopt has reported why
    }
}

bool accepts(const command &chosen, int letter) {
    if (letter == '?' || strchr(chosen.options, letter) != nullptr)
        return true;
    complain("%s takes no such option; hk_ctl --help shows them", chosen.name);
    return false;
}

const command *find_command(const char *name) {
    for (const command &each : COMMANDS)
        if (strcmp(each.name, name) == 0)
            return &each;
    complain("%s: no such command; hk_ctl --help lists them", name);
    return nullptr;
}

int carry_out(const command &chosen, int argc, char **argv) {
    command_options options;
    for (int letter; (letter = getopt_long(argc, argv, "", LONG_OPTIONS, nullptr)) != -1;) {
        if (letter == 'h') {
            print_help();
            return DONE;
        }
        if (!accepts(chosen, letter) || !take_option(letter, options))
            return WRONG_USE;
    }
    const auto words =
        command_words(argv, static_cast<size_t>(argc)).subspan(static_cast<size_t>(optind));
    const auto count = static_cast<int>(words.size());
    if (count >= chosen.words_least && count <= chosen.words_most)
        return chosen.carry_out(options, words);
    complain("usage: hk_ctl %s %s", chosen.name, chosen.usage);
    return WRONG_USE;
}

} // namespace

int main(int argc, char **argv) {
    if (argc > 1 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "help") == 0)) {
        print_help();
        return DONE;
    }
    if (argc < 2) {
        complain("a command is missing; hk_ctl --help lists them");
        return WRONG_USE;
    }
    const command *chosen = find_command(argv[1]);
    if (chosen == nullptr)
        return WRONG_USE;
    argv[1] = argv[0]; // getopt names the program in its messages
    const int status = carry_out(*chosen, argc - 1, argv + 1);
    return fflush(stdout) == 0 ? status : SOMETHING_WRONG;
}
