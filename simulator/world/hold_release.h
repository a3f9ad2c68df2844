// Releases held tests. hk_stress starts some of its tests held; hk_ctl releases them, as an
// operator of the real board does.
#pragma once

#include <string>

namespace simulator {

// Starts hk_ctl, which releases tests as they start until the board ends. Takes hk_ctl from
// hk_board's own directory, or else from PATH. False after a message if there is none.
bool start_releasing(const std::string &own_program);

} // namespace simulator
