#pragma once

#include "results/output/report.h"
#include "results/output/series.h"

// One page of HTML with everything in it: it opens from disk, without network, and prints on one
// sheet for a board of a few records. Runs have a plot for each record, from `points`.
std::unique_ptr<report> page_report(std::ostream &out, const series_keeper &points);
