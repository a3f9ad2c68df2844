// What the tests of a run complain of in messages of their own, between the lists.

#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

enum class complaint : uint8_t { PORT, EEPROM, NO_REPLY, MISPLACED, ODD_LENGTH, END };
constexpr size_t COMPLAINTS = static_cast<size_t>(complaint::END);

// The messages of the tests in a run, by kind.
struct complaint_counts {
    std::array<uint32_t, COMPLAINTS> counts = {};
    std::array<std::string, COMPLAINTS> first; // the first text of each
};

// Counts a message of the kind message_kind::COMPLAINT.
void add_complaint(std::unique_ptr<complaint_counts> &complaints, std::string_view message);

// Adds the counts of `from` to `to`; nothing is left in `from`. Either may be null.
void move_complaints(std::unique_ptr<complaint_counts> &from,
                     std::unique_ptr<complaint_counts> &to);
