// A shell script beside hk_stress on the simulated board, as an operator uses hk_ctl. A script
// waits for what hk_ctl shows, never for a time.

#pragma once

#include "tests/support/board_run.h"

inline constexpr char SCRIPT_START[] =
    "stress='" HK_EMULATOR " " HK_STRESS_PATH "'; ctl='" HK_EMULATOR " " HK_CTL_PATH "'\n"
    // Waits until a command shows a text: until_shown TEXT COMMAND...
    "until_shown() { text=$1; shift; until \"$@\" 2>/dev/null | grep -q \"$text\"; do sleep 0.05; "
    "done; }\n"
    "segments() { tail -n +2 /proc/sysvipc/shm | wc -l; }\n"
    "left() { cat /proc/[0-9]*/maps 2>/dev/null | grep -c SYSV; }\n";

inline board_run on_board(std::vector<std::string> options, const std::string &script) {
    return board_run::program(std::move(options), {"/bin/sh", "-c", SCRIPT_START + script});
}

inline bool shows(const board_run &run, const std::string &text) {
    return run.output.find(text) != std::string::npos;
}
