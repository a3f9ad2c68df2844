// The plan of the serial receivers (-C) and producers (-P): which port may start one, and the kind
// code that its record carries.
//
// Ports 1 and 2 are the two ends of one link, ports 3 and 5 of another. A receiver and the producer
// at the other end of its link carry the same kind code. The link of port 5 is the synchronous one:
// it has one owner (`sync_owner`), and while it is taken nothing more starts on ports 3 and 5.

#pragma once

#include <cstdint>

#include "serial/patterns.h"

// False when the port is one of the synchronous link and that is taken. `port` is the argument of
// the option: the port's name, whose leading digits are its number.
bool sync_port_permits(const char *port);

// Each starts its test with (no_fork, text, pattern) where the port permits it, makes the new
// record the owner of the synchronous link if the port is 5 and fork succeeded, and returns the
// kind code written. The caller has made sure that there is a record to claim. Where nothing
// starts:
// - the receiver writes nothing and returns -1;
// - the producer still writes its code 0 for port 5 into the record claimed last; for port 3 it
//   leaves that record's code as it is and returns it.
int32_t consume_dispatch(const char *mode_text, int no_fork, PatternSource pattern);
int32_t produce_dispatch(const char *mode_text, int no_fork, PatternSource pattern);
