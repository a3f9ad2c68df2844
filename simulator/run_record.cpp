#include "simulator/run_record.h"

#include "simulator/base/message.h"
#include "simulator/world/log/board_output.h"
#include "simulator/world/namespaces.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

namespace simulator {

namespace {

constexpr std::string_view COMMAND_MARK = " board: command: hk_board " HK_BOARD_VERSION " ";

// Options that only say where the output of a run goes.
constexpr std::string_view OUTPUT_OPTIONS[] = {"log", "calls", "quiet", "forward", "name"};

std::string quoted(const std::string &word) {
    constexpr const char *PLAIN = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                  "0123456789-_=,.:/@~%+";
    if (!word.empty() && word.find_first_not_of(PLAIN) == std::string::npos)
        return word;
    std::string text = "'";
    for (const char letter : word)
        letter == '\'' ? text.append("'\\''") : text.append(1, letter);
    return text.append("'");
}

// The words of a text as `quoted` writes them.
std::vector<std::string> words_of(std::string_view text) {
    std::vector<std::string> words;
    bool is_quoted = false;
    bool is_within = false;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] == ' ' && !is_quoted) {
            is_within = false;
            continue;
        }
        if (!std::exchange(is_within, true))
            words.emplace_back();
        if (text[i] == '\'')
            is_quoted = !is_quoted;
        else if (text[i] == '\\' && !is_quoted && i + 1 < text.size())
            words.back() += text[++i];
        else
            words.back() += text[i];
    }
    return words;
}

std::vector<std::string> lines_of(const std::string &path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

void run_again(std::vector<std::string> words, const std::string &own_program,
               const std::string &log) {
    words.insert(words.begin(), {own_program, "--quiet", "--log", log});
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const pid_t again = fork();
    if (again == 0) {
        execv(own_program.c_str(), arguments.data());
        _exit(STATUS_NO_BOARD);
    }
    (void)waitpid(again, nullptr, 0);
}

int compare(const std::vector<std::string> &before, const std::vector<std::string> &now) {
    const auto [one, other] = std::ranges::mismatch(before, now);
    if (one == before.end() && other == now.end()) {
        printf("the same %zu lines\n", before.size());
        return 0;
    }
    printf("line %td differs\nlog: %s\nnow: %s\n", one - before.begin() + 1,
           one == before.end() ? "(ends)" : one->c_str(),
           other == now.end() ? "(ends)" : other->c_str());
    return 1;
}

} // namespace

std::string command_words(const command_line &given, const run_settings &settings) {
    std::string text = "--seed " + std::to_string(settings.seed);
    for (const given_option &each : given.options) {
        const std::string_view name = each.row->name;
        if (name == "seed" || std::ranges::find(OUTPUT_OPTIONS, name) != std::end(OUTPUT_OPTIONS))
            continue;
        text.append(" --").append(name);
        if (each.row->argument != nullptr)
            text.append(" ").append(quoted(each.text));
    }
    text += " --";
    for (char *const *word = given.program; *word != nullptr; word++)
        text.append(" ").append(quoted(*word));
    return text;
}

void note_command(const std::string &words) {
    output.show(std::string(COMMAND_MARK.substr(1)).append(words));
}

void note_hash() {
    board_note("hash of the log %016llx", static_cast<unsigned long long>(output.hash()));
}

int replay_log(const std::string &path, const std::string &own_program) {
    const std::vector<std::string> before = lines_of(path);
    const size_t mark = before.empty() ? std::string::npos : before[0].find(COMMAND_MARK);
    if (mark == std::string::npos) {
        report("--replay %s: the first line of a log in the board's own time is its command", //
               path.c_str());
        return STATUS_USAGE;
    }
    std::string log = "/tmp/hk_board_replay_XXXXXX";
    const unique_fd created(mkstemp(log.data()));
    run_again(words_of(std::string_view(before[0]).substr(mark + COMMAND_MARK.size())), own_program,
              log);
    const int result = compare(before, lines_of(log));
    (void)unlink(log.c_str());
    return result;
}

} // namespace simulator
