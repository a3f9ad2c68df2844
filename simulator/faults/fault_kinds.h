// The kinds of faults that a board can have, one row a kind. --help prints this table; the manual
// page explains each kind.
#pragma once

#include "simulator/base/text.h"

namespace simulator {

enum class fault_id {
    flip,
    drop,
    cut,
    pull,
    lines,
    hangup,
    lost_byte,
    inserted_byte,
    garble,
    framing,
    stall,
    stuck_cts,
    stuck_dcd,
    speed,
    stuck,
    dead,
    silent,
    late_reply,
    delay,
    lose_reply,
    corrupt_reply,
    stray_bytes,
    long_reply,
    short_reply,
    check,
    type,
    slow_memory,
    failing_memory,
    weak_bit,
    gone,
    readonly,
    full,
    size,
    limit,
};

constexpr number_range COUNT = {1, 1'000'000'000};
constexpr number_range BYTE_INDEX = {0, 31};
constexpr number_range MEMORY_INDEX = {0, 255};
constexpr number_range BIT_NUMBER = {1, 8};
constexpr number_range COMMAND = {1, 12};
constexpr number_range TYPE = {1, 255};
constexpr number_range LEVEL = {0, 1};
constexpr number_range PERCENT = {-50, 50};
constexpr number_range PROCESSES = {0, 100'000};
constexpr number_range MILLISECONDS = {1, 60'000};

struct fault_kind {
    fault_id id;
    const char *name;
    const char *form;  // as written on the command line
    size_t numbers;    // how many numbers follow the target
    const char *thing; // what can have it
    const char *meaning;
    number_range first = COUNT; // of the numbers
    number_range second = COUNT;
};

constexpr fault_kind FAULT_KINDS[] = {
    // A feed counts as a port: feed1 is the feed into port 1. It has no node to hang up.
    {fault_id::flip, "flip", "flip:PORT:N", 1, "port",
     "one bit is wrong in every Nth chunk leaving PORT"},
    {fault_id::drop, "drop", "drop:PORT:N", 1, "port", "every Nth chunk leaving PORT is lost"},
    {fault_id::cut, "cut", "cut:PORT", 0, "port", "nothing that leaves PORT arrives"},
    {fault_id::pull, "pull", "pull:PORT:N", 1, "port", "nothing arrives after the first N chunks"},
    {fault_id::lines, "lines", "lines:PORT-PORT", 0, "cable",
     "RTS of that cable (or loop) is not wired"},
    {fault_id::hangup, "hangup", "hangup:PORT:N", 1, "serial node",
     "PORT disappears for good at the Nth chunk that leaves or reaches it"},
    {fault_id::lost_byte, "lostbyte", "lostbyte:PORT:N", 1, "async line",
     "every Nth byte leaving PORT is lost"},
    {fault_id::inserted_byte, "insert", "insert:PORT:N", 1, "async line",
     "an extra byte follows every Nth byte leaving PORT"},
    {fault_id::framing, "framing", "framing:PORT:N", 1, "async line",
     "the stop bit of every Nth byte leaving PORT is low"},
    {fault_id::garble, "garble", "garble:PORT:N", 1, "sync line",
     "every Nth frame from PORT has a wrong byte and a valid check"},
    {fault_id::stall, "stall", "stall:PORT", 0, "line",
     "nothing leaves PORT; output waits in the port"},
    {fault_id::speed, "speed", "speed:PORT:PERCENT", 1, "async line",
     "PORT sends that much too fast (-50 to 50, not 0; below 0 too slow)", PERCENT},
    {fault_id::stuck_cts, "cts", "cts:PORT:LEVEL", 1, "modem line",
     "CTS at PORT is stuck: 0 off, 1 on", LEVEL},
    {fault_id::stuck_dcd, "dcd", "dcd:PORT:LEVEL", 1, "modem line",
     "DCD at PORT is stuck: 0 off, 1 on", LEVEL},
    // A module is named by its address on the port, or by its SPI node.
    {fault_id::stuck, "stuck", "stuck:MODULE:BYTE.BIT", 2, "module", "that input is always set",
     BYTE_INDEX, BIT_NUMBER},
    {fault_id::dead, "dead", "dead:MODULE:BYTE.BIT", 2, "module", "that output drives nothing",
     BYTE_INDEX, BIT_NUMBER},
    {fault_id::silent, "silent", "silent:MODULE:C", 1, "module",
     "no reply to a command: C 1 status, 4 read, 7 set, 12 identify", COMMAND},
    {fault_id::late_reply, "late", "late:MODULE:N", 1, "module", "every Nth reply comes too late"},
    {fault_id::delay, "delay", "delay:MODULE:MS", 1, "module", "each reply comes MS ms late",
     MILLISECONDS},
    {fault_id::lose_reply, "lose", "lose:MODULE:N", 1, "module", "every Nth reply is lost"},
    {fault_id::corrupt_reply, "corrupt", "corrupt:MODULE:N", 1, "module",
     "one bit is wrong in every Nth reply"},
    {fault_id::type, "type", "type:MODULE:TYPE", 1, "module", "the module reports another type",
     TYPE},
    {fault_id::stray_bytes, "stray", "stray:MODULE:N", 1, "sync module",
     "three stray bytes before every Nth reply (sync port)"},
    {fault_id::long_reply, "long", "long:MODULE:N", 1, "sync module",
     "every Nth reply is two bytes too long (sync port)"},
    {fault_id::short_reply, "short", "short:MODULE:N", 1, "sync module",
     "every Nth reply lacks its last byte (sync port)"},
    {fault_id::check, "check", "check:MODULE:N", 1, "SPI module",
     "the check byte of every Nth reply is wrong (SPI)"},
    {fault_id::slow_memory, "slow", "slow:MEMORY:MS", 1, "memory node",
     "opening MEMORY (datakey, eeprom) takes MS ms", MILLISECONDS},
    {fault_id::failing_memory, "fail", "fail:MEMORY:N", 1, "memory node",
     "nothing can be read after every Nth opening of MEMORY"},
    {fault_id::weak_bit, "weak", "weak:MEMORY:BYTE.BIT", 2, "memory node",
     "that bit is wrong after every second opening of MEMORY", MEMORY_INDEX, BIT_NUMBER},
    {fault_id::gone, "gone", "gone:PART", 0, "removable part",
     "PART is not there: datakey, led, log or eth0"},
    {fault_id::readonly, "readonly", "readonly:PART", 0, "writable part",
     "PART takes no writes: led or r0"},
    {fault_id::full, "full", "full:r0", 0, "store", "/r0 is full"},
    {fault_id::size, "size", "size:r0:KIB", 1, "store", "/r0 has room for KIB KiB"},
    {fault_id::limit, "limit", "limit:processes:MOST", 1, "process table",
     "programs start a process only while there are fewer than MOST (0 or more)", PROCESSES},
};

} // namespace simulator
