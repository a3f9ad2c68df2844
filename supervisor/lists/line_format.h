#pragma once

#include <span>

#include "supervisor/lists/line_row.h"

// Writes the record's line, as the row of its letter has it, with a closing zero. Returns its
// length; 0 for a letter that the rows do not have or that has no line. `line` has room for the
// longest line.
int format_line(std::span<const line_row> rows, const TestRecord &record, std::span<char> line);
