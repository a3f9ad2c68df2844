// Sends lists as many boards do, each over a RELP connection of its own.

#pragma once

#include <cstdint>
#include <netinet/in.h>

struct load {
    sockaddr_in address;
    int32_t boards;
    double period_s;   // between two lists of a board; 0: one after another
    double seconds;    // from "connected" on
    double error_at_s; // when board 1 has an error; 0: never
};

// Sends for as long as the load says and prints what the collector has received. Ends the process
// with a message if a connection is broken.
void send_load(const load &work);
