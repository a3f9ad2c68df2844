#pragma once

#include <span>

#include "supervisor/lists/line_row.h"

// Writes the record's line in the format of its letter's row, with a closing zero. Returns its
// length, 0 for a letter without a row or with an empty one. `line` has room for the longest line.
int format_line(std::span<const line_row> rows, const TestRecord &record, std::span<char> line);
