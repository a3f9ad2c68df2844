// Names of running boards. A name is an address in the machine's abstract socket namespace, see
// unix(7): it belongs to one user, leads nowhere but to the board, and is free again when the last
// process of the board has ended in any way, with nothing left behind.
#pragma once

#include "simulator/base/unique_fd.h"

#include <string>
#include <string_view>

namespace simulator {

constexpr size_t NAME_LENGTH_MAX = 32;

// 1 to NAME_LENGTH_MAX letters, digits, points, hyphens or underscores.
bool is_board_name(std::string_view name);

// The socket at which a board of that name is visited; to be asked for outside the namespaces. None
// after a message when the name is taken.
unique_fd claim_name(const std::string &name);

// A connection to the user's board of that name. None after a message when there is none.
unique_fd connect_to_board(const std::string &name);

// Whether the other side of a connection is the same user, as this process sees users.
bool is_same_user(int connection);

} // namespace simulator
