#include "ctl/run/segment.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/ipc.h>
#include <sys/shm.h>

#include "ctl/text.h"
#include "supervisor/plan/kind_codes.h"

namespace {

constexpr size_t RECORD_WORDS = sizeof(TestRecord) / sizeof(int32_t);
constexpr int32_t PROCESS_MAX = 4 * 1024 * 1024; // see proc(5), pid_max

using record_words = std::array<int32_t, RECORD_WORDS>;

int32_t swap_bytes(int32_t word) {
    return static_cast<int32_t>(__builtin_bswap32(static_cast<uint32_t>(word)));
}

TestRecord copy_record(const TestRecord &shared, bool swapped) {
    record_words words;
    const auto *from = reinterpret_cast<const int32_t *>(&shared);
    for (size_t i = 0; i < RECORD_WORDS; ++i)
        words[i] = swapped ? swap_bytes(shared_word(from[i])) : shared_word(from[i]);
    return std::bit_cast<TestRecord>(words);
}

StatusTable copy_table(const StatusTable &shared, bool swapped) {
    StatusTable table;
    for (size_t i = 0; i < table.records.size(); ++i)
        table.records[i] = copy_record(shared.records[i], swapped);
    return table;
}

bool is_zero(const TestRecord &record) {
    const auto words = std::bit_cast<record_words>(record);
    return std::all_of(words.begin(), words.end(), [](int32_t word) { return word == 0; });
}

bool is_pid_word(int32_t pid) {
    return (pid >= 0 && pid <= PROCESS_MAX) || pid == PID_STOP || pid == PID_FINISHED ||
           pid == PID_REAPED;
}

bool is_hold_and_kind(const TestRecord &record) {
    return record.hold >= HOLD_NONE && record.hold <= HOLD_ACKNOWLEDGED && record.kind_code >= 0 &&
           record.kind_code < KIND_END;
}

// An option that is held but starts no test leaves its hold and kind code in the supervisor's
// record.
bool is_supervisor_record(TestRecord record) {
    const bool fits = is_hold_and_kind(record);
    record.pid = record.hold = record.kind_code = 0;
    return fits && is_zero(record);
}

bool is_test_record(const TestRecord &record) {
    return is_pid_word(record.pid) && is_record_letter(record.test_letter) &&
           record.hist_next >= 0 && is_hold_and_kind(record);
}

bool is_table(const StatusTable &table) {
    return is_supervisor_record(table.records[0]) &&
           std::all_of(table.records.begin() + 1, table.records.end(), is_test_record);
}

void *attach(int32_t id, int flags) {
    void *address = shmat(id, nullptr, flags);
    return address == reinterpret_cast<void *>(-1) ? nullptr : address;
}

// The columns of /proc/sysvipc/shm.
enum column : size_t {
    KEY = 0,
    ID = 1,
    SIZE = 3,
    CREATOR = 4,
    ATTACHED = 6,
    OWNER = 7,
    CREATED = 13
};

bool read_line(const std::string &line, segment &found) {
    const std::vector<std::string> columns = split_at_blanks(line);
    if (columns.size() <= CREATED)
        return false;
    const auto number = [&columns](column at) { return atoll(columns[at].c_str()); };
    found.id = static_cast<int32_t>(number(ID));
    found.creator = static_cast<pid_t>(number(CREATOR));
    found.attached = static_cast<uint32_t>(number(ATTACHED));
    found.owner = static_cast<uint32_t>(number(OWNER));
    found.created = number(CREATED);
    return columns[KEY] == "0" && number(SIZE) == sizeof(StatusTable);
}

} // namespace

std::vector<segment> segments_of_table_size() {
    std::vector<segment> found;
    const std::string lines = read_file("/proc/sysvipc/shm");
    for (size_t at = 0; at < lines.size();) {
        segment candidate;
        const size_t end = std::min(lines.find('\n', at), lines.size());
        if (read_line(lines.substr(at, end - at), candidate))
            found.push_back(candidate);
        at = end + 1;
    }
    return found;
}

table_access read_table(const segment &from, table_copy &copy) {
    const void *address = attach(from.id, SHM_RDONLY);
    if (address == nullptr)
        return errno == EACCES ? table_access::DENIED : table_access::FOREIGN;
    const auto &shared = *static_cast<const StatusTable *>(address);
    const int32_t supervisor = shared_word(shared.records[0].pid);
    copy.swapped = supervisor != from.creator;
    const bool is_own =
        from.creator > 0 && (copy.swapped ? swap_bytes(supervisor) : supervisor) == from.creator;
    copy.table = copy_table(shared, copy.swapped);
    (void)shmdt(address);
    return is_own && is_table(copy.table) ? table_access::TABLE : table_access::FOREIGN;
}

hold_words::hold_words(const segment &of, bool is_swapped)
    : attached(static_cast<StatusTable *>(attach(of.id, 0))), swapped(is_swapped) {}

hold_words::~hold_words() {
    if (attached != nullptr)
        (void)shmdt(attached);
}

int32_t hold_words::get(size_t record) const {
    const int32_t word = shared_word(attached->records[record].hold);
    return swapped ? swap_bytes(word) : word;
}

void hold_words::set(size_t record, int32_t value) {
    set_shared_word(attached->records[record].hold, swapped ? swap_bytes(value) : value);
}

TestRecord hold_words::record(size_t index) const {
    return copy_record(attached->records[index], swapped);
}

size_t records_in_use(const StatusTable &table) {
    size_t used = table.records.size();
    while (used > 1 && is_zero(table.records[used - 1]))
        --used;
    return used;
}

bool remove_segment(const segment &of) {
    return shmctl(of.id, IPC_RMID, nullptr) == 0;
}
