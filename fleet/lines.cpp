// Results lists of many boards, made with the program's own line table: what benchmarks and tests
// send through the chain in place of as many boards.
//
//   fleet_lines table                            a line for each kind of record, and its counters
//   fleet_lines file BOARDS LISTS                the collector's file, to standard output
//   fleet_lines send ADDRESS PORT BOARDS PERIOD SECONDS [ERROR]
//                     a RELP connection for each board; every PERIOD seconds a list; with PERIOD 0
//                     one after another. SECONDS count from "connected". Board 1 has an error ERROR
//                     seconds after the start.
//
// A board has five records: a crossover of two ports, a loopback, a receiver and a producer.

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <span>
#include <string>
#include <string_view>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "runtime/unique_fd.h"
#include "supervisor/lists/line_format.h"
#include "supervisor/lists/results_log.h"
#include "supervisor/lists/results_rows.h"

namespace {

using std::chrono::system_clock;

constexpr int32_t BOARDS_A_RACK = 100;
constexpr size_t WINDOW = 128; // lines on their way, as omrelp has them

constexpr TestRecord record_of(record_letter letter, int32_t unit, int32_t kind_code) {
    TestRecord record = {};
    record.test_letter = static_cast<int32_t>(letter);
    record.unit = unit;
    record.kind_code = kind_code;
    return record;
}

constexpr TestRecord BOARD_RECORDS[] = {
    record_of(record_letter::CROSSOVER, 2, 0), record_of(record_letter::CROSSOVER, 8, 5),
    record_of(record_letter::CROSSOVER, 5, 5), record_of(record_letter::RECEIVER, 1, 3),
    record_of(record_letter::PRODUCER, 4, 4),
};

std::string text_of(const TestRecord &record) {
    char line[RESULTS_LINE_MAX];
    const int length = format_results_line(record, line);
    std::string text(line, static_cast<size_t>(length));
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

// The lines of a board's list number `list`, from 1 on, a second's worth of work for each.
std::vector<std::string> list_of(int32_t list, int32_t errors) {
    std::vector<std::string> lines = {"<OL>"};
    for (TestRecord record : BOARD_RECORDS) {
        record.read_count = record.write_count = record.prev_read_count = 9000 * list;
        record.errors3 = record.unit == 8 ? errors : 0;
        lines.push_back(text_of(record));
    }
    lines.emplace_back("</OL><P>");
    return lines;
}

// "2026-11-21T05:00:01.123456+00:00 rack7-03 Stress 020000000102 : "
std::string head_of(int32_t board, system_clock::time_point when) {
    const time_t second = system_clock::to_time_t(when);
    const auto micro =
        std::chrono::duration_cast<std::chrono::microseconds>(when.time_since_epoch()).count();
    tm utc;
    (void)gmtime_r(&second, &utc);
    char date[32];
    (void)strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc);
    char head[128];
    const int length =
        snprintf(head, sizeof head, "%s.%06d+00:00 rack%d-%02d Stress 02%010x : ", date,
                 static_cast<int>(micro % 1000000), board / BOARDS_A_RACK + 1,
                 board % BOARDS_A_RACK, static_cast<unsigned>(board));
    return {head, static_cast<size_t>(length)};
}

// Each kind of line, and after a tab its error counters, each with a value of its own.
void print_table() {
    for (const line_row &row : RESULTS_ROWS) {
        TestRecord record = record_of(row.letter, '1', 7);
        record.errors = 55;
        record.errors2 = 66;
        record.errors3 = 77;
        const std::string line = text_of(record);
        if (line.empty())
            continue;
        printf("%s\t", line.c_str());
        for (size_t i = 0; i < row.field_count; ++i) {
            const std::string_view name = row.fields[i].name;
            const int value = name == "errors" ? 55 : name == "errors2" ? 66 : 77;
            if (name.starts_with("errors"))
                printf("%s=%d ", row.fields[i].name, value);
        }
        printf("\n");
    }
}

// Lists of all boards in turn, 120 s of the boards' clocks apart.
void print_file(int32_t boards, int32_t lists) {
    auto when = system_clock::now() - std::chrono::seconds(120) * lists;
    for (int32_t list = 1; list <= lists; ++list, when += std::chrono::seconds(120)) {
        const std::vector<std::string> lines = list_of(list, 0);
        for (int32_t board = 1; board <= boards; ++board)
            for (size_t i = 0; i < lines.size(); ++i) {
                const auto moment = when + std::chrono::microseconds(i);
                const std::string text = head_of(board, moment) + lines[i] + "\n";
                (void)fwrite(text.data(), 1, text.size(), stdout);
            }
    }
}

// A board's connection to the collector. RELP numbers what it sends, "2 syslog 70 <14>...", and
// answers each with its number: "2 rsp 6 200 OK".
struct connection {
    int socket = -1;
    int32_t board = 0;
    int32_t lists = 0;
    int32_t number = 0;
    size_t unanswered = 0;
    std::deque<std::string> waiting; // frames
    std::string sending;
    std::string answers;
};

struct totals {
    int64_t received = 0; // lines that were answered
    int64_t lists = 0;
    int64_t late = 0; // lists that were due while the one before was on its way
};

bool start_connection(connection &board, const sockaddr_in &address) {
    board.socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(board.socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return false;
    const int on = 1;
    (void)setsockopt(board.socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    (void)fcntl(board.socket, F_SETFL, O_NONBLOCK);
    constexpr std::string_view OFFER = "relp_version=0\nrelp_software=fleet_lines\ncommands=syslog";
    std::string frame = "1 open " + std::to_string(OFFER.size());
    frame.append(" ").append(OFFER).append("\n");
    board.waiting.push_back(frame);
    board.number = 1;
    return true;
}

void add_list(connection &board, int32_t errors) {
    for (const std::string &line : list_of(++board.lists, errors)) {
        std::string text = "<14>" + head_of(board.board, system_clock::now());
        text.append(line);
        std::string frame = std::to_string(++board.number) + " syslog ";
        frame.append(std::to_string(text.size())).append(" ").append(text).append("\n");
        board.waiting.push_back(frame);
    }
}

// Sends what the window and the socket let through. Returns false if the connection is broken.
bool send_frames(connection &board) {
    while (true) {
        while (board.unanswered < WINDOW && !board.waiting.empty()) {
            board.sending += board.waiting.front();
            board.waiting.pop_front();
            ++board.unanswered;
        }
        if (board.sending.empty())
            return true;
        const ssize_t sent =
            send(board.socket, board.sending.data(), board.sending.size(), MSG_NOSIGNAL);
        if (sent < 0)
            return errno == EAGAIN;
        board.sending.erase(0, static_cast<size_t>(sent));
    }
}

// Takes a whole answer, "2 rsp 6 200 OK" and a line feed, off the front. Returns false without one.
bool take_answer(std::string &answers) {
    const size_t command = answers.find(' ');
    const size_t length = answers.find(' ', command + 1);
    if (command == std::string::npos || length == std::string::npos)
        return false;
    size_t bytes = 0;
    const char *end = answers.data() + answers.size();
    const auto [after, error] = std::from_chars(answers.data() + length + 1, end, bytes);
    const size_t whole = static_cast<size_t>(after - answers.data()) + (bytes > 0 ? bytes + 1 : 0);
    if (error != std::errc{} || after == end || answers.size() < whole + 1)
        return false;
    answers.erase(0, whole + 1);
    return true;
}

bool read_answers(connection &board, totals &all) {
    char bytes[4096];
    const ssize_t got = recv(board.socket, bytes, sizeof bytes, 0);
    if (got <= 0)
        return got < 0 && errno == EAGAIN;
    board.answers.append(bytes, static_cast<size_t>(got));
    while (take_answer(board.answers)) {
        --board.unanswered;
        ++all.received;
    }
    return true;
}

[[noreturn]] void fail(const char *what) {
    perror(what);
    exit(1);
}

struct load {
    sockaddr_in address;
    int32_t boards;
    double period_s;
    double seconds;
    double error_at_s;
};

// The boards of a load, all in one process.
class sender {
public:
    explicit sender(const load &of) : work(of), boards(static_cast<size_t>(of.boards)) {
        for (size_t i = 0; i < boards.size(); ++i) {
            boards[i].board = static_cast<int32_t>(i) + 1;
            if (!start_connection(boards[i], work.address))
                fail("fleet_lines: connection to the collector");
            (void)send_frames(boards[i]);
            epoll_event event = {EPOLLIN, {.u64 = i}};
            (void)epoll_ctl(poll.get(), EPOLL_CTL_ADD, boards[i].socket, &event);
        }
        while (all.received < work.boards)
            wait_for_answers();
        all.received = 0;
        printf("connected\n");
        (void)fflush(stdout);
        start = std::chrono::steady_clock::now();
    }

    void run() {
        while (elapsed_s() < work.seconds) {
            work.period_s > 0 ? add_due_lists() : refill();
            wait_for_answers();
        }
        const double took = elapsed_s();
        printf("%.1f s, %ld lists, %ld lines received, %.0f lines/s, %ld lists late\n", took,
               all.lists, all.received, static_cast<double>(all.received) / took, all.late);
    }

private:
    double elapsed_s() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

    void send_list(connection &board) {
        const bool has_error =
            board.board == 1 && work.error_at_s > 0 && elapsed_s() >= work.error_at_s;
        if (has_error && !error_said) {
            printf("error sent %.3f\n",
                   std::chrono::duration<double>(system_clock::now().time_since_epoch()).count());
            (void)fflush(stdout);
            error_said = true;
        }
        add_list(board, has_error ? 1 : 0);
        ++all.lists;
        if (!send_frames(board))
            fail("fleet_lines: sending");
    }

    // The boards' turns are spread evenly over the period.
    void add_due_lists() {
        const auto turns = static_cast<int64_t>(elapsed_s() / work.period_s * work.boards) + 1;
        for (; turns_done < turns; ++turns_done) {
            connection &board = boards[static_cast<size_t>(turns_done % work.boards)];
            all.late += board.unanswered + board.waiting.size() > 1;
            send_list(board);
        }
    }

    void refill() {
        for (connection &board : boards)
            while (board.waiting.empty() && board.unanswered < WINDOW / 2)
                send_list(board);
    }

    void wait_for_answers() {
        std::array<epoll_event, 256> events;
        const int count = epoll_wait(poll.get(), events.data(), events.size(), 2);
        for (int i = 0; i < count; ++i) {
            connection &board = boards[events[static_cast<size_t>(i)].data.u64];
            if (!read_answers(board, all) || !send_frames(board))
                fail("fleet_lines: the collector closed a connection");
        }
    }

    load work;
    std::vector<connection> boards;
    totals all;
    std::chrono::steady_clock::time_point start;
    int64_t turns_done = 0;
    bool error_said = false;
    unique_fd poll{epoll_create1(EPOLL_CLOEXEC)};
};

int usage() {
    fputs("usage: fleet_lines table | file BOARDS LISTS | send ADDRESS PORT BOARDS PERIOD SECONDS "
          "[ERROR]\n",
          stderr);
    return 2;
}

int send_load(std::span<char *const> arguments) {
    load work = {};
    work.address.sin_family = AF_INET;
    work.address.sin_port = htons(static_cast<uint16_t>(atoi(arguments[1])));
    if (inet_pton(AF_INET, arguments[0], &work.address.sin_addr) != 1)
        return usage();
    work.boards = atoi(arguments[2]);
    work.period_s = atof(arguments[3]);
    work.seconds = atof(arguments[4]);
    work.error_at_s = arguments.size() > 5 ? atof(arguments[5]) : 0;
    if (work.boards < 1)
        return usage();
    sender(work).run();
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    const std::span<char *const> arguments(argv + 1, static_cast<size_t>(argc - 1));
    const std::string_view command = arguments.empty() ? "" : arguments[0];
    if (command == "table" && arguments.size() == 1) {
        print_table();
        return 0;
    }
    if (command == "file" && arguments.size() == 3) {
        print_file(atoi(arguments[1]), atoi(arguments[2]));
        return 0;
    }
    if (command == "send" && (arguments.size() == 6 || arguments.size() == 7))
        return send_load(arguments.subspan(1));
    return usage();
}
