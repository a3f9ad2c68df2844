// The plan of the serial receivers (-C) and producers (-P): which ports may start a test, and the
// kind code of its record.
//
// Ports 1 and 2 are the two ends of one link, ports 3 and 5 of another. A receiver and the producer
// at the other end of its link have the same kind code. The link of port 5 is synchronous: it has
// one owner (`sync_owner`), and while it has one, no other test starts on ports 3 and 5.

#pragma once

#include <cstdint>

#include "serial/patterns.h"

// Returns false if the port is on the synchronous link and the link has an owner. `port` is the
// argument of the option: the port's name; its leading digits are the number.
bool sync_port_permits(const char *port);

// Each starts its test with (no_fork, text, pattern) if the port permits it, makes the new record
// the owner of the synchronous link if the port is 5, and returns the kind code that it wrote. The
// caller checks that a record is free. If no test starts:
// - the receiver writes nothing and returns -1;
// - the producer still writes its code 0 for port 5 into the record claimed last; for port 3 it
//   returns that record's code and does not change it.
int32_t consume_dispatch(const char *mode_text, int no_fork, PatternSource pattern);
int32_t produce_dispatch(const char *mode_text, int no_fork, PatternSource pattern);
