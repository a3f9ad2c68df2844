// Names of running boards. A name is an abstract socket address, see unix(7). It belongs to one
// user and leads only to the board. When the last process of the board ends, in any way, the name
// is free again and nothing is left over.
#pragma once

#include "simulator/base/unique_fd.h"

#include <string>
#include <string_view>

namespace simulator {

constexpr size_t NAME_LENGTH_MAX = 32;

// 1 to NAME_LENGTH_MAX letters, digits, points, hyphens or underscores.
bool is_board_name(std::string_view name);

// The socket to which visitors of a board of that name connect. Call it outside the namespaces.
// None after a message if the name is taken.
unique_fd claim_name(const std::string &name);

// A connection to the user's board of that name. None after a message if there is no such board.
unique_fd connect_to_board(const std::string &name);

// True if the other side of a connection is the same user, in this process's view of users.
bool is_same_user(int connection);

} // namespace simulator
