#include "results/reading/report_reader.h"

#include "results/reading/rows/row_reader.h"

namespace {

// "sp1, pid", "sp5s,pid" with a port of up to 11 characters, or "    pid": see REPORT_ROWS.
bool begins_like_one(std::string_view line) {
    constexpr size_t PORT_MAX = 16;
    const std::string_view start = line.substr(0, PORT_MAX);
    return line.starts_with("    pid ") || line.starts_with("     pid ") ||
           (line.starts_with("sp") && (start.find(", pid") != std::string_view::npos ||
                                       start.find(",pid") != std::string_view::npos));
}

} // namespace

void report_reader::take_candidate(std::string_view line, bool is_whole) {
    while (line.ends_with('\r'))
        line.remove_suffix(1);
    if (line.empty())
        is_in_report = false;
    if (is_in_report && !is_whole)
        reports.back().is_cut = true;
    if (!begins_like_one(line))
        return;
    if (!is_in_report)
        reports.emplace_back();
    is_in_report = true;
    report_line read;
    if (read_report_line(line, read.record, read.bit_rate) && is_whole) {
        reports.back().lines.push_back(read);
        return;
    }
    reports.back().is_cut = true;
    ++unreadable_lines;
}
