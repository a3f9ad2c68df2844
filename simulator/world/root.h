// The board's file system, which only the board sees: the host's, except for the directories below.
// Everything is in memory or mounted from the host inside the board's mount namespace; the board
// creates nothing on the host's own file system.
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

// The mount point of the host's root while the board's root is built.
constexpr const char *HOST_ROOT = "/.host";

// Makes the board's root the root of the calling process. `stand_in` is the machine's path of the
// program that replaces the restart commands. False after a message.
bool build_root(const std::string &stand_in);

// Makes /sys and the kernel's settings below /proc read-only: they act on the machine itself, and
// root needs no further right for some of them, such as suspending it. The program cannot take this
// back: it cannot mount. Call it last: the board itself sets limits there. False after a message.
bool protect_machine();

// Builds the board's /dev. False after a message.
bool build_dev();

// Shows the file, device or directory `source` at the path `target`. Creates `target` as an empty
// file if it does not exist. False after a message.
bool publish_node(const char *source, const char *target);

} // namespace simulator
