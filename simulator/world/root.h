// The board's file system, seen only by the board: the host's, with the places replaced that make a
// board or that lead back to the host. Everything lives in memory or is mounted from the host
// inside the board's mount namespace; nothing is created on the host's own file system.
//
//   /dev   only what a board has, see root_dev.cpp
//   /proc  of the board's own process namespace; the kernel's settings in it cannot be written
//   /sys   the host's, which cannot be written
//   /run   empty: no way to the host's service manager
//   /opt   empty, the board's software would be here
//   /r0    empty, the battery-backed store
//   /sbin  the host's commands, with a harmless stand-in for those that restart a machine
#pragma once

#include <string>

namespace simulator {

// Where the host's root is seen while the board's is being built.
constexpr const char *HOST_ROOT = "/.host";

// Makes the board's root the root of the calling process. The program at the path `stand_in` of the
// machine serves as the commands that restart it. False after a message.
bool build_root(const std::string &stand_in);

// Makes /sys and the kernel's settings below /proc read-only: they act on the machine itself, and
// some, such as putting it to sleep, ask for no other right than root's. To be called last: the
// board itself sets limits there. False after a message.
bool protect_machine();

// The part of it below /dev.
bool build_dev();

// Shows the file, device or directory `source` at the path `target`, which is created as an empty
// file if it is not there. False after a message.
bool publish_node(const char *source, const char *target);

} // namespace simulator
