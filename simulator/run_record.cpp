#include "simulator/run_record.h"

#include "simulator/base/message.h"
#include "simulator/world/log/board_output.h"
#include "simulator/world/namespaces.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <optional>
#include <poll.h>
#include <string_view>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace simulator {

namespace {

constexpr std::string_view COMMAND_MARK = " board: command: hk_board ";
constexpr std::string_view OWN_VERSION = HK_BOARD_VERSION " ";
constexpr std::string_view HASH_MARK = " board: hash of the log ";

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

// A run whose log comes through a pipe. It does not outlive this process.
class repeated_run {
public:
    repeated_run(const std::vector<std::string> &words, const std::string &own_program);
    ~repeated_run();
    repeated_run(const repeated_run &) = delete;
    repeated_run &operator=(const repeated_run &) = delete;

    // None at its end.
    std::optional<std::string> next_line();
    // Waits for its end, after the last line. Returns its exit status.
    int finish();

private:
    [[noreturn]] void become_run(std::vector<std::string> words, const std::string &own_program);

    unique_fd log;
    unique_fd log_end; // it stays open here: the end of the run is seen on `end`
    pid_t id = -1;
    unique_fd end;
    std::string text;
};

repeated_run::repeated_run(const std::vector<std::string> &words, const std::string &own_program) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    log.reset(ends[0]);
    log_end.reset(ends[1]);
    id = fork();
    if (id == 0)
        become_run(words, own_program);
    end.reset(static_cast<int>(syscall(SYS_pidfd_open, id, 0)));
}

repeated_run::~repeated_run() {
    if (id < 0)
        return;
    (void)kill(id, SIGKILL);
    (void)finish();
}

// The run opens the pipe by its path: the program has the same descriptors as before.
void repeated_run::become_run(std::vector<std::string> words, const std::string &own_program) {
    const std::string path =
        "/proc/" + std::to_string(getppid()) + "/fd/" + std::to_string(log_end.get());
    words.insert(words.begin(), {own_program, "--quiet", "--log", path});
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    execv(own_program.c_str(), arguments.data());
    _exit(STATUS_NO_BOARD);
}

std::optional<std::string> repeated_run::next_line() {
    bool has_ended = id < 0;
    while (text.find('\n') == std::string::npos) {
        std::array<char, 4096> bytes;
        const ssize_t count = read(log.get(), bytes.data(), bytes.size());
        if (count <= 0 && has_ended)
            return std::nullopt;
        if (count > 0)
            text.append(bytes.data(), static_cast<size_t>(count));
        pollfd polls[] = {{log.get(), POLLIN, 0}, {end.get(), POLLIN, 0}};
        if (count <= 0 && poll(polls, std::size(polls), -1) > 0)
            has_ended = polls[1].revents != 0;
    }
    const size_t length = text.find('\n');
    std::string line = text.substr(0, length);
    text.erase(0, length + 1);
    return line;
}

int repeated_run::finish() {
    int how = 0;
    (void)waitpid(std::exchange(id, -1), &how, 0);
    return WIFEXITED(how) ? WEXITSTATUS(how) : STATUS_NO_BOARD;
}

int report_difference(size_t line, const char *before, const char *now) {
    printf("line %zu differs\nlog: %s\nnow: %s\n", line, before, now);
    return 1;
}

// Ends the run at the first difference, or when the log has ended without a hash: then its own run
// was killed.
int compare(const std::vector<std::string> &before, repeated_run &run) {
    const bool is_whole = before.back().find(HASH_MARK) != std::string::npos;
    size_t same = 0;
    while (is_whole || same < before.size()) {
        const std::optional<std::string> now = run.next_line();
        if (!now && same == 0) {
            report("the run of the log could not be started again");
            return run.finish();
        }
        if (!now && same == before.size())
            break;
        const char *expected = same < before.size() ? before[same].c_str() : "(ends)";
        same++;
        if (!now || *now != expected)
            return report_difference(same, expected, now ? now->c_str() : "(ends)");
    }
    printf("the same %zu lines%s\n", same, is_whole ? "" : ", with which the log ends early");
    return 0;
}

// The words of the command; none after a message.
std::optional<std::vector<std::string>> command_of(const std::vector<std::string> &log,
                                                   const std::string &path) {
    const size_t mark = log.empty() ? std::string::npos : log[0].find(COMMAND_MARK);
    if (mark == std::string::npos) {
        report("--replay %s: the first line of a log in the board's own time is its command",
               path.c_str());
        return std::nullopt;
    }
    const std::string_view command = std::string_view(log[0]).substr(mark + COMMAND_MARK.size());
    if (!command.starts_with(OWN_VERSION)) {
        report("--replay %s: the log is of another version, hk_board %s", path.c_str(),
               std::string(command.substr(0, command.find(' '))).c_str());
        return std::nullopt;
    }
    return words_of(command.substr(OWN_VERSION.size()));
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
    output.show(std::string(COMMAND_MARK.substr(1)).append(OWN_VERSION).append(words));
}

void note_hash() {
    board_note("hash of the log %016llx", static_cast<unsigned long long>(output.hash()));
}

int replay_log(const std::string &path, const std::string &own_program) {
    if (access(path.c_str(), R_OK) != 0) {
        (void)cannot("read", path);
        return STATUS_USAGE;
    }
    const std::vector<std::string> before = lines_of(path);
    const auto words = command_of(before, path);
    if (!words)
        return STATUS_USAGE;
    repeated_run run(*words, own_program);
    return compare(before, run);
}

} // namespace simulator
