#include "results/reading/lines/message_kind.h"

#include "results/reading/lines/text_parts.h"

namespace {

// Reads "12", "12 10" and the like.
bool is_numbers(std::string_view text, size_t most) {
    size_t count = 0;
    while (!text.empty() && count < most) {
        const std::string_view word = take_word(text);
        const bool is_number =
            !word.empty() && std::ranges::all_of(word.substr(word[0] == '-' ? 1 : 0), is_digit);
        if (!is_number)
            return false;
        ++count;
    }
    return text.empty() && count > 0;
}

// "<20 stat 0 204>", "<12 10"
bool is_reply_complaint(std::string_view text) {
    std::string_view rest = text.substr(1);
    const bool is_closed = rest.ends_with('>');
    if (is_closed)
        rest.remove_suffix(1);
    const std::string_view address = take_word(rest);
    if (!is_closed)
        return is_numbers(address, 1) && is_numbers(trimmed(rest), 1);
    const std::string_view request = take_word(rest);
    return is_numbers(address, 1) && is_numbers(rest, 2) &&
           (request == "stat" || request == "set" || request == "read");
}

message_kind kind_of_tagged(std::string_view message) {
    if (message.starts_with("<LI> "))
        return message_kind::ITEM;
    const std::string_view text = trimmed(message);
    if (text == "<OL>")
        return message_kind::LIST_BEGIN;
    if (text == "</OL><P>")
        return message_kind::LIST_END;
    return is_reply_complaint(text) ? message_kind::COMPLAINT : message_kind::OTHER;
}

bool is_bracketed(std::string_view text, size_t numbers) {
    return text.size() > 1 && is_numbers(text.substr(1, text.size() - 2), numbers);
}

} // namespace

message_kind kind_of(std::string_view message) {
    if (message.empty())
        return message_kind::OTHER;
    const auto complaint_if = [](bool is_one) {
        return is_one ? message_kind::COMPLAINT : message_kind::OTHER;
    };
    switch (message[0]) {
    case '<':
        return kind_of_tagged(message);
    case 'C':
        return complaint_if(message.starts_with("Couldn't open SP"));
    case 'e':
    case 'a':
        return complaint_if(message.starts_with("eeprom too long ") ||
                            message.starts_with("a eeprom too long ") ||
                            message.starts_with("an eeprom too long "));
    case '[':
        return complaint_if(message.ends_with(']') && is_bracketed(message, 2));
    case ' ':
        return complaint_if(message.ends_with('>') && is_bracketed(message, 1));
    default:
        return message_kind::OTHER;
    }
}
