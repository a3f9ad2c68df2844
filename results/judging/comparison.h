// The records of a run against those that --expect names.

#pragma once

#include <vector>

#include "results/judging/expectation.h"
#include "results/judging/verdict.h"

// The records keep their order; what is missing comes where it was expected, and what was not
// expected is at best UNEXPECTED. `is_report`: the run is known from its status report alone.
void compare_with_expected(std::vector<record_verdict> &records,
                           const std::vector<expected_record> &expected, bool is_report);
