#include "simulator/world/entrance.h"

#include "simulator/base/message.h"
#include "simulator/requests/descriptor_passing.h"
#include "simulator/world/namespaces.h"
#include "simulator/world/operator/board_name.h"
#include "simulator/world/program_run.h"

#include <algorithm>
#include <array>
#include <sched.h>
#include <span>
#include <sys/socket.h>
#include <sys/syscall.h>

namespace simulator {

namespace {

constexpr size_t WORDS_MAX = 1024;
constexpr size_t RULE_WORDS = 3; // before the requests

// The rules as one message: the descriptors of ports (0, 0 if there are none), 1 if the starts of
// processes are stopped, then the requests.
std::vector<uint32_t> words_of(const filter_rules &rules) {
    const port_descriptors ports = rules.ports.value_or(port_descriptors{0, 0});
    std::vector<uint32_t> words = {static_cast<uint32_t>(ports.first),
                                   static_cast<uint32_t>(ports.end),
                                   rules.process_starts ? 1U : 0U};
    words.insert(words.end(), rules.ioctls.begin(), rules.ioctls.end());
    return words;
}

filter_rules rules_of(std::span<const uint32_t> words) {
    filter_rules rules;
    if (words[0] != 0)
        rules.ports = {static_cast<int>(words[0]), static_cast<int>(words[1])};
    rules.process_starts = words[2] != 0;
    rules.ioctls.assign(words.begin() + RULE_WORDS, words.end());
    return rules;
}

unique_fd own_process() {
    return unique_fd(static_cast<int>(syscall(SYS_pidfd_open, getpid(), 0)));
}

// Enters the namespaces of the board at the other side of the connection: from then on this
// process's children run on the board. Sets `rules` to what their filter must stop. False after a
// message.
bool move_in(int connection, filter_rules &rules) {
    const unique_fd board = receive_descriptor(connection);
    std::vector<uint32_t> words(WORDS_MAX);
    const ssize_t bytes = recv(connection, words.data(), words.size() * sizeof words[0], 0);
    const size_t count = bytes < 0 ? 0 : static_cast<size_t>(bytes) / sizeof words[0];
    if (!board.is_open() || count < RULE_WORDS)
        return complain("the board has ended");
    rules = rules_of(std::span(words).first(count));
    // A board that root runs has no user namespace of its own: it cannot be entered, see setns(2).
    return setns(board.get(), static_cast<int>(NAMESPACES | CLONE_NEWUSER)) == 0 ||
           setns(board.get(), static_cast<int>(NAMESPACES)) == 0 || cannot("enter", "the board");
}

} // namespace

void entrance::add_polls(std::vector<pollfd> &polls) const {
    if (listener.is_open())
        polls.push_back({listener.get(), POLLIN, 0});
    for (const unique_fd &visitor : visitors)
        polls.push_back({visitor.get(), POLLIN, 0});
    for (const request_channel &channel : channels)
        channel.add_polls(polls);
}

void entrance::ready(const pollfd &event) {
    if (event.fd == listener.get())
        return accept_visitor();
    const auto visitor = std::ranges::find(visitors, event.fd, &unique_fd::get);
    if (visitor != visitors.end()) {
        channels.emplace_back();
        channels.back().takers = takers;
        channels.back().ports = ports;
        channels.back().process_limit = process_limit;
        channels.back().listen_on(receive_descriptor(visitor->get())); // none if it is gone
        visitors.erase(visitor);
    } else {
        for (request_channel &channel : channels)
            if (channel.listener.get() == event.fd)
                channel.ready(event);
    }
    channels.remove_if([](const request_channel &each) { return !each.listener.is_open(); });
}

void entrance::accept_visitor() {
    unique_fd visitor(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!visitor.is_open() || !is_same_user(visitor.get()))
        return;
    const std::vector<uint32_t> words = words_of(rules);
    if (send_descriptor(visitor.get(), own_process().get()) &&
        send(visitor.get(), words.data(), words.size() * sizeof words[0], MSG_NOSIGNAL) >= 0)
        visitors.push_back(std::move(visitor));
}

int visit_board(const std::string &name, char *const *program, const std::string &directory) {
    const unique_fd connection = connect_to_board(name);
    if (!connection.is_open())
        return STATUS_USAGE;
    take_operator_signals();
    foreground terminal;
    terminal.find();
    program_run run;
    run.terminal = &terminal;
    filter_rules rules;
    if (!move_in(connection.get(), rules) || !run.start({program, directory.c_str(), rules}))
        return STATUS_NO_BOARD;
    if (run.listener.is_open())
        (void)send_descriptor(connection.get(),
                              run.listener.get()); // fails if the board has ended
    run.listener.reset();
    const std::array<event_source *, 1> sources = {&run};
    while (!run.ended)
        turn(sources, NEVER);
    terminal.take_back();
    return run.status;
}

} // namespace simulator
