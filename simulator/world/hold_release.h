// Releases held tests: hk_stress starts some of its tests held. What they do shows on the board
// when hk_ctl releases them, as an operator of the real board does.
#pragma once

#include <string>

namespace simulator {

// Starts hk_ctl, which releases tests as they start until the board ends. It is the one beside
// hk_board itself, or else the one in PATH. False after a message when there is none.
bool start_releasing(const std::string &own_program);

} // namespace simulator
