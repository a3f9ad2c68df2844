#include "tests/support/board_run.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

using std::chrono::steady_clock;

namespace {

#if defined(HK_SANITIZED)
constexpr int SLOWNESS = 4;
#else
constexpr int SLOWNESS = sizeof(HK_EMULATOR) > 1 ? 4 : 1;
#endif

std::vector<std::string> whole_command(std::vector<std::string> board_options,
                                       const std::vector<std::string> &command) {
    std::vector<std::string> all = {HK_BOARD_PATH, "--quiet", "--show-led"};
    if (sizeof(HK_EMULATOR) > 1)
        all.emplace_back("--emulated");
    all.insert(all.end(), board_options.begin(), board_options.end());
    all.emplace_back("--");
    all.insert(all.end(), command.begin(), command.end());
    return all;
}

// Appends the bytes that have come. False once the other side has closed.
bool append_from(const unique_fd &descriptor, std::string &text) {
    char bytes[4096];
    ssize_t count;
    while ((count = read(descriptor.get(), bytes, sizeof bytes)) > 0)
        text.append(bytes, static_cast<size_t>(count));
    return count < 0 && errno == EAGAIN;
}

// "YYYY-MM-DD HH:MM:SS.mmm ident: text"
log_line parse_log_line(const std::string &line) {
    int hours = 0;
    int minutes = 0;
    int seconds = 0;
    int ms = 0;
    size_t ident = 0;
    const char *form = "%*4d-%*2d-%*2d %2d:%2d:%2d.%3d %zn";
    const int numbers = sscanf(line.c_str(), form, &hours, &minutes, &seconds, &ms, &ident);
    const size_t colon = line.find(": ", ident);
    if (numbers != 4 || colon == std::string::npos)
        return {-1, "", line};
    return {((hours * 60 + minutes) * 60 + seconds) * 1000 + ms, line.substr(ident, colon - ident),
            line.substr(colon + 2)};
}

} // namespace

std::chrono::seconds wait_limit() {
    const char *asked_for = getenv("HK_WAIT_SECONDS");
    return std::chrono::seconds(asked_for != nullptr ? atoi(asked_for) : 60 * SLOWNESS);
}

// "<LI> KIND NAME... WORD COUNT WORD COUNT errors A,B,C hist P,V P,V P,V P,V P,V"
std::optional<result_line> parse_result_line(const std::string &text) {
    std::string spaced = text;
    std::replace(spaced.begin(), spaced.end(), ',', ' ');
    std::istringstream stream(spaced);
    const std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    const auto found = std::find(words.begin(), words.end(), "errors");
    const auto errors = static_cast<size_t>(found - words.begin());
    if (errors < 7 || words.size() != errors + 15 || words[0] != "<LI>" ||
        words[errors + 4] != "hist")
        return std::nullopt;
    const auto number = [&words](size_t index) { return int64_t{std::stoll(words[index])}; };
    result_line line{static_cast<int>(number(1)), words[2], {}, {}, {}};
    for (size_t i = 3; i < errors - 4; ++i)
        line.name += " " + words[i];
    line.counts = {number(errors - 3), number(errors - 1)};
    line.errors = {number(errors + 1), number(errors + 2), number(errors + 3)};
    for (size_t i = 0; i < line.samples.size(); ++i)
        line.samples[i] = {number(errors + 5 + 2 * i), number(errors + 6 + 2 * i)};
    return line;
}

std::vector<std::string> own_program(const char *path, const std::vector<std::string> &arguments) {
    std::vector<std::string> command;
    if (sizeof(HK_EMULATOR) > 1)
        command.emplace_back(HK_EMULATOR);
    command.emplace_back(path);
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

pid_t child_of(pid_t parent) {
    const std::string id = std::to_string(parent);
    std::ifstream children("/proc/" + id + "/task/" + id + "/children");
    pid_t child = 0;
    children >> child;
    return child;
}

board_run board_run::stress(std::vector<std::string> board_options,
                            std::vector<std::string> arguments) {
    return program(std::move(board_options), own_program(HK_STRESS_PATH, arguments));
}

board_run board_run::program(std::vector<std::string> board_options,
                             std::vector<std::string> command) {
    if (std::ranges::find(board_options, "--clock") == board_options.end())
        board_options.insert(board_options.begin(), {"--clock", "virtual"});
    return board_run(whole_command(std::move(board_options), command));
}

// The log goes through a file, so the board never waits for a busy case.
board_run::board_run(std::vector<std::string> arguments)
    : log_watch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), log_path("/tmp/hk_board_log_XXXXXX") {
    log_file.reset(mkostemp(log_path.data(), O_CLOEXEC));
    int output_ends[2];
    int error_ends[2];
    if (!log_file || inotify_add_watch(log_watch.get(), log_path.c_str(), IN_MODIFY) < 0 ||
        pipe2(output_ends, O_CLOEXEC) != 0 || pipe2(error_ends, O_CLOEXEC) != 0)
        throw std::runtime_error("no descriptors for a run");
    output_pipe.reset(output_ends[0]);
    error_pipe.reset(error_ends[0]);
    fcntl(output_ends[0], F_SETFL, O_NONBLOCK);
    fcntl(error_ends[0], F_SETFL, O_NONBLOCK);
    arguments.insert(arguments.begin() + 1, {"--log", log_path});
    std::vector<char *> words;
    for (std::string &argument : arguments)
        words.push_back(argument.data());
    words.push_back(nullptr);
    const pid_t test = getpid();
    board = fork();
    if (board == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // a killed case cannot end its board itself
        if (getppid() == test) {
#if defined(HK_SANITIZED)
            // The search for leaks traces its own process, which the board's own time cannot serve.
            setenv("ASAN_OPTIONS", "detect_leaks=0", 0);
#endif
            dup2(output_ends[1], STDOUT_FILENO);
            dup2(error_ends[1], STDERR_FILENO);
            execv(words[0], words.data());
        }
        _exit(127);
    }
    close(output_ends[1]);
    close(error_ends[1]);
}
board_run::~board_run() {
    if (board > 0) {
        kill(board, SIGKILL);
        waitpid(board, nullptr, 0);
    }
    unlink(log_path.c_str());
    if (testing::Test::HasFailure()) {
        printf("standard error of the run:\n%s", errors.c_str());
        for (const log_line &line : log)
            printf("%s: %s\n", line.ident.c_str(), line.text.c_str());
    }
}

// Both pipes close only when no process of the run is left.
bool board_run::read_more(time_point latest) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(latest - steady_clock::now());
    const bool goes_on = left.count() > 0 && (output_pipe || error_pipe);
    if (goes_on) {
        std::array<pollfd, 3> polls = {{{output_pipe.get(), POLLIN, 0},
                                        {error_pipe.get(), POLLIN, 0},
                                        {log_watch.get(), POLLIN, 0}}};
        (void)poll(polls.data(), polls.size(), static_cast<int>(left.count()));
        if (polls[0].revents != 0 && !append_from(output_pipe, output))
            output_pipe.reset();
        if (polls[1].revents != 0 && !append_from(error_pipe, errors))
            error_pipe.reset();
    }
    read_log();
    return goes_on;
}

void board_run::read_log() {
    std::string events;
    (void)append_from(log_watch, events); // their contents do not matter
    (void)append_from(log_file, unfinished_log);
    size_t begin = 0;
    for (size_t end; (end = unfinished_log.find('\n', begin)) != std::string::npos; begin = end + 1)
        log.push_back(parse_log_line(unfinished_log.substr(begin, end - begin)));
    unfinished_log.erase(0, begin); // once for all lines: a hung-up port fills the log quickly
}

bool board_run::wait_until(const std::function<bool()> &holds) {
    const time_point latest = steady_clock::now() + wait_limit();
    while (!holds())
        if (!read_more(latest))
            return holds();
    return true;
}

std::optional<log_line> board_run::wait_for_log(std::string_view part) {
    const bool found = wait_until([&] {
        while (log_passed < log.size())
            if (log[log_passed++].text.find(part) != std::string::npos)
                return true;
        return false;
    });
    return found ? std::optional(log[log_passed - 1]) : std::nullopt;
}

bool board_run::wait_for_output(std::string_view part) {
    return wait_until([&] { return output.find(part) != std::string::npos; });
}

bool board_run::wait_until_running() {
    const auto is_led_off = [](const log_line &line) {
        return line.ident == "board" && line.text == "LED off";
    };
    return wait_until([&] { return std::any_of(log.begin(), log.end(), is_led_off); });
}

std::optional<std::vector<std::string>> board_run::next_list(size_t &from) const {
    std::optional<std::vector<std::string>> items;
    for (size_t i = from; i < log.size(); ++i) {
        if (items && log[i].text == "</OL><P>") {
            from = i + 1;
            return items;
        }
        if (items && log[i].ident != "board")
            items->push_back(log[i].text);
        else if (log[i].text == "<OL>")
            items.emplace();
    }
    return std::nullopt;
}

std::string board_run::notes() const {
    std::string text;
    for (const log_line &line : log)
        if (line.ident == "board" && !line.text.starts_with("command: ") &&
            !line.text.starts_with("hash "))
            text += line.text + "\n";
    return text;
}

std::vector<std::string> board_run::request_list() {
    if (!wait_until_running())
        return {};
    read_log();
    size_t from = log.size();
    std::optional<std::vector<std::string>> items;
    signal(SIGUSR1);
    (void)wait_until([&] { return (items = next_list(from)).has_value(); });
    return items.value_or(std::vector<std::string>());
}

void board_run::signal(int number) {
    if (board > 0)
        kill(board, number);
}

int board_run::finish() {
    const time_point latest = steady_clock::now() + wait_limit();
    while (read_more(latest)) {
    }
    if (board <= 0 || output_pipe || error_pipe)
        return -1;
    int how = 0;
    waitpid(board, &how, 0);
    board = -1;
    return WIFEXITED(how) ? WEXITSTATUS(how) : 128 + WTERMSIG(how);
}

int board_run::stop() {
    if (!wait_until_running())
        return -1;
    signal(SIGTERM);
    return finish();
}
