// Field I/O modules and SPI devices of the board, as its options ask for them.
#pragma once

#include "simulator/board.h"
#include "simulator/devices/fio/field_io_options.h"

namespace simulator {

// Adds what has nodes of its own: SPI devices and memories.
void add_spi(const field_io_options &options, board &built);

} // namespace simulator
