#include "results/judging/places.h"

#include <algorithm>

#include "ctl/text.h"
#include "results/reading/rows/row_reader.h"
#include "supervisor/lists/counter_meanings.h"
#include "supervisor/plan/kind_codes.h"

namespace {

// What an error counter says of the place, by letter and number in the line. "%d" is the port.
struct place_row {
    record_letter letter;
    size_t number;
    const char *words;
};

// clang-format off
constexpr place_row PLACES[] = {
    {record_letter::RECEIVER, 0, "bits change on the way to port %d: line, cable, or either port"},
    {record_letter::RECEIVER, 1, "port %d could not be opened"},
    {record_letter::RECEIVER, 2, "blocks do not arrive at port %d in time: producer, cable or "
                                 "receiver, or a busy machine"},
    {record_letter::ECHO_BACK, 0, "bytes come wrong into port %d"},
    {record_letter::PRODUCER, 2, "port %d cannot be opened or written to"},
    {record_letter::FIO, 0, "inputs do not follow the outputs of the module at address 20: its "
                            "outputs, its inputs or the harness"},
    {record_letter::FIO, 1, "the module at address 20 does not answer in time: module, cable or "
                            "port %d, or a busy machine"},
    {record_letter::FIO, 2, "replies of the module at address 20 begin with stray bytes: cable, "
                            "module or port %d"},
    {record_letter::SPI_FIO, 0, "inputs do not follow the outputs of the module on SPI: its outputs, "
                                "its inputs or the harness"},
    {record_letter::SPI_FIO, 1, "the module on SPI does not answer, or with a wrong check byte"},
    {record_letter::SPI_DEVICE, 0, "the SPI device gives too little or something else back"},
    {record_letter::SPI_DEVICE, 1, "the SPI device could not be opened"},
    {record_letter::FILESYSTEM, 0, "files read back wrong, or could not be created"},
    {record_letter::FILE_COPY, 0, "a file reads as empty, or could not be created"},
    {record_letter::DRAM, 0, "memory reads back wrong, or cannot be mapped"},
};
constexpr place_row SECOND_FIO_PLACES[] = {
    {record_letter::RECEIVER, 0, "inputs do not follow the outputs of the module at address 16: its "
                                 "outputs, its inputs or the harness"},
    {record_letter::RECEIVER, 1, "the module at address 16 does not answer in time: module, cable or "
                                 "port %d, or a busy machine"},
    {record_letter::RECEIVER, 2, "replies of the module at address 16 begin with stray bytes: cable, "
                                 "module or port %d"},
};
// clang-format on

template <size_t rows>
void add_places(const place_row (&table)[rows], const record_history &record,
                std::vector<std::string> &places) {
    for (const place_row &row : table)
        if (is_of(record.newest, row.letter) && record.error(row.number) != 0) {
            const std::string words = row.words;
            const size_t port = words.find("%d");
            places.push_back(
                port == std::string::npos
                    ? words
                    : std::string(words).replace(port, 2, std::to_string(record.newest.unit)));
        }
}

constexpr uint64_t LINE_FAULTS_MAX = 2; // of the check of the modem lines at the start

// One direction of a crossover: the record counts what `from` sent and `to` received.
struct direction {
    const run_history &run;
    const record_history &record;
    int32_t from;
    int32_t to;
    bool is_second; // of the two records

    uint64_t bad() const {
        return record.error(0);
    }
    uint64_t lost() const {
        return record.error(1);
    }
    bool has_only_line_faults() const {
        return bad() > 0 && bad() <= LINE_FAULTS_MAX && lost() == 0;
    }
    bool is_dead() const {
        return record.count(1) == 0 && lost() > 0;
    }
    // It worked, and nothing arrives any more.
    bool has_ended() const {
        return record.count(1) != 0 && lost() > 0 &&
               is_a_stall(run, run.clock_ms - record.moved_at_ms);
    }
    // The same test the other way round: a fault stays with the port that sends.
    std::string check_with() const {
        return is_second ? text_of("check with -E%d%d", from, to)
                         : text_of("check with -E%d%d", to, from);
    }
};

std::string lost_frames(const direction &way) {
    const char *words = way.is_dead()     ? "frames from port %d do not reach port %d"
                        : way.has_ended() ? "frames from port %d no longer reach port %d"
                                          : "frames from port %d do not all reach port %d";
    return text_of(words, way.from, way.to) + text_of(": transmitter %d, cable or receiver %d; %s",
                                                      way.from, way.to, way.check_with().c_str());
}

// Both records count the time-outs of frames from the first port to the second.
std::string late_frames(const direction &way, const direction &back) {
    const direction &counted = way.is_second ? back : way;
    if (counted.lost() > 0)
        return text_of(
            "time-outs at port %d for the frames from port %d that do not arrive; its own "
            "reach port %d",
            counted.to, counted.from, counted.from);
    return text_of("frames from port %d reach port %d too late: a busy machine, or the line",
                   counted.from, counted.to);
}

// The modem lines of one port drive those of the other: a line fault counts at the port that
// drives.
std::vector<std::string> places_of_direction(const direction &way, const direction &back) {
    if (way.is_dead() && back.is_dead())
        return {text_of("nothing passes between port %d and port %d: no cable, or all of it",
                        way.from, way.to)};
    if (way.has_ended() && back.has_ended())
        return {
            text_of("nothing passes any more between port %d and port %d: one of the ports, or the "
                    "cable",
                    way.from, way.to)};
    if (way.has_only_line_faults() && back.has_only_line_faults())
        return {
            text_of("modem lines between port %d and port %d, in both directions: RTS, CTS, DCD",
                    way.from, way.to)};
    if (way.has_only_line_faults())
        return {text_of("RTS of port %d, or CTS or DCD of port %d", way.to, way.from)};
    if (way.has_ended())
        return {lost_frames(way)};
    if (way.bad() > way.lost())
        return {text_of("bits change on the way from port %d to port %d: transmitter, cable or "
                        "receiver; %s",
                        way.from, way.to, way.check_with().c_str())};
    if (way.lost() > 0)
        return {lost_frames(way)};
    return {late_frames(way, back)};
}

std::vector<std::string> places_of_loop(const run_history &run, const record_history &record) {
    const int32_t port = record.newest.unit;
    const direction way = {run, record, port, port, false};
    if (way.has_ended())
        return {text_of(
            "nothing that port %d sends comes back any more: port, or its loopback plug", port)};
    if (way.is_dead())
        return {text_of("nothing that port %d sends comes back: port, or its loopback plug", port)};
    if (way.has_only_line_faults())
        return {text_of("RTS of port %d does not reach its own CTS and DCD: port or plug", port)};
    if (way.bad() > way.lost())
        return {text_of("bits change between port %d and its loopback plug", port)};
    return {text_of(
        "frames of port %d do not all come back in time: port or plug, or a busy machine", port)};
}

std::string not_opened(const run_history &run, const TestRecord &record) {
    const bool is_named = is_of(record, record_letter::CROSSOVER) && run.complaints != nullptr;
    const std::string said =
        is_named ? run.complaints->first[static_cast<size_t>(complaint::PORT)] : "";
    return said.empty() ? "its device could not be opened"
                        : text_of("a port could not be opened: %s", printable(said).c_str());
}

uint32_t complaints_in(const run_history &run, complaint kind) {
    return run.complaints != nullptr ? run.complaints->counts[static_cast<size_t>(kind)] : 0;
}

bool is_crossover_pair(const run_history &run, size_t first) {
    return first + 1 < run.records.size() &&
           is_of(run.records[first].newest, record_letter::CROSSOVER) &&
           run.records[first].newest.kind_code != KIND_CROSSOVER &&
           is_of(run.records[first + 1].newest, record_letter::CROSSOVER);
}

// Only the tests of ports and of the module on SPI write what they opened.
bool has_device(const TestRecord &record) {
    switch (static_cast<record_letter>(record.test_letter)) {
    case record_letter::RECEIVER:
    case record_letter::PRODUCER:
    case record_letter::CROSSOVER:
    case record_letter::FIO:
    case record_letter::SPI_FIO:
        return record.unit != 0;
    default:
        return true;
    }
}

std::vector<std::string> places_of_crossover(const run_history &run, size_t index) {
    const bool is_second = index > 0 && is_crossover_pair(run, index - 1);
    if (!is_second && !is_crossover_pair(run, index))
        return places_of_loop(run, run.records[index]);
    const record_history &own = run.records[index];
    const record_history &other = run.records[is_second ? index - 1 : index + 1];
    if (!has_device(other.newest))
        return {not_opened(run, own.newest)};
    const direction way = {run, own, own.newest.unit, other.newest.unit, is_second};
    const direction back = {run, other, other.newest.unit, own.newest.unit, !is_second};
    return places_of_direction(way, back);
}

constexpr std::array<const char *, COMPLAINTS> COMPLAINT_WORDS = {
    "a port could not be opened",
    "a pass over the eeprom took too long, and it is read no more",
    "a field I/O module did not answer",
    "a reply of a field I/O module came with stray bytes",
    "a reply of a field I/O module had a wrong length",
};

} // namespace

bool is_opened(const run_history &run, size_t index) {
    // The second line of -F has no port either until its module is asked for the first time.
    return has_device(run.records[index].newest) ||
           (index > 0 && is_of(run.records[index - 1].newest, record_letter::FIO) &&
            has_device(run.records[index - 1].newest));
}

bool has_complaint(const run_history &run, size_t index) {
    return is_of(run.records[index].newest, record_letter::FIO) &&
           complaints_in(run, complaint::ODD_LENGTH) > 0;
}

// A list does not distinguish the eeprom from what the other tests of -S read but the datakey.
// Alone the record is the eeprom's; beside others it is one that has not worked since the list
// before.
bool has_given_up(const run_history &run, const record_history &record) {
    const auto may_be_eeprom = [](const record_history &each) {
        return is_of(each.newest, record_letter::SPI_DEVICE) && each.newest.unit != 1;
    };
    if (!may_be_eeprom(record) || complaints_in(run, complaint::EEPROM) == 0)
        return false;
    return std::ranges::count_if(run.records, may_be_eeprom) == 1 ||
           record.moved_at_ms < run.clock_ms;
}

std::vector<std::string> places_of(const run_history &run, size_t index) {
    const record_history &record = run.records[index];
    if (!is_opened(run, index))
        return {not_opened(run, record.newest)};
    if (is_of(record.newest, record_letter::CROSSOVER))
        return places_of_crossover(run, index);
    std::vector<std::string> places;
    if (index > 0 && is_of(run.records[index - 1].newest, record_letter::FIO))
        add_places(SECOND_FIO_PLACES, record, places);
    else
        add_places(PLACES, record, places);
    if (has_complaint(run, index))
        places.emplace_back("one of the two modules sends replies of a wrong length");
    return places;
}

void note_complaints(const run_history &run, std::vector<std::string> &remarks) {
    for (size_t kind = 0; run.complaints != nullptr && kind < COMPLAINTS; ++kind)
        if (const uint32_t count = run.complaints->counts[kind]; count > 0)
            remarks.push_back(
                text_of("%s: message \"%s\"%s", COMPLAINT_WORDS[kind],
                        printable(run.complaints->first[kind]).c_str(),
                        count == 1 ? "" : text_of(" and %u more", count - 1).c_str()));
}
