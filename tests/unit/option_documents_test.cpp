// The manual page and the completion against the option table.
#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "supervisor/plan/option_table.h"

namespace {

std::vector<std::string> lines_of(const std::string &path) {
    std::ifstream file(HK_SOURCE_PATH "/" + path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

// True when the first such line that has the macros of an option has them with an argument, or
// without, as the table says.
bool documents(const std::vector<std::string> &lines, const char *begin, const option_row &row) {
    const std::string option = std::string("Fl ") + static_cast<char>(row.letter);
    for (const std::string &line : lines)
        if (line.starts_with(begin) && contains(line + " ", option + " "))
            return contains(line, option + " Ar") == (row.argument != argument_form::NONE);
    return false;
}

TEST(ManualPage, lists_every_option_with_the_argument_that_it_takes) {
    const std::vector<std::string> lines = lines_of("man/hk_stress.8");
    for (const option_row &row : option_table()) {
        EXPECT_TRUE(documents(lines, ".It", row)) << static_cast<char>(row.letter);
        EXPECT_TRUE(row.argument == argument_form::NONE || documents(lines, ".Op", row))
            << static_cast<char>(row.letter);
    }
}

// The letters between the brackets of the first line with this text.
std::string letters_after(const std::vector<std::string> &lines, const std::string &text) {
    for (const std::string &line : lines)
        if (const size_t at = line.find(text); at != std::string::npos)
            return line.substr(at + text.size(), line.find(']', at) - at - text.size());
    return "";
}

TEST(Completion, offers_every_option_and_values_for_those_that_take_a_number_or_a_file) {
    const std::vector<std::string> lines = lines_of("tools/completion/hk_stress");
    std::string values;
    std::string anything;
    size_t options = 0;
    for (const option_row &row : option_table()) {
        const char letter = static_cast<char>(row.letter);
        const bool is_free = row.argument == argument_form::TEXT ||
                             row.argument == argument_form::SECONDS ||
                             row.argument == argument_form::BYTES;
        if (row.argument != argument_form::NONE)
            (is_free ? anything : values) += letter;
        const auto offers = [letter](const std::string &line) {
            return contains(line, "compgen -W $'-b") && contains(line, std::string("-") + letter);
        };
        options += std::any_of(lines.begin(), lines.end(), offers) ? 1 : 0;
    }
    const auto sorted = [](std::string text) {
        std::sort(text.begin(), text.end());
        return text;
    };
    EXPECT_EQ(options, option_table().size());
    EXPECT_EQ(sorted(letters_after(lines, "    -[")), sorted(values));
    EXPECT_EQ(sorted("d" + letters_after(lines, "    -[d")), sorted(anything));
}

} // namespace
