// Draws a run for a terminal of any size, as lines of plain ANSI text.

#pragma once

#include <string>
#include <vector>

#include "ctl/watch/history.h"

struct screen_size {
    size_t columns = 80;
    size_t rows = 24;
};

struct picture {
    const stress_run &run;
    const history &past;
    size_t selected = 1; // record
    std::string note;    // result of the last key
    bool utf8 = false;
};

// Returns no more lines than the screen has rows, none longer than its columns.
std::vector<std::string> draw(const picture &what, screen_size size);

// One line for each record, for a file or a pipe.
std::string plain_lines(const stress_run &run, const history &past);
