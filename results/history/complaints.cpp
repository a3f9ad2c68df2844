#include "results/history/complaints.h"

namespace {

complaint complaint_of(std::string_view text) {
    switch (text[0]) {
    case 'C':
        return complaint::PORT;
    case '[':
        return complaint::ODD_LENGTH;
    case '<':
        return text.ends_with('>') ? complaint::NO_REPLY : complaint::MISPLACED;
    case ' ':
        return complaint::MISPLACED;
    default:
        return complaint::EEPROM;
    }
}

} // namespace

void add_complaint(std::unique_ptr<complaint_counts> &complaints, std::string_view message) {
    if (complaints == nullptr)
        complaints = std::make_unique<complaint_counts>();
    const auto kind = static_cast<size_t>(complaint_of(message));
    if (++complaints->counts[kind] == 1)
        complaints->first[kind] = message;
}

void move_complaints(std::unique_ptr<complaint_counts> &from,
                     std::unique_ptr<complaint_counts> &to) {
    if (from == nullptr || to == nullptr) {
        if (from != nullptr)
            to = std::move(from);
        return;
    }
    for (size_t kind = 0; kind < COMPLAINTS; ++kind) {
        to->counts[kind] += from->counts[kind];
        if (to->first[kind].empty())
            to->first[kind] = std::move(from->first[kind]);
    }
    from.reset();
}
