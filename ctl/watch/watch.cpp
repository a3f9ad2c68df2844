// hk_ctl watch: shows a run again and again while it goes on.

#include <algorithm>
#include <cstdio>
#include <unistd.h>

#include "ctl/commands/commands.h"
#include "ctl/commands/show.h"
#include "ctl/selection.h"
#include "ctl/text.h"
#include "ctl/watch/frame.h"
#include "ctl/watch/terminal.h"
#include "runtime/clock.h"

namespace {

struct watched {
    stress_run run;
    history past = {};
    size_t selected = 1;
    std::string note = {};
    int64_t looks = 0;
};

// False at the end: the run is over, or --times updates were shown.
bool goes_on(const watched &state, const command_options &options) {
    return !state.run.is_over() && (options.times == 0 || state.looks < options.times);
}

void look(watched &state) {
    if (state.looks > 0) {
        auto now = look_again(state.run);
        if (now)
            state.run = std::move(*now);
        else
            state.run.supervisor_is = supervisor_state::GONE;
        if (!now)
            state.run.test_processes.clear();
    }
    state.past.add(state.run, now_ms());
    ++state.looks;
}

void print_looks(watched &state, const command_options &options) {
    for (look(state);; look(state)) {
        printf("%s", plain_lines(state.run, state.past).c_str());
        (void)fflush(stdout); // for a reader of a pipe
        if (!goes_on(state, options))
            return;
        for (int64_t left_ms = options.every_ms; left_ms > 0; left_ms -= 1000)
            sleep_us(static_cast<int32_t>(std::min<int64_t>(left_ms, 1000) * 1000));
    }
}

// The test sees the word in its next turn; the picture then shows its new state.
void write_hold(watched &state, int32_t value) {
    if (state.selected >= state.run.records_used)
        return;
    const test_group &test = state.run.test_of(state.selected);
    hold_words words(state.run.memory, state.run.copy.swapped);
    if (!words.is_attached()) {
        state.note = "no right to write the table";
        return;
    }
    if (value == HOLD_REQUESTED && words.get(test.hold) == HOLD_NONE)
        words.set(test.hold, value);
    for (size_t i = test.first; value == HOLD_NONE && i < test.first + test.records; ++i)
        words.set(i, value);
    state.note = text_of("%s %zu", value == HOLD_NONE ? "released" : "hold asked of", test.hold);
}

// False if the key quits.
bool obey(watched &state, key pressed) {
    switch (pressed) {
    case key::UP:
        state.note.clear();
        state.selected = std::max<size_t>(state.selected, 2) - 1;
        break;
    case key::DOWN:
        state.note.clear();
        state.selected =
            std::min(state.selected + 1, std::max<size_t>(state.run.records_used, 2) - 1);
        break;
    case key::HOLD:
        write_hold(state, HOLD_REQUESTED);
        break;
    case key::RELEASE:
        write_hold(state, HOLD_NONE);
        break;
    case key::LEAVE:
        return false;
    case key::NONE:
        break;
    }
    return true;
}

// Shows the picture and takes keys until the next update. False to quit.
bool take_keys(watched &state, const terminal &screen, int64_t until_ms) {
    const bool utf8 = takes_utf8();
    for (int64_t left_ms = until_ms - now_ms();; left_ms = until_ms - now_ms()) {
        screen.show(draw({state.run, state.past, state.selected, state.note, utf8}, screen.size()));
        if (left_ms <= 0)
            return true;
        if (!obey(state, screen.wait_for_key(left_ms)))
            return false;
    }
}

void show_looks(watched &state, const command_options &options) {
    const terminal screen;
    do
        look(state);
    while (take_keys(state, screen, now_ms() + options.every_ms) && goes_on(state, options));
}

} // namespace

int watch_run(const command_options &options, command_words words) {
    int status = DONE;
    auto run = choose_run(words, true, status);
    if (!run)
        return status;
    watched state = {std::move(*run)};
    if (isatty(STDOUT_FILENO) == 1)
        show_looks(state, options);
    else
        print_looks(state, options);
    if (state.run.is_over())
        printf("run @%d is over\n", static_cast<int>(state.run.supervisor_id()));
    return status_of(state.run);
}
