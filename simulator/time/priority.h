// The board's priority on a busy machine.
#pragma once

namespace simulator {

// The board goes before all ordinary processes from now on; its children do not. Without the right
// to do so the board stays as it is.
void raise_priority();

} // namespace simulator
