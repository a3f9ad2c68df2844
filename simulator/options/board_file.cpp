#include "simulator/options/board_file.h"

#include "simulator/base/message.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <toml++/toml.h>

namespace simulator {

namespace {

using position = toml::source_position;

// One value of a key, and its place.
struct board_value {
    const option_row *row;
    const toml::node *node;
};

std::string place_of(const std::string &path, const position &where) {
    return path + ":" + std::to_string(where.line);
}

bool refuse_key(const std::string &place, std::string_view key) {
    std::string valid;
    for (const option_row &row : option_table())
        if (is_for_board_files(row))
            valid += std::string(" ") + row.name;
    const message_place here(place);
    return complain("%.*s: unknown key; keys are:%s", static_cast<int>(key.size()), key.data(),
                    valid.c_str());
}

bool refuse_value(const std::string &place, const option_row &row) {
    const message_place here(place);
    if (row.argument == nullptr)
        return complain("%s: the value is true or false", row.name);
    return complain("%s: the value is a text %s, or a list of such texts; as an option: %s",
                    row.name, row.argument, row.example);
}

// A number is read as the text of its digits: port = 3.
std::string value_text(const toml::node &node) {
    if (const auto *text = node.as_string())
        return text->get();
    std::ostringstream digits;
    if (const auto *whole = node.as_integer())
        digits << whole->get();
    else if (const auto *number = node.as_floating_point())
        digits << number->get();
    return digits.str();
}

bool take_value(const std::string &place, const board_value &value,
                std::vector<given_option> &options) {
    const auto *flag = value.node->as_boolean();
    const std::string text = value_text(*value.node);
    const bool takes_text = value.row->argument != nullptr;
    if (takes_text ? text.empty() : flag == nullptr)
        return refuse_value(place, *value.row);
    if (takes_text || flag->get())
        options.push_back({value.row, text, place});
    return true;
}

bool take_key(const std::string &path, const toml::key &key, const toml::node &node,
              std::vector<given_option> &options) {
    const std::string place = place_of(path, key.source().begin);
    const auto rows = option_table();
    const auto row = std::ranges::find(rows, key.str(), &option_row::name);
    if (row == rows.end() || !is_for_board_files(*row))
        return refuse_key(place, key.str());
    const toml::array *list = node.as_array();
    if (list == nullptr)
        return take_value(place, {&*row, &node}, options);
    return std::ranges::all_of(*list, [&](const toml::node &each) {
        return take_value(place_of(path, each.source().begin), {&*row, &each}, options);
    });
}

} // namespace

bool read_board_file(const char *path, std::vector<given_option> &options) {
    std::ifstream file(path);
    std::ostringstream text;
    if (!file || !(text << file.rdbuf()))
        return complain("--board %s: the file cannot be read, or is empty", path);
    try {
        const toml::table table = toml::parse(text.str());
        return std::ranges::all_of(table, [&](const auto &entry) {
            return take_key(path, entry.first, entry.second, options);
        });
    } catch (const toml::parse_error &wrong) {
        const message_place here(place_of(path, wrong.source().begin));
        return complain("%s; a line is KEY = \"TEXT\", KEY = [\"TEXT\", ...] or KEY = true",
                        std::string(wrong.description()).c_str());
    }
}

} // namespace simulator
