#include "fleet/lines/sender.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <string>
#include <string_view>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "fleet/lines/board_lines.h"
#include "runtime/unique_fd.h"

namespace {

using std::chrono::system_clock;

constexpr size_t WINDOW = 128; // lines on their way, as omrelp has them

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

} // namespace

void send_load(const load &work) {
    sender(work).run();
}
