#include "simulator/own_time/calls/futex_calls.h"

#include "simulator/own_time/calls/caller_times.h"
#include "simulator/own_time/task_view.h"
#include "simulator/requests/caller.h"

#include <algorithm>
#include <cerrno>
#include <linux/futex.h>
#include <string>
#include <utility>

namespace simulator {

// The word that a thread waits for. Equal for all threads that share the word.
struct futex_word {
    pid_t owner;      // the process; 0: every process that shares the memory
    std::string file; // of shared memory
    uint64_t place;   // in the file, or else the address

    bool operator==(const futex_word &) const = default;
};

namespace {

constexpr int OPERATION = ~(FUTEX_PRIVATE_FLAG | FUTEX_CLOCK_REALTIME);

int operation_of(const request &asked) {
    return static_cast<int>(asked.arguments[1]) & OPERATION;
}

uint32_t bits_of(const request &asked) {
    const int operation = operation_of(asked);
    return operation == FUTEX_WAIT_BITSET || operation == FUTEX_WAKE_BITSET
               ? static_cast<uint32_t>(asked.arguments[5])
               : FUTEX_BITSET_MATCH_ANY;
}

futex_word word_at(uint64_t address, const request &asked, const thread &caller) {
    if ((asked.arguments[1] & FUTEX_PRIVATE_FLAG) == 0)
        if (const auto shared = shared_place_at(caller.id, address))
            return {0, shared->file, shared->offset};
    return {caller.owner->id, "", address};
}

futex_word word_of(const request &asked, const thread &caller) {
    return word_at(asked.arguments[0], asked, caller);
}

bool has_value(const request &asked, uint32_t value) {
    uint32_t word = 0;
    return read_memory(asked, asked.arguments[0], &word, sizeof word) && word == value;
}

} // namespace

struct futex_wait final : stopped_call {
    futex_wait(const request &of, thread &waiting, const process_table &table, futexes &all)
        : stopped_call(of),
          word(word_of(of, waiting)),
          bits(bits_of(of)),
          caller(waiting),
          processes(table),
          others(all),
          seen_changes(table.changes) {
        if (of.arguments[3] != 0)
            read_end(of);
        is_new = has_value(of, expected());
        others.waiting.push_back(this);
    }
    futex_wait(const futex_wait &) = delete;
    futex_wait &operator=(const futex_wait &) = delete;
    ~futex_wait() override {
        std::erase(others.waiting, this);
    }

    verdict attempt() override {
        if (error != 0)
            return verdict::done(-error);
        if (!is_new)
            return verdict::done(-EAGAIN);
        // When a thread ends, the kernel writes the word and wakes whoever waits for it.
        const bool is_freed = seen_changes != processes.changes && !has_value(asked, expected());
        seen_changes = processes.changes;
        if (is_woken || is_freed)
            return verdict::done(0);
        return now_us() >= end_us ? verdict::done(-ETIMEDOUT) : verdict::blocked(end_us);
    }
    uint64_t changes() const override {
        return processes.changes * 2 + (is_woken ? 1 : 0);
    }
    verdict interrupt() override {
        if (end_us == NEVER)
            return verdict::passed_on();
        if (has_handled_signal(asked))
            return verdict::done(-EINTR);
        caller.continued_wait_us = end_us; // it is being stopped
        return verdict::done(-RESTARTED_WITHOUT_HANDLER);
    }

    futex_word word;
    const uint32_t bits;
    bool is_woken = false;

private:
    uint32_t expected() const {
        return static_cast<uint32_t>(asked.arguments[2]);
    }
    // A duration for FUTEX_WAIT, a moment for FUTEX_WAIT_BITSET.
    void read_end(const request &of) {
        const auto wanted = read_timespec(of, of.arguments[3]);
        error = wanted.error;
        const bool is_calendar = (of.arguments[1] & FUTEX_CLOCK_REALTIME) != 0;
        end_us = operation_of(of) == FUTEX_WAIT ? now_us() + wanted.us
                                                : end_of_wait_us(wanted.us, is_calendar);
        const int64_t continued_us = std::exchange(caller.continued_wait_us, NEVER);
        if (continued_us != NEVER)
            end_us = continued_us;
    }

    thread &caller;
    const process_table &processes;
    futexes &others;
    uint64_t seen_changes;
    int error = 0; // of the time
    bool is_new;   // the word had the expected value
    int64_t end_us = NEVER;
};

int64_t futexes::wake(const request &asked, const thread &caller) {
    const futex_word word = word_of(asked, caller);
    int64_t left = std::max<int32_t>(1, static_cast<int32_t>(asked.arguments[2]));
    int64_t woken = 0;
    for (futex_wait *each : waiting) {
        if (left == 0)
            break;
        if (each->is_woken || each->word != word || (each->bits & bits_of(asked)) == 0)
            continue;
        each->is_woken = true;
        left--;
        woken++;
    }
    return woken;
}

int64_t futexes::requeue(const request &asked, const thread &caller) {
    if (operation_of(asked) == FUTEX_CMP_REQUEUE &&
        !has_value(asked, static_cast<uint32_t>(asked.arguments[5])))
        return -EAGAIN;
    const int64_t woken = asked.arguments[2] == 0 ? 0 : wake(asked, caller);
    const futex_word from = word_of(asked, caller);
    const futex_word to = word_at(asked.arguments[4], asked, caller);
    auto left = static_cast<int64_t>(asked.arguments[3]);
    int64_t moved = 0;
    for (futex_wait *each : waiting) {
        if (left == 0)
            break;
        if (each->is_woken || each->word != from)
            continue;
        each->word = to;
        left--;
        moved++;
    }
    return woken + moved;
}

bool futexes::take(const request &asked, thread &caller, const process_table &processes,
                   held_calls &held) {
    int64_t result = 0;
    switch (operation_of(asked)) {
    case FUTEX_WAIT:
    case FUTEX_WAIT_BITSET:
        held.take(std::make_unique<futex_wait>(asked, caller, processes, *this));
        return true;
    case FUTEX_WAKE:
    case FUTEX_WAKE_BITSET:
        result = wake(asked, caller);
        break;
    case FUTEX_REQUEUE:
    case FUTEX_CMP_REQUEUE:
        result = requeue(asked, caller);
        break;
    default:
        return false;
    }
    if (result < 0)
        refuse(asked, static_cast<int>(-result));
    else
        answer(asked, result);
    return true;
}

} // namespace simulator
