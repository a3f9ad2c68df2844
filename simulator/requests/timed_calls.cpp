#include "simulator/requests/timed_calls.h"

#include <array>

namespace simulator {

namespace {

using rows_by_number = std::array<const timed_call *, TIMED_CALL_NUMBERS>;

rows_by_number make_rows() {
    rows_by_number rows{};
    for (const timed_call &row : TIMED_CALLS)
        rows[row.number] = &row;
    return rows;
}

} // namespace

const timed_call *find_timed_call(int number) {
    static const rows_by_number ROWS = make_rows();
    const auto index = static_cast<uint32_t>(number);
    return index < ROWS.size() ? ROWS[index] : nullptr;
}

} // namespace simulator
