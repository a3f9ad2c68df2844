// What a message of a log is.

#pragma once

#include <cstdint>
#include <string_view>

// The messages of hk_stress.
enum class message_kind : uint8_t {
    OTHER, // of another program, or of none
    LIST_BEGIN,
    ITEM,
    LIST_END,
    COMPLAINT, // of a test, such as "Couldn't open SP2"
};

// Returns what a message is. An ITEM may still be unreadable.
message_kind kind_of(std::string_view message);
