// The commands of hk_ctl. Each takes the words after its options and returns the exit status.

#pragma once

#include <cstdint>
#include <span>

struct command_options {
    bool json = false;
    bool clean = false;
    bool dry_run = false;
    bool follow = false;
    int64_t every_ms = 1000;
    int64_t timeout_ms = 5000;
    int64_t times = 0; // updates of watch, 0: no limit
};

using command_words = std::span<char *const>;

int list_runs(const command_options &options, command_words words);
int show_run(const command_options &options, command_words words);
int show_meanings(const command_options &options, command_words words);
int watch_run(const command_options &options, command_words words);
int hold_tests(const command_options &options, command_words words);
int release_tests(const command_options &options, command_words words);
int ask_for_list(const command_options &options, command_words words);
int stop_run(const command_options &options, command_words words);
int clean_up(const command_options &options, command_words words);
