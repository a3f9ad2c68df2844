#include "tests/board_run.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr int64_t SLOWNESS = 4;
#else
constexpr int64_t SLOWNESS = sizeof(HK_EMULATOR) > 1 ? 4 : 1;
#endif
constexpr int64_t LIMIT_MS = 30'000 * SLOWNESS;

std::vector<std::string> whole_command(std::vector<std::string> board_options,
                                       const std::vector<std::string> &command) {
    std::vector<std::string> all = {HK_BOARD_PATH, "--quiet", "--show-led"};
    all.insert(all.end(), board_options.begin(), board_options.end());
    all.emplace_back("--");
    all.insert(all.end(), command.begin(), command.end());
    return all;
}

// Appends what has come. False once the other side has closed.
bool append_from(int descriptor, std::string &text) {
    char bytes[4096];
    for (;;) {
        const ssize_t count = read(descriptor, bytes, sizeof bytes);
        if (count > 0) {
            text.append(bytes, static_cast<size_t>(count));
        } else {
            return count < 0 && errno == EAGAIN;
        }
    }
}

// "HH:MM:SS.mmm ident: text"
log_line parse_log_line(const std::string &line) {
    int hours = 0;
    int minutes = 0;
    int seconds = 0;
    int ms = 0;
    int length = 0;
    if (sscanf(line.c_str(), "%2d:%2d:%2d.%3d %n", &hours, &minutes, &seconds, &ms, &length) != 4) {
        return {-1, "", line};
    }
    const auto start = static_cast<size_t>(length);
    const size_t colon = std::min(line.find(": ", start), line.size());
    const size_t text = std::min(colon + 2, line.size());
    return {((hours * 60 + minutes) * 60 + seconds) * int64_t{1000} + ms,
            line.substr(start, colon - start), line.substr(text)};
}

std::vector<std::string> words_of(const std::string &text) {
    std::vector<std::string> words(1);
    for (const char letter : text) {
        if (letter != ' ' && letter != '\n') {
            words.back() += letter;
        } else if (!words.back().empty()) {
            words.emplace_back();
        }
    }
    if (words.back().empty()) {
        words.pop_back();
    }
    return words;
}

// Reads numbers joined by commas. False when the word is not exactly as many numbers.
template <size_t COUNT>
bool read_numbers(const std::string &word, std::array<int64_t, COUNT> &numbers) {
    const char *at = word.c_str();
    for (size_t i = 0; i < COUNT; i++) {
        char *end = nullptr;
        numbers[i] = strtoll(at, &end, 10);
        if (end == at || *end != (i + 1 < COUNT ? ',' : '\0')) {
            return false;
        }
        at = end + 1;
    }
    return true;
}

void close_if_open(int descriptor) {
    if (descriptor >= 0) {
        close(descriptor);
    }
}

} // namespace

// "<LI> KIND NAME... WORD COUNT WORD COUNT errors A,B,C hist P,V P,V P,V P,V P,V"
std::optional<result_line> parse_result_line(const std::string &text) {
    const std::vector<std::string> words = words_of(text);
    const auto found = std::find(words.begin(), words.end(), "errors");
    const auto errors = static_cast<size_t>(found - words.begin());
    if (errors < 7 || words.size() != errors + 8 || words[0] != "<LI>" ||
        words[errors + 2] != "hist") {
        return std::nullopt;
    }
    result_line line{};
    std::array<int64_t, 1> kind{};
    std::array<int64_t, 1> first{};
    std::array<int64_t, 1> second{};
    bool good = read_numbers(words[1], kind) && read_numbers(words[errors - 3], first) &&
                read_numbers(words[errors - 1], second) &&
                read_numbers(words[errors + 1], line.errors);
    for (size_t i = 0; good && i < line.samples.size(); i++) {
        good = read_numbers(words[errors + 3 + i], line.samples[i]);
    }
    if (!good) {
        return std::nullopt;
    }
    line.kind = static_cast<int>(kind[0]);
    line.counts = {first[0], second[0]};
    for (size_t i = 2; i < errors - 4; i++) {
        line.name += (i > 2 ? " " : "") + words[i];
    }
    return line;
}

std::vector<std::string> own_program(const char *path, const std::vector<std::string> &arguments) {
    std::vector<std::string> command;
    if (sizeof(HK_EMULATOR) > 1) {
        command.emplace_back(HK_EMULATOR);
    }
    command.emplace_back(path);
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

board_run board_run::stress(std::vector<std::string> board_options,
                            std::vector<std::string> arguments) {
    return board_run(
        whole_command(std::move(board_options), own_program(HK_STRESS_PATH, arguments)));
}

board_run board_run::program(std::vector<std::string> board_options,
                             std::vector<std::string> command) {
    return board_run(whole_command(std::move(board_options), command));
}

// The log comes by way of a file, so that the board never waits for a case that is busy elsewhere.
board_run::board_run(std::vector<std::string> arguments) {
    char path[] = "/tmp/hk_board_log_XXXXXX";
    log_file = mkostemp(path, O_CLOEXEC);
    log_path = path;
    log_watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (log_file < 0 || inotify_add_watch(log_watch, path, IN_MODIFY) < 0) {
        ADD_FAILURE() << "no log file " << path;
        return;
    }
    arguments.insert(arguments.begin() + 1, {"--log", log_path});
    start(arguments);
}

void board_run::start(std::vector<std::string> &arguments) {
    std::vector<char *> words;
    for (std::string &argument : arguments) {
        words.push_back(argument.data());
    }
    words.push_back(nullptr);
    int output_ends[2];
    int error_ends[2];
    if (pipe2(output_ends, O_CLOEXEC) != 0 || pipe2(error_ends, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "no pipes";
        return;
    }
    const pid_t test = getpid();
    board = fork();
    if (board == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // a case that is killed cannot end its board itself
        if (getppid() != test) {
            _exit(127);
        }
        dup2(output_ends[1], STDOUT_FILENO);
        dup2(error_ends[1], STDERR_FILENO);
        execv(words[0], words.data());
        _exit(127);
    }
    close(output_ends[1]);
    close(error_ends[1]);
    output_pipe = output_ends[0];
    error_pipe = error_ends[0];
    fcntl(output_pipe, F_SETFL, O_NONBLOCK);
    fcntl(error_pipe, F_SETFL, O_NONBLOCK);
}

board_run::~board_run() {
    if (board > 0) {
        kill(board, SIGKILL);
        waitpid(board, nullptr, 0);
    }
    for (const int descriptor : {output_pipe, error_pipe, log_file, log_watch}) {
        close_if_open(descriptor);
    }
    unlink(log_path.c_str());
    if (testing::Test::HasFailure()) {
        printf("standard error of the run:\n%s", errors.c_str());
        for (const log_line &line : log) {
            printf("%s: %s\n", line.ident.c_str(), line.text.c_str());
        }
    }
}

int64_t board_run::now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

int64_t board_run::limit_ms() {
    return LIMIT_MS;
}

// Both pipes are closed only when no process of the run is left.
bool board_run::read_more(int64_t latest_ms) {
    const int64_t left_ms = latest_ms - now_ms();
    std::array<pollfd, 3> polls = {
        {{output_pipe, POLLIN, 0}, {error_pipe, POLLIN, 0}, {log_watch, POLLIN, 0}}};
    if (left_ms <= 0 || (output_pipe < 0 && error_pipe < 0)) {
        read_log();
        return false;
    }
    (void)poll(polls.data(), polls.size(), static_cast<int>(left_ms));
    if (polls[0].revents != 0 && !append_from(output_pipe, output)) {
        close(output_pipe);
        output_pipe = -1;
    }
    if (polls[1].revents != 0 && !append_from(error_pipe, errors)) {
        close(error_pipe);
        error_pipe = -1;
    }
    read_log();
    return true;
}

void board_run::read_log() {
    std::string events;
    (void)append_from(log_watch, events); // only that there were any matters
    (void)append_from(log_file, unfinished_log);
    size_t start = 0;
    for (size_t end = 0; (end = unfinished_log.find('\n', start)) != std::string::npos;
         start = end + 1) {
        log.push_back(parse_log_line(unfinished_log.substr(start, end - start)));
    }
    unfinished_log.erase(0, start);
}

std::optional<log_line> board_run::wait_for_log(std::string_view part) {
    const bool found = wait_until([&] {
        while (log_passed < log.size()) {
            if (log[log_passed++].text.find(part) != std::string::npos) {
                return true;
            }
        }
        return false;
    });
    return found ? std::optional(log[log_passed - 1]) : std::nullopt;
}

bool board_run::wait_for_output(std::string_view part) {
    return wait_until([&] { return output.find(part) != std::string::npos; });
}

bool board_run::wait_until_running() {
    running = running || wait_until([&] {
                  return std::any_of(log.begin(), log.end(), [](const log_line &line) {
                      return line.ident == "board" && line.text == "LED off";
                  });
              });
    return running;
}

std::optional<std::vector<std::string>> board_run::next_list(size_t &from) const {
    const auto is = [](const char *text) {
        return [text](const log_line &line) { return line.text == text; };
    };
    const auto first = log.begin() + static_cast<std::ptrdiff_t>(std::min(from, log.size()));
    const auto start = std::find_if(first, log.end(), is("<OL>"));
    const auto end = std::find_if(start, log.end(), is("</OL><P>"));
    if (end == log.end()) {
        return std::nullopt;
    }
    from = static_cast<size_t>(end - log.begin()) + 1;
    std::vector<std::string> items;
    for (auto line = start + 1; line != end; ++line) {
        if (line->ident != "board") {
            items.push_back(line->text);
        }
    }
    return items;
}

std::vector<std::string> board_run::request_list() {
    if (!wait_until_running()) {
        return {};
    }
    read_log();
    size_t from = log.size();
    std::optional<std::vector<std::string>> items;
    signal(SIGUSR1);
    (void)wait_until([&] { return (items = next_list(from)).has_value(); });
    return items.value_or(std::vector<std::string>());
}

void board_run::signal(int number) {
    if (board > 0) {
        kill(board, number);
    }
}

int board_run::finish() {
    const int64_t latest_ms = now_ms() + LIMIT_MS;
    while (read_more(latest_ms)) {
    }
    if (board <= 0 || output_pipe >= 0 || error_pipe >= 0) {
        return -1;
    }
    int how = 0;
    waitpid(board, &how, 0);
    board = -1;
    return WIFEXITED(how) ? WEXITSTATUS(how) : 128 + WTERMSIG(how);
}

int board_run::stop() {
    if (!wait_until_running()) {
        return -1;
    }
    signal(SIGTERM);
    return finish();
}
